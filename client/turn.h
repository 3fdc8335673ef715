// Waiting with a deadline. Internal to the library.
#pragma once

#include <condition_variable>
#include <mutex>

#include "client/deadline.h"

namespace valmere::client {

// Waits until `condition` holds; false when the deadline passed before.
template <class Condition>
bool WaitFor(std::condition_variable& changed, std::unique_lock<std::mutex>& hold,
             Deadline deadline, Condition condition) {
  if (!deadline.never()) return changed.wait_until(hold, deadline.when(), condition);
  changed.wait(hold, condition);
  return true;
}

// Purpose: lets one thread after the other do what takes its time. Unlike a mutex it is waited for
// with a deadline and may be held across calls that block.
// Owner: what is shared in turns.
// Threads: any; not twice by one thread.
class Turn {
 public:
  // Holds a turn for as long as it lives, if it got one.
  class Hold {
   public:
    Hold(Turn& turn, Deadline deadline) : turn_(turn), taken_(turn.Take(deadline)) {}
    ~Hold() {
      if (taken_) turn_.Give();
    }
    Hold(const Hold&) = delete;
    Hold& operator=(const Hold&) = delete;

    bool taken() const { return taken_; }

   private:
    Turn& turn_;
    const bool taken_;
  };

 private:
  bool Take(Deadline deadline) {
    std::unique_lock hold(lock_);
    if (!WaitFor(given_, hold, deadline, [this] { return !taken_; })) return false;
    taken_ = true;
    return true;
  }
  void Give() {
    {
      const std::lock_guard hold(lock_);
      taken_ = false;
    }
    given_.notify_one();
  }

  std::mutex lock_;
  std::condition_variable given_;
  bool taken_ = false;  // guarded by lock_
};

}  // namespace valmere::client
