// The one lock of the process under which messages are parsed, and their values written.
#pragma once

#include <atomic>

#include "driver/sync/lock.h"

namespace valmere {

// Purpose: one message is parsed at a time; but the parse of a long one lets waiting threads go
// first in between, so that no thread waits for all of it.
// Owner: the process.
// Threads: any. The publishing thread, and threads that render replies, do not take it.
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
  // Whether a thread waits for it and holds the gate.
  bool awaited() const noexcept { return awaited_.load(std::memory_order_relaxed); }
  // Called by the holder, which entered once. If a thread waits, this returns after that thread has
  // had the lock.
  void LetNextIn() noexcept REQUIRES(this);

 private:
  void WaitAtTheGate() noexcept;

  // A thread that waits for the lock holds the gate. A holder that lets another in has to pass the
  // gate to come back, and so comes behind the thread that waits.
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
