// A word of 32 flags that threads set, clear and wait on. A raised flag wakes only the threads that
// wait for it, and wakes them after the lock has been released, so that none of them runs into it.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "driver/sync/live_counters.h"
#include "driver/sync/lock.h"

namespace valmere {

// Purpose: threads wait for flags that other threads raise; a flag raised early is not lost.
// Owner: the object that waits on it; must outlive every call on it and every PendingWake from it.
// Threads: any thread may call anything.
// Errors: std::bad_alloc when it is made, and when a wait needs one more semaphore and the kernel
// has none; a lone waiter always has one.
// With auto-clear, a wait that ends because of its mask takes those flags down.
class EventFlags {
  struct Waiter;

 public:
  enum class AutoClear : bool { kNo, kYes };
  using Predicate = std::function<bool()>;

  // Waiters that Raise picked to be woken; they wake when this goes out of scope. Lets a caller
  // raise a flag under a lock of its own and wake the waiters once it has left that lock. A
  // picked waiter returns no sooner than this lets it, even when its time is up: drop it soon.
  class [[nodiscard]] PendingWake {
   public:
    PendingWake() = default;
    PendingWake(PendingWake&& other) noexcept;
    PendingWake& operator=(PendingWake&& other) noexcept;
    ~PendingWake();

   private:
    friend class EventFlags;
    explicit PendingWake(Waiter* first) : first_(first) {}
    Waiter* first_ = nullptr;
  };

  explicit EventFlags(AutoClear auto_clear);
  ~EventFlags();
  EventFlags(const EventFlags&) = delete;
  EventFlags& operator=(const EventFlags&) = delete;

  // Waits until a flag of `mask` is up; the whole word, or 0 after `milliseconds` of the monotonic
  // clock, never sooner. A flag that is up at the end counts.
  std::uint32_t WaitFor(std::uint32_t mask, std::uint32_t milliseconds);
  std::uint32_t Wait(std::uint32_t mask);
  // For a condition that one raised flag does not make true, as all of several flags.
  // Waits until `predicate` is true; it is asked at once and after every Set, on the waiting
  // thread, under this object's lock; so it takes no lock under which a thread raises flags. With
  // auto-clear the end of the wait clears every flag.
  std::uint32_t Wait(const Predicate& predicate);
  std::uint32_t WaitFor(const Predicate& predicate, std::uint32_t milliseconds);
  // The word if a flag of `mask` is up, else 0; never waits. Auto-clear applies.
  std::uint32_t Poll(std::uint32_t mask);

  // Set raises the flags of `mask` and wakes the threads that wait for them; Raise leaves the
  // waking to the caller. Clear takes the flags down and wakes no thread.
  void Set(std::uint32_t mask);
  PendingWake Raise(std::uint32_t mask);
  void Clear(std::uint32_t mask);
  // The word as it stands.
  std::uint32_t Get() const;

 private:
  // What a wait is for: a flag of the mask or, where there is a predicate, its truth. The mask is
  // also what auto-clear takes.
  struct Need {
    std::uint32_t mask;
    const Predicate* predicate;
  };
  struct Waiter {
    platform::Semaphore wake;
    Need need{};
    Waiter* next = nullptr;  // in the list that it is in: waiting, picked or idle
  };

  std::uint32_t Await(const Need& need, const std::uint32_t* milliseconds);
  bool Met(const Need& need) const REQUIRES(lock_);
  std::uint32_t Take(const Need& need) REQUIRES(lock_);
  bool Sleep(const Need& need, const platform::Ticks* deadline) REQUIRES(lock_);
  Waiter& Enlist(const Need& need) REQUIRES(lock_);
  bool Unlink(const Waiter& waiter) REQUIRES(lock_);

  LiveEventFlags live_;
  const AutoClear auto_clear_;
  mutable Lock lock_;
  std::uint32_t flags_ GUARDED_BY(lock_) = 0;
  Waiter* waiting_ GUARDED_BY(lock_) = nullptr;  // asleep and not yet picked, the newest first
  Waiter* idle_ GUARDED_BY(lock_) = &first_;     // kept for the waits to come
  Waiter first_ GUARDED_BY(lock_);
  std::vector<std::unique_ptr<Waiter>> more_ GUARDED_BY(lock_);  // all others that were ever needed
};

}  // namespace valmere
