// A queue of jobs with one worker of its own, for work that must not run where it was found.
#pragma once

#include <functional>
#include <vector>

#include "driver/sync/event_flags.h"
#include "driver/sync/lock.h"
#include "driver/sync/worker_thread.h"

namespace valmere {

// Purpose: runs jobs one after another on a background thread.
// Owner: shared by the service and the manager of the streams, whose threads push jobs.
// Threads: Push from any thread, from within a job too.
// Errors: a job must not throw. Jobs still queued at destruction are run before it returns; where
// the kernel gave no thread, all of them run there.
class TaskQueue {
 public:
  using Job = std::function<void()>;

  // Priority 0 to 255, smaller is more urgent.
  explicit TaskQueue(int priority);
  ~TaskQueue();
  TaskQueue(const TaskQueue&) = delete;
  TaskQueue& operator=(const TaskQueue&) = delete;

  // False when the kernel gave no thread.
  bool running() const { return worker_.started(); }
  // Jobs run in the order in which they are pushed; each is destroyed when it has run.
  void Push(Job job);

 private:
  void Work();
  bool TakeJobs(std::vector<Job>& batch);

  Lock lock_;
  bool running_ GUARDED_BY(lock_) = true;
  std::vector<Job> jobs_ GUARDED_BY(lock_);
  EventFlags work_{EventFlags::AutoClear::kYes};
  EventFlags done_{EventFlags::AutoClear::kYes};
  WorkerThread worker_;
};

}  // namespace valmere
