// The state of a worker thread, for the code that has to end it by force.
//
// A thread that is ended at an arbitrary place never releases what it holds: a Lock, or a lock of
// the C library that this code can't see. So it may be ended only while it waits in the kernel, in
// a call of this layer, and holds no Lock. The thread itself marks such waits, and one
// compare-and-exchange decides whether it goes on or has been ended:
//
//   running ⇄ waiting → forced       ended by force: it never comes back from its wait
//   running, waiting → left behind   it goes on by itself, and no thread waits for it any more
//   running → ended
#pragma once

#include <atomic>
#include <cstdint>

namespace valmere::platform {

// Purpose: decides between a worker and its owner how the worker ends.
// Owner: the state of the thread, which the last of the two frees.
// Threads: the worker calls the first group, its owner the second.
// Errors: none.
class ThreadMark {
 public:
  void TookLock() { ++locks_; }
  void LeftLock() { --locks_; }
  // False when it must not be ended here; EndWait is not called then.
  bool BeginWait() { return locks_ == 0 && Change(Standing::kRunning, Standing::kWaiting); }
  // False when it was ended meanwhile: it must not go on.
  bool EndWait() {
    return Change(Standing::kWaiting, Standing::kRunning) || standing_ != Standing::kForced;
  }
  // The last call of the worker. False when it was left behind: then the worker frees the state.
  bool End() { return standing_.exchange(Standing::kEnded) != Standing::kLeftBehind; }

  // True when the worker waits; from here on it runs no more of our code.
  bool Force() { return Change(Standing::kWaiting, Standing::kForced); }
  // False when it has ended.
  bool LeaveBehind() {
    return Change(Standing::kRunning, Standing::kLeftBehind) ||
           Change(Standing::kWaiting, Standing::kLeftBehind) || LeaveBehindAgain();
  }
  bool forced() const { return standing_ == Standing::kForced; }

 private:
  enum class Standing { kRunning, kWaiting, kForced, kLeftBehind, kEnded };

  bool Change(Standing from, Standing to) { return standing_.compare_exchange_strong(from, to); }
  // It changed from one state to the other between the two tries.
  bool LeaveBehindAgain() { return standing_ != Standing::kEnded && LeaveBehind(); }

  std::uint32_t locks_ = 0;  // that the worker holds; used by the worker alone
  std::atomic<Standing> standing_{Standing::kRunning};
};

// Purpose: a scope in which a worker may be ended by force: one call of the kernel that may wait.
//   Nothing in the scope may allocate or take a lock.
// Owner, threads: the calling thread, for the length of the call.
// Errors: none. A thread that was ended meanwhile does not leave the scope.
class MarkedWait {
 public:
  // Null for a thread that this layer has not started.
  explicit MarkedWait(ThreadMark* mark) : mark_(mark) {
    if (mark_ != nullptr && !mark_->BeginWait()) mark_ = nullptr;
  }
  ~MarkedWait() {
    if (mark_ != nullptr && !mark_->EndWait()) StayForEver();
  }
  MarkedWait(const MarkedWait&) = delete;
  MarkedWait& operator=(const MarkedWait&) = delete;

 private:
  // Of the backend. The signal or call that ends the thread will reach it here.
  [[noreturn]] static void StayForEver();

  ThreadMark* mark_;
};

}  // namespace valmere::platform
