// What the layers above need of the kernel: critical sections, semaphores, threads, clocks.
//
// No operating-system type appears here; each backend keeps its own inside the opaque storage and
// checks its size when it is compiled. Every object belongs to its maker, must not move, and must
// outlive all calls on it. Nothing here throws, except that making a lock or a semaphore throws
// std::bad_alloc when the kernel has no more.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/thread_annotations.h"

namespace valmere::platform {

// Time in units of 100 nanoseconds.
using Ticks = std::int64_t;
inline constexpr Ticks kTicksPerMillisecond = 10'000;

// A clock that only goes forward, from an arbitrary start; deadlines are counted on it.
Ticks MonotonicNow() noexcept;

// The calling thread's number, for log lines; unique among the threads that live.
std::uint32_t CurrentThreadId() noexcept;

// A critical section: mutual exclusion between threads; the thread that holds it may enter again
// and leaves as often as it entered.
class CAPABILITY("mutex") Lock {
 public:
  Lock();
  ~Lock();
  Lock(const Lock&) = delete;
  Lock& operator=(const Lock&) = delete;

  void Enter() noexcept ACQUIRE();
  // Takes the lock if no other thread holds it; never waits.
  bool TryEnter() noexcept TRY_ACQUIRE(true);
  void Leave() noexcept RELEASE();

 private:
  alignas(8) std::byte storage_[6 * sizeof(void*)];
};

// Holds a lock for the length of a scope.
class SCOPED_CAPABILITY ScopedLock {
 public:
  explicit ScopedLock(Lock& lock) ACQUIRE(lock) : lock_(lock) { lock_.Enter(); }
  ~ScopedLock() RELEASE() { lock_.Leave(); }
  ScopedLock(const ScopedLock&) = delete;
  ScopedLock& operator=(const ScopedLock&) = delete;

 private:
  Lock& lock_;
};

// A counting semaphore, 0 to kMaximum.
class Semaphore {
 public:
  static constexpr std::uint32_t kMaximum = 0x7fffffff;

  explicit Semaphore(std::uint32_t initial = 0);
  ~Semaphore();
  Semaphore(const Semaphore&) = delete;
  Semaphore& operator=(const Semaphore&) = delete;

  // Adds one, but never beyond the maximum, and wakes one waiter. The releasing thread is done with
  // the object once a waiter has been let through: a waiter may destroy the semaphore when its wait
  // returns.
  void Release() noexcept;
  // Takes one; waits without a limit.
  void Wait() noexcept;
  // Takes one, waiting until `deadline` on the monotonic clock; false when the time came first.
  bool WaitUntil(Ticks deadline) noexcept;

 private:
  alignas(8) std::byte storage_[4 * sizeof(void*)];
};

// One kernel thread. Start, WaitEnded, ForceEnd and LeaveBehind are called by one thread at a time,
// never by the thread itself.
class Thread {
 public:
  using Entry = void (*)(void* argument);

  // Worker threads run in this much stack. A message of 9,900 nested arrays needs 8 kB of it on
  // 32-bit ARM, no more than any other: neither reading nor releasing a value recurses. The rest is
  // for what the owner of a property does in its callbacks, and for the C library.
  static constexpr std::size_t kStackBytes = std::size_t{256} * 1024;

  Thread() noexcept = default;
  // The thread must have ended, by itself (WaitEnded) or by force, or have been left behind.
  ~Thread();
  Thread(const Thread&) = delete;
  Thread& operator=(const Thread&) = delete;

  // Starts `entry(argument)`, which must not throw. Priority 0 to 255, smaller is more urgent; a
  // backend without such a scale ignores it. False when the kernel gives no thread. Not while a
  // started thread has not been seen to end.
  bool Start(Entry entry, void* argument, int priority) noexcept;
  // True when the thread has ended or was never started; false after `milliseconds`.
  bool WaitEnded(std::uint32_t milliseconds) noexcept;
  // What a forced end came to.
  enum class ForcedEnd {
    kNotNow,    // nothing was done: it must not be ended where it is; another try may succeed
    kGone,      // the thread has been ended
    kHeldBack,  // it runs no more of its entry, but hangs in the kernel; what it uses must stay
  };
  // Ends the thread where it is, if it waits in a call of this layer and holds no Lock: its stack
  // is not unwound and may stay allocated, but no thread waits for what it held. Takes no longer
  // than a second.
  ForcedEnd ForceEnd() noexcept;
  // Gives the thread up: it goes on until its entry returns, whenever that is, and what the entry
  // uses must stay. The code that it runs is not unloaded.
  void LeaveBehind() noexcept;

 private:
  struct State;
  State* state_ = nullptr;
};

}  // namespace valmere::platform
