// Lines on their way to property files.
#pragma once

#include <functional>
#include <memory>
#include <optional>

#include "driver/sync/worker_thread.h"
#include "persist/property_file_writer.h"
#include "platform/files.h"

namespace valmere {

// Purpose: takes write requests and applies them one by one, in order, on a background thread. A
// change whose line waits already takes that line's place, where that shows in no file: what waits
// is bounded by what there is to store.
// Owner: the persistence component. Its thread holds all that it touches, and so may outlive it.
// Threads: any thread pushes, under a short lock; whoever pushes waits for no file. Start and End
// on the owner's.
// Errors: a rewrite that fails is told to the reporter, once for each file and cause, of which the
// last kMostReported are remembered. What is still queued at the end is discarded.
class LineQueue {
 public:
  using Reporter = std::function<void(const platform::WidePath& path, RewriteResult cause)>;

  static constexpr std::size_t kMostReported = 32;
  // Paths that are equal so far count as one to those who report.
  static constexpr std::size_t kReportedPathLength = 256;

  LineQueue(std::shared_ptr<platform::FileSystem> files, Reporter report);
  // Ends.
  ~LineQueue();
  LineQueue(const LineQueue&) = delete;
  LineQueue& operator=(const LineQueue&) = delete;

  // Lines queue up until the worker is started; false when there is no thread to be had.
  bool Start(int priority);
  // Finishes the line that is being written and waits for the thread. No line is taken from then
  // on, and a thread that did not come back in time writes no more. Any number of times.
  void End();

  // Queues a line that stays where it is: none is moved over it, and none takes its place. False
  // after the end.
  bool Push(WriteRequest request);
  // Queues the line of a property's change; its left side has a "|". It takes the place of the line
  // of an earlier change with the same left side, for the same file, if only changes for that file
  // have been queued since. False after the end.
  bool PushChange(WriteRequest request);
  // Applies requests until none is left, or until one could not be read or finished: the others
  // then wait for the next push. True once at least one was written completely.
  bool Drain();

 private:
  class Writer;

  const std::shared_ptr<Writer> writer_;
  std::optional<WorkerThread> thread_;
};

}  // namespace valmere
