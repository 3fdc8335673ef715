// The worker takes all queued jobs at once and runs them without the lock, so that a job may push
// and its destructor may do anything that a job may. Two lists change places, so that a queue in
// steady use allocates nothing of its own.
#include "driver/sync/task_queue.h"

#include <cstdint>
#include <utility>
#include <vector>

#include "driver/sync/event_flags.h"
#include "driver/sync/lock.h"

namespace valmere {
namespace {

constexpr std::uint32_t kSignalled = 1;

}  // namespace

// All that the worker touches.
class TaskQueue::Jobs {
 public:
  void Push(Job job) EXCLUDES(lock_);
  // Runs jobs until the queue has ended and none is left.
  void Work() EXCLUDES(lock_);
  // Has Work return when no job is left; true the first time.
  bool Stop() EXCLUDES(lock_);
  // Waits until Work returns, for kJobsEndMilliseconds at most.
  void AwaitDone() { done_.WaitFor(kSignalled, kJobsEndMilliseconds); }

 private:
  bool Take(std::vector<Job>& batch) EXCLUDES(lock_);

  Lock lock_;
  bool running_ GUARDED_BY(lock_) = true;
  bool done_with_all_ GUARDED_BY(lock_) = false;
  std::vector<Job> jobs_ GUARDED_BY(lock_);
  EventFlags work_{EventFlags::AutoClear::kYes};
  EventFlags done_{EventFlags::AutoClear::kYes};
};

TaskQueue::TaskQueue(int priority) : jobs_(std::make_shared<Jobs>()) {
  worker_.emplace([jobs = jobs_] { jobs->Work(); }, priority);
  worker_->Start();
}

TaskQueue::~TaskQueue() {
  End();
}

void TaskQueue::Push(Job job) {
  jobs_->Push(std::move(job));
}

void TaskQueue::Inlet::Push(Job job) const {
  jobs_->Push(std::move(job));
}

void TaskQueue::End() {
  if (!jobs_->Stop()) return;
  if (!running()) jobs_->Work();
  // The jobs get the time that they take; only then does the worker's own time to end begin.
  jobs_->AwaitDone();
  worker_.reset();
}

void TaskQueue::Jobs::Push(Job job) {
  {
    const ScopedLock hold(lock_);
    if (done_with_all_) return;
    jobs_.push_back(std::move(job));
  }
  work_.Set(kSignalled);
}

bool TaskQueue::Jobs::Stop() {
  {
    const ScopedLock hold(lock_);
    if (!running_) return false;
    running_ = false;
  }
  work_.Set(kSignalled);
  return true;
}

void TaskQueue::Jobs::Work() {
  std::vector<Job> batch;
  while (Take(batch)) {
    for (Job& job : batch)
      std::exchange(job, nullptr)();
    batch.clear();
  }
  done_.Set(kSignalled);
}

// Waits for jobs; false when the queue has ended and none are left.
bool TaskQueue::Jobs::Take(std::vector<Job>& batch) {
  for (;;) {
    {
      const ScopedLock hold(lock_);
      if (!jobs_.empty()) {
        batch.swap(jobs_);
        return true;
      }
      done_with_all_ = !running_;
      if (done_with_all_) return false;
    }
    work_.Wait(kSignalled);
  }
}

}  // namespace valmere
