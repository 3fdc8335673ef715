// The one lock of the process under which messages are parsed, and their values written.
#pragma once

#include <atomic>

#include "driver/sync/lock.h"

namespace valmere {

// Purpose: one message at a time; but a long one lets those in between who wait, so that nobody waits
// for all of it.
// Owner: the process.
// Threads: any. What the publishing thread renders shares nothing with it, nor do replies.
// Errors: none.
class CAPABILITY("mutex") ParsingLock {
 public:
  ParsingLock() = default;
  ParsingLock(const ParsingLock&) = delete;
  ParsingLock& operator=(const ParsingLock&) = delete;

  void Enter() noexcept ACQUIRE();
  // Takes the lock if no other thread holds it; never waits.
  bool TryEnter() noexcept TRY_ACQUIRE(true) { return work_.TryEnter(); }
  void Leave() noexcept RELEASE() { work_.Leave(); }
  // Whether somebody waits for it, at the gate already.
  bool awaited() const noexcept { return awaited_.load(std::memory_order_relaxed); }
  // By who holds it, once: where somebody waits, returns when he has had the lock.
  void LetNextIn() noexcept REQUIRES(this);

 private:
  void WaitAtTheGate() noexcept;

  // Who waits does so with the gate held. Who lets go in between has to pass the gate to come back,
  // and so comes behind who waits.
  Lock gate_;
  Lock work_;
  std::atomic<bool> awaited_{false};
};

ParsingLock& ParserLock();

// Holds the parser lock for the length of a scope.
class SCOPED_CAPABILITY ScopedParsing {
 public:
  ScopedParsing() ACQUIRE(ParserLock()) { ParserLock().Enter(); }
  ~ScopedParsing() RELEASE() { ParserLock().Leave(); }
  ScopedParsing(const ScopedParsing&) = delete;
  ScopedParsing& operator=(const ScopedParsing&) = delete;
};

}  // namespace valmere
