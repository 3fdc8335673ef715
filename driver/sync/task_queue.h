// A queue of jobs with one worker of its own, for work that must not run where it was found.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <utility>

#include "driver/sync/worker_thread.h"

namespace valmere {

// Purpose: runs jobs one after another on a background thread.
// Owner: shared by the service, which ends it, and the manager of the streams, whose threads push
// jobs. Its thread holds all that it touches, and so may outlive it.
// Threads: Push from any thread, from within a job too; End on the owner's.
// Errors: a job must not throw. Jobs still queued at the end are run before that returns; where the
// kernel gave no thread, all of them run there. Behind a job that does not return they are not
// waited for.
class TaskQueue {
 public:
  using Job = std::function<void()>;

  // How long the end waits for jobs to be run.
  static constexpr std::uint32_t kJobsEndMilliseconds = 2'000;

  // Priority 0 to 255, smaller is more urgent.
  explicit TaskQueue(int priority);
  // Ends.
  ~TaskQueue();
  TaskQueue(const TaskQueue&) = delete;
  TaskQueue& operator=(const TaskQueue&) = delete;

  // False when the kernel gave no thread.
  bool running() const { return worker_ && worker_->started(); }
  // Jobs run in the order in which they are pushed; each is destroyed when it has run. After the
  // last one a job is dropped.
  void Push(Job job);
  // Runs what is queued, and what that pushes, and ends the worker. After kJobsEndMilliseconds the
  // worker is ended as one whose function does not return. Any number of times.
  void End();

  // For threads that may outlive the queue: it shares the list of jobs and nothing else.
  class Inlet;
  Inlet inlet() const;

 private:
  class Jobs;

  const std::shared_ptr<Jobs> jobs_;
  std::optional<WorkerThread> worker_;
};

// Purpose: pushes jobs as the queue does; after the queue's last job they are dropped.
// Owner: any; copies lead to the same queue.
// Threads: any.
// Errors: as the queue's.
class TaskQueue::Inlet {
 public:
  void Push(Job job) const;

 private:
  friend class TaskQueue;
  explicit Inlet(std::shared_ptr<Jobs> jobs) : jobs_(std::move(jobs)) {}

  std::shared_ptr<Jobs> jobs_;
};

inline TaskQueue::Inlet TaskQueue::inlet() const {
  return Inlet(jobs_);
}

}  // namespace valmere
