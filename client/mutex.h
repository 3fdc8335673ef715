// A lock that clang's thread-safety analysis checks: it knows nothing of the standard library's.
// Internal to the library and to the host.
#pragma once

#include <condition_variable>
#include <mutex>

#include "client/deadline.h"
#include "platform/thread_annotations.h"

namespace valmere::client {

// Purpose: guards the state that names it in GUARDED_BY. Taken by a MutexLock alone.
// Owner: the object whose state it guards.
// Threads: any; not twice by one thread.
// Errors: none.
class CAPABILITY("mutex") Mutex {
 public:
  Mutex() = default;
  Mutex(const Mutex&) = delete;
  Mutex& operator=(const Mutex&) = delete;

 private:
  friend class MutexLock;
  std::mutex mutex_;
};

// Purpose: holds a mutex for as long as it lives, except while it waits or after Unlock.
// Owner: the function that locks; it is a local variable.
// Threads: the one that made it.
// Errors: none.
class SCOPED_CAPABILITY MutexLock {
 public:
  explicit MutexLock(Mutex& mutex) ACQUIRE(mutex) : hold_(mutex.mutex_) {}
  ~MutexLock() RELEASE() {}
  MutexLock(const MutexLock&) = delete;
  MutexLock& operator=(const MutexLock&) = delete;

  void Unlock() RELEASE() { hold_.unlock(); }

  // Waits until `condition` holds. It is asked with the mutex held, at once and after each
  // notification of `changed`.
  template <class Condition>
  void Wait(std::condition_variable& changed, Condition condition) {
    changed.wait(hold_, condition);
  }
  // The same until the deadline; false when it has passed and the condition still does not hold.
  template <class Condition>
  bool WaitUntil(std::condition_variable& changed, Deadline deadline, Condition condition) {
    if (!deadline.never()) return changed.wait_until(hold_, deadline.when(), condition);
    changed.wait(hold_, condition);
    return true;
  }

 private:
  std::unique_lock<std::mutex> hold_;
};

}  // namespace valmere::client
