// The thread's end is the wrapper's end: the owner first signals the function to return, then ends
// the wrapper, which gives the thread a moment and after that ends it by force, or leaves it behind
// where force could harm more than the thread. What the function owns lies in a body of its own,
// which the last of the two to need it destroys.
#include "driver/sync/worker_thread.h"

#include <atomic>
#include <cassert>
#include <utility>

namespace valmere {
namespace {

// After the time is up: how long a worker that runs may take to come to a place where it can be
// ended by force.
constexpr platform::Ticks kForceTime = 50 * platform::kTicksPerMillisecond;

// What is left until then, in whole milliseconds.
std::uint32_t MillisecondsUntil(platform::Ticks deadline) {
  const platform::Ticks left = deadline - platform::MonotonicNow();
  return left > 0 ? static_cast<std::uint32_t>(left / platform::kTicksPerMillisecond) : 0;
}

}  // namespace

struct WorkerThread::Body {
  explicit Body(std::function<void()> function) : entry(std::move(function)) {}

  // The last of the two gives it back.
  void Release() {
    if (holders.fetch_sub(1) == 1) delete this;
  }

  const LiveWorkerThreads live;
  const std::function<void()> entry;
  std::atomic<std::uint32_t> thread_id{0};  // of the running thread; 0 before it runs
  std::atomic<int> holders{1};
};

WorkerThread::WorkerThread(std::function<void()> entry, int priority)
    : priority_(priority), body_(new Body(std::move(entry))) {}

WorkerThread::~WorkerThread() {
  End();
  body_->Release();
}

bool WorkerThread::Start() {
  if (started_ || ended_) return false;
  body_->holders = 2;
  started_ = thread_.Start(&WorkerThread::Run, body_, priority_);
  if (!started_) body_->holders = 1;
  return started_;
}

void WorkerThread::Run(void* argument) {
  Body* const body = static_cast<Body*>(argument);
  body->thread_id = platform::CurrentThreadId();
  body->entry();
  body->Release();
}

platform::Ticks WorkerThread::TimeToEnd() {
  return platform::MonotonicNow() + kEndWaitMilliseconds * platform::kTicksPerMillisecond;
}

WorkerThread::Ending WorkerThread::EndBy(platform::Ticks deadline) noexcept {
  assert((!started_ || body_->thread_id != platform::CurrentThreadId()) &&
         "a worker is ended on its own thread");
  const Ending ending = EndThread(deadline);
  started_ = false;
  ended_ = true;
  return ending;
}

WorkerThread::Ending WorkerThread::EndThread(platform::Ticks deadline) noexcept {
  using ForcedEnd = platform::Thread::ForcedEnd;
  if (thread_.WaitEnded(MillisecondsUntil(deadline))) return Ending::kReturned;
  while (!thread_.WaitEnded(1)) {
    const ForcedEnd forced = thread_.ForceEnd();
    if (forced == ForcedEnd::kGone) {
      body_->Release();  // the thread itself does not come to it
      return Ending::kForced;
    }
    if (forced == ForcedEnd::kHeldBack) return Ending::kLeftBehind;
    if (platform::MonotonicNow() >= deadline + kForceTime) {
      thread_.LeaveBehind();
      return Ending::kLeftBehind;
    }
  }
  return Ending::kReturned;
}

}  // namespace valmere
