// The thread's end is the wrapper's end: the owner first tells the function to return, then
// destroys the wrapper, which gives the thread a moment and after that takes it away.
#include "driver/sync/worker_thread.h"

#include <cassert>
#include <utility>

namespace valmere {

WorkerThread::WorkerThread(std::function<void()> entry, int priority)
    : entry_(std::move(entry)), priority_(priority) {}

WorkerThread::~WorkerThread() {
  assert((!started_ || thread_id_.load() != platform::CurrentThreadId()) &&
         "a worker's wrapper is destroyed on its own thread");
  if (!thread_.WaitEnded(kEndWaitMilliseconds)) thread_.ForceEnd();
}

bool WorkerThread::Start() {
  if (started_) return false;
  started_ = thread_.Start(&WorkerThread::Run, this, priority_);
  return started_;
}

void WorkerThread::Run(void* self) {
  auto* const worker = static_cast<WorkerThread*>(self);
  worker->thread_id_ = platform::CurrentThreadId();
  worker->entry_();
}

}  // namespace valmere
