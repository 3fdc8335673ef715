// Lines on their way to property files.
#pragma once

#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string_view>
#include <utility>

#include "driver/sync/event_flags.h"
#include "driver/sync/lock.h"
#include "driver/sync/worker_thread.h"
#include "persist/property_file_writer.h"
#include "platform/files.h"

namespace valmere {

// Purpose: takes write requests and applies them one by one, in order, on a background thread.
// Owner: the persistence component.
// Threads: any thread pushes, under a short lock; whoever pushes waits for no file.
// Errors: a rewrite that fails is told to the reporter, once for each file and cause. What is still
// queued at destruction is discarded.
class LineQueue {
 public:
  using Reporter = std::function<void(const platform::WidePath& path, RewriteResult cause)>;

  LineQueue(std::shared_ptr<platform::FileSystem> files, Reporter report);
  ~LineQueue();
  LineQueue(const LineQueue&) = delete;
  LineQueue& operator=(const LineQueue&) = delete;

  // Lines queue up until the worker is started; false when there is no thread to be had.
  bool Start(int priority);
  void Push(WriteRequest request) EXCLUDES(lock_);
  // Applies requests until none is left, or until one could not be read or finished: the others
  // then wait for the next push. True once at least one was written completely.
  bool Drain() EXCLUDES(lock_);
  // What `read` returns. No rewrite is under way while it reads: it finds each file as one rewrite
  // left it, and not cut off in the middle of the next.
  template <class Read>
  auto BetweenRewrites(Read read) EXCLUDES(file_lock_) {
    const ScopedLock hold(file_lock_);
    return read();
  }

 private:
  void Run();
  std::optional<WriteRequest> TakeFirst() EXCLUDES(lock_);
  RewriteResult Rewrite(const WriteRequest& request) EXCLUDES(file_lock_);
  void Report(const platform::WidePath& path, RewriteResult result);

  const std::shared_ptr<platform::FileSystem> files_;
  const Reporter report_;
  Lock file_lock_;  // held around each rewrite
  Lock lock_;
  std::deque<WriteRequest> requests_ GUARDED_BY(lock_);
  std::set<std::pair<platform::WidePath, RewriteResult>> reported_;  // the draining thread's own
  EventFlags signal_{EventFlags::AutoClear::kNo};
  std::optional<WorkerThread> thread_;  // the last member: it ends before what it uses goes
};

}  // namespace valmere
