// A lock that is waited for with a deadline. Internal to the library.
#pragma once

#include <condition_variable>

#include "client/deadline.h"
#include "client/mutex.h"

namespace valmere::client {

// Purpose: lets one thread after the other do what takes its time. Unlike a Mutex it is waited for
// with a deadline and may be held across calls that block.
// Owner: what is used by one thread after the other.
// Threads: any; not twice by one thread.
// Errors: none.
class TimedMutex {
 private:
  friend class TimedLock;

  bool Lock(Deadline deadline) {
    MutexLock hold(lock_);
    if (!hold.WaitUntil(unlocked_, deadline, [this]() REQUIRES(lock_) { return !locked_; }))
      return false;
    locked_ = true;
    return true;
  }
  void Unlock() {
    {
      const MutexLock hold(lock_);
      locked_ = false;
    }
    unlocked_.notify_one();
  }

  Mutex lock_;
  std::condition_variable unlocked_;
  bool locked_ GUARDED_BY(lock_) = false;
};

// Purpose: holds a TimedMutex for as long as it lives, if it got it in time.
// Owner: the function that locks; it is a local variable.
// Threads: the one that made it.
// Errors: held() says whether the deadline passed first.
class TimedLock {
 public:
  TimedLock(TimedMutex& mutex, Deadline deadline) : mutex_(mutex), held_(mutex.Lock(deadline)) {}
  ~TimedLock() {
    if (held_) mutex_.Unlock();
  }
  TimedLock(const TimedLock&) = delete;
  TimedLock& operator=(const TimedLock&) = delete;

  bool held() const { return held_; }

 private:
  TimedMutex& mutex_;
  const bool held_;
};

}  // namespace valmere::client
