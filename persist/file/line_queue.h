// Lines on their way to property files.
#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "driver/sync/worker_thread.h"
#include "persist/file/property_file_writer.h"
#include "platform/files.h"

namespace valmere {

// Purpose: is told of what befalls lines on their way.
// Owner: shared by the line queue and its threads.
// Threads: the queue's two, and the one that ends it; one call at a time from each.
// Errors: std::bad_alloc costs the report.
class LineReports {
 public:
  virtual ~LineReports() = default;
  // The first line of its file that could not be written: it waits, and all that come for the file
  // behind it.
  virtual void Waits(platform::WidePathView path, RewriteResult cause) = 0;
  // All that waited for the file has been written, so many lines.
  virtual void WrittenAgain(platform::WidePathView path, std::size_t lines) = 0;
  // Lines that are not tried again.
  virtual void GivenUp(platform::WidePathView path, std::size_t lines, RewriteResult cause) = 0;
  // A line for which there was no memory.
  virtual void Lost() = 0;
  // What was written can't be brought to the disk; then: it can.
  virtual void NotSynced() = 0;
  virtual void Synced() = 0;
  // The queue ends while these lines wait; their left sides.
  virtual void LeftBehind(const std::vector<std::string>& lines) = 0;
};

// Purpose: takes write requests and applies them one by one, in order, on a background thread. A
// change whose line waits already takes that line's place, where that shows in no file: what waits
// is bounded by what there is to store. A line that could not be written waits, and those for the
// same file behind it, and a second thread tries it again; that one also brings what was written to
// the disk, many lines at once and at most a second later.
// Owner: the persistence component. Its threads hold all that they touch, and so may outlive it.
// Threads: any thread pushes, under a short lock; whoever pushes waits for no file. Start, Stop and
// End on the owner's.
// Errors: what fails is told in reports. What is still queued at the end is discarded.
class LineQueue {
 public:
  // A longer path leads to no file on any system.
  static constexpr std::size_t kLongestPath = 32'767;

  // `first_file` is the property file that the service begins with.
  LineQueue(std::shared_ptr<platform::FileSystem> files, std::shared_ptr<LineReports> reports,
            platform::WidePathView first_file);
  // Ends.
  ~LineQueue();
  LineQueue(const LineQueue&) = delete;
  LineQueue& operator=(const LineQueue&) = delete;

  // Lines queue up until the workers are started; false when there are no threads to be had.
  bool Start(int priority, int second_priority);
  // No line is taken from here on, and none is begun: those that wait are discarded, and told.
  void Stop();
  // As Stop; also finishes the line that is being written and waits for the threads. One that did
  // not come back in time writes no more. Any number of times.
  void End();

  // Queues a line that stays where it is: none is moved over it, and none takes its place. False
  // after the end.
  bool Push(WriteRequest request);
  // Queues the line of a property's change; its left side has a "|". It takes the place of the line
  // of an earlier change with the same left side, for the same file, if only changes for that file
  // have been queued since. False after the end.
  bool PushChange(WriteRequest request);
  // Applies requests until none is left, or until one could not be read or finished: the others
  // then wait for the next push, or the next try. True once at least one was written completely.
  bool Drain();

 private:
  class Writer;

  const std::shared_ptr<Writer> writer_;
  std::optional<WorkerThread> thread_;
  std::optional<WorkerThread> second_;
};

}  // namespace valmere
