// The worker takes all queued jobs at once and runs them without the lock, so that a job may push
// and its destruction may do anything a job may. Two lists change places, so that a queue in steady
// use allocates nothing of its own.
#include "driver/sync/task_queue.h"

#include <cstdint>
#include <utility>

namespace valmere {
namespace {

constexpr std::uint32_t kSignalled = 1;

}  // namespace

TaskQueue::TaskQueue(int priority) : worker_([this] { Work(); }, priority) {
  worker_.Start();
}

TaskQueue::~TaskQueue() {
  {
    ScopedLock hold(lock_);
    running_ = false;
  }
  if (worker_.started()) {
    work_.Set(kSignalled);
  } else {
    Work();
  }
  // The jobs get the time that they take; only then does the worker's own time to end begin.
  done_.Wait(kSignalled);
}

void TaskQueue::Push(Job job) {
  {
    ScopedLock hold(lock_);
    jobs_.push_back(std::move(job));
  }
  work_.Set(kSignalled);
}

void TaskQueue::Work() {
  std::vector<Job> batch;
  while (TakeJobs(batch)) {
    for (Job& job : batch)
      std::exchange(job, nullptr)();
    batch.clear();
  }
  done_.Set(kSignalled);
}

// Waits for jobs; false when the queue has ended and none are left.
bool TaskQueue::TakeJobs(std::vector<Job>& batch) {
  for (;;) {
    {
      ScopedLock hold(lock_);
      if (!jobs_.empty()) {
        batch.swap(jobs_);
        return true;
      }
      if (!running_) return false;
    }
    work_.Wait(kSignalled);
  }
}

}  // namespace valmere
