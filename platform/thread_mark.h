// Where a worker stands, for whoever has to end it by force.
//
// A thread that is ended where it stands takes with it what it holds: a lock of ours, or one of the
// C library's that no one here can see. So it may be ended in one place alone: while it waits in the
// kernel, in a call of this layer, and holds no Lock. The thread itself says when that is, and one
// compare-and-exchange settles whether it goes on or has been ended:
//
//   running ⇄ waiting → forced       ended by force: it never comes back from its wait
//   running, waiting → left behind   it goes on by itself, and nobody waits for it any more
//   running → ended
#pragma once

#include <atomic>
#include <cstdint>

namespace valmere::platform {

// Purpose: settles between a worker and its owner how the worker ends.
// Owner: the state of the thread, which whoever ends last gives back.
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
  // The last thing. False when it was left behind: nobody else gives its state back.
  bool End() { return standing_.exchange(Standing::kEnded) != Standing::kLeftBehind; }

  // True when the worker waits and from here on runs no more of our code.
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
  // It went from one to the other between the two looks.
  bool LeaveBehindAgain() { return standing_ != Standing::kEnded && LeaveBehind(); }

  std::uint32_t locks_ = 0;  // that the worker holds; its own
  std::atomic<Standing> standing_{Standing::kRunning};
};

// Purpose: holds the place at which a worker may be ended by force: one call of the kernel that may
//   wait. Nothing that allocates or takes a lock belongs into its scope.
// Owner, threads: the calling thread, for the length of the call.
// Errors: none. A thread that was ended meanwhile does not come out of it.
class MarkedWait {
 public:
  // Null for a thread that is none of ours.
  explicit MarkedWait(ThreadMark* mark) : mark_(mark) {
    if (mark_ != nullptr && !mark_->BeginWait()) mark_ = nullptr;
  }
  ~MarkedWait() {
    if (mark_ != nullptr && !mark_->EndWait()) StayForEver();
  }
  MarkedWait(const MarkedWait&) = delete;
  MarkedWait& operator=(const MarkedWait&) = delete;

 private:
  // The backend's. What ends the thread is on its way.
  [[noreturn]] static void StayForEver();

  ThreadMark* mark_;
};

}  // namespace valmere::platform
