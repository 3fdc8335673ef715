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

// Purpose: is told what happens to lines on their way.
// Owner: shared by the line queue and its threads.
// Threads: the queue's two, and the one that ends it; one call at a time from each.
// Errors: std::bad_alloc costs the report.
class LineReports {
 public:
  virtual ~LineReports() = default;
  // The first line of its file that could not be written: it waits, and so do all later lines of
  // that file.
  virtual void Waits(platform::WidePathView path, RewriteResult cause) = 0;
  // All `lines` lines that waited for the file have been written.
  virtual void WrittenAgain(platform::WidePathView path, std::size_t lines) = 0;
  // Lines that are not tried again.
  virtual void GivenUp(platform::WidePathView path, std::size_t lines, RewriteResult cause) = 0;
  // A line for which there was no memory.
  virtual void Lost() = 0;
  // What was written can't be synced; then: it can again.
  virtual void NotSynced() = 0;
  virtual void Synced() = 0;
  // The queue ends while these lines wait; their left sides.
  virtual void LeftBehind(const std::vector<std::string>& lines) = 0;
};

// Purpose: takes write requests and applies them one by one, in order, on a background thread, the
// line writer. A change whose line waits already takes that line's place, where no file shows the
// difference: the number of lines that wait is bounded by the number of properties. A line that
// could not be written waits, with those for the same file behind it, and a thread of its own, the
// second line writer, tries it again; that one also syncs what was written, many lines at once and
// at most a second later.
// Owner: the persistence component. The line writers hold all that they touch, and so may outlive
// it.
// Threads: any thread pushes, under a short lock, and never waits for a file. Start, Stop and End
// on the owner's.
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

  // Lines queue up until the line writers are started; false when the system gives no threads.
  bool Start(int priority, int second_priority);
  // From here on no line is taken and no write begins; lines that wait are discarded and reported.
  void Stop();
  // As Stop; also finishes the line that is being written and waits for the line writers. One that
  // did not return in time writes no more. May be called again.
  void End();

  // Queues a line that keeps its position: no other is moved past it or takes its place. False
  // after the end.
  bool Push(WriteRequest request);
  // Queues the line of a property's change; its left side has a "|". It takes the place of the line
  // of an earlier change with the same left side, for the same file, if only changes for that file
  // have been queued since. False after the end.
  bool PushChange(WriteRequest request);
  // Applies requests until the queue is empty, or until one could not be read or finished: the
  // others then wait for the next push, or the next try. True when at least one was written
  // completely.
  bool Drain();

 private:
  class Writer;

  const std::shared_ptr<Writer> writer_;
  std::optional<WorkerThread> line_writer_;
  std::optional<WorkerThread> second_line_writer_;
};

}  // namespace valmere
