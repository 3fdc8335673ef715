// Every sleeping thread is a node in an intrusive list, with a semaphore of its own. Raising flags
// takes the nodes whose need may now be met out of the list, under the lock, and releases their
// semaphores after it.
//
// What always holds:
// (1) A node is in one place at a time: in idle_, in waiting_, in the chain of one PendingWake, or
//     with its own thread on the way from there back to idle_.
// (2) Nodes enter and leave waiting_ and idle_ under lock_ alone.
// (3) A thread tests its need and enters waiting_ within one hold of lock_, and a raise sets the
//     flags and picks nodes within one hold: so no raise falls between a test and a sleep (Await,
//     Raise).
// (4) A node that was picked gets exactly one release, after the lock: from the PendingWake that
//     holds it (~PendingWake). One that its own thread took out after its time gets none (Unlink).
// (5) A thread leaves Sleep only after it took that release or took its node out by itself. So the
//     count of an idle node's semaphore is 0, and the last release of a chain is the last that the
//     waking thread touches of the object.
// (6) A picked node is a hint: the woken thread tests its need again, under lock_, and sleeps again
//     where another thread was quicker (Await).
// (7) Auto-clear takes the flags down within the hold of lock_ that found the need met, so that a
//     flag that is raised once ends at most one wait (Take).
// (8) Nodes stay with the object; there are as many as threads ever waited at one time. The first
//     is a member: a lone waiter allocates nothing (Enlist).
#include "driver/sync/event_flags.h"

#include <utility>

namespace valmere {

EventFlags::PendingWake::PendingWake(PendingWake&& other) noexcept
    : first_(std::exchange(other.first_, nullptr)) {}

EventFlags::PendingWake& EventFlags::PendingWake::operator=(PendingWake&& other) noexcept {
  PendingWake replaced(std::move(*this));
  first_ = std::exchange(other.first_, nullptr);
  return *this;
}

EventFlags::PendingWake::~PendingWake() {
  while (first_ != nullptr) {
    // A released waiter uses its node again at once: read the next one first.
    Waiter& waiter = *std::exchange(first_, first_->next);
    waiter.wake.Release();
  }
}

EventFlags::EventFlags(AutoClear auto_clear) : auto_clear_(auto_clear) {}

// A node still in the list is that of a thread which was ended by force in its wait.
EventFlags::~EventFlags() = default;

std::uint32_t EventFlags::WaitFor(std::uint32_t mask, std::uint32_t milliseconds) {
  return Await({mask, nullptr}, &milliseconds);
}

std::uint32_t EventFlags::Wait(std::uint32_t mask) {
  return Await({mask, nullptr}, nullptr);
}

std::uint32_t EventFlags::Wait(const Predicate& predicate) {
  return Await({~0u, &predicate}, nullptr);
}

std::uint32_t EventFlags::WaitFor(const Predicate& predicate, std::uint32_t milliseconds) {
  return Await({~0u, &predicate}, &milliseconds);
}

std::uint32_t EventFlags::Poll(std::uint32_t mask) {
  const Need need{mask, nullptr};
  ScopedLock hold(lock_);
  return Met(need) ? Take(need) : 0;
}

void EventFlags::Set(std::uint32_t mask) {
  const PendingWake wake = Raise(mask);
}

EventFlags::PendingWake EventFlags::Raise(std::uint32_t mask) {
  ScopedLock hold(lock_);
  flags_ |= mask;
  Waiter* picked = nullptr;
  for (Waiter** link = &waiting_; *link != nullptr;) {
    Waiter* const waiter = *link;
    // A predicate is for its own thread to ask.
    if (waiter->need.predicate == nullptr && !Met(waiter->need)) {
      link = &waiter->next;
      continue;
    }
    *link = waiter->next;
    waiter->next = std::exchange(picked, waiter);  // turns the order: the oldest is woken first
  }
  return PendingWake(picked);
}

void EventFlags::Clear(std::uint32_t mask) {
  ScopedLock hold(lock_);
  flags_ &= ~mask;
}

std::uint32_t EventFlags::Get() const {
  ScopedLock hold(lock_);
  return flags_;
}

// Without `milliseconds` there is no time-out.
std::uint32_t EventFlags::Await(const Need& need, const std::uint32_t* milliseconds) {
  ScopedLock hold(lock_);
  if (Met(need)) return Take(need);
  platform::Ticks deadline = 0;
  if (milliseconds != nullptr)
    deadline = platform::MonotonicNow() + *milliseconds * platform::kTicksPerMillisecond;
  for (;;) {
    const bool woken = Sleep(need, milliseconds != nullptr ? &deadline : nullptr);
    if (Met(need)) return Take(need);
    if (!woken) return 0;
  }
}

bool EventFlags::Met(const Need& need) const {
  return need.predicate != nullptr ? (*need.predicate)() : (flags_ & need.mask) != 0;
}

std::uint32_t EventFlags::Take(const Need& need) {
  const std::uint32_t result = flags_;
  if (auto_clear_ == AutoClear::kYes) flags_ &= ~need.mask;
  return result;
}

// Leaves the lock until the need may be met or the deadline has passed; false in the latter case.
bool EventFlags::Sleep(const Need& need, const platform::Ticks* deadline) {
  Waiter& waiter = Enlist(need);
  lock_.Leave();
  const bool woken =
      deadline == nullptr ? (waiter.wake.Wait(), true) : waiter.wake.WaitUntil(*deadline);
  lock_.Enter();
  if (!woken && !Unlink(waiter)) {
    // Picked at the last moment. The release comes as soon as the picking thread has left its
    // locks, of which this may be one.
    lock_.Leave();
    waiter.wake.Wait();
    lock_.Enter();
  }
  waiter.next = std::exchange(idle_, &waiter);
  return woken;
}

EventFlags::Waiter& EventFlags::Enlist(const Need& need) {
  if (idle_ == nullptr) {
    more_.push_back(std::make_unique<Waiter>());
    idle_ = more_.back().get();
  }
  Waiter& waiter = *idle_;
  idle_ = waiter.next;
  waiter.need = need;
  waiter.next = std::exchange(waiting_, &waiter);
  return waiter;
}

// False when the waiter is no longer in the list, because it was picked to be woken.
bool EventFlags::Unlink(const Waiter& waiter) {
  Waiter** link = &waiting_;
  while (*link != nullptr && *link != &waiter)
    link = &(*link)->next;
  if (*link == nullptr) return false;
  *link = waiter.next;
  return true;
}

}  // namespace valmere
