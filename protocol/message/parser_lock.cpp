// A lock alone is not enough: a thread that releases it and asks again has it back before the
// waiting one is awake.
#include "protocol/message/parser_lock.h"

namespace valmere {

ParsingLock& ParserLock() {
  static ParsingLock lock;
  return lock;
}

void ParsingLock::Enter() noexcept NO_THREAD_SAFETY_ANALYSIS {
  if (!work_.TryEnter()) WaitAtTheGate();
}

void ParsingLock::LetNextIn() noexcept NO_THREAD_SAFETY_ANALYSIS {
  if (!awaited()) return;
  work_.Leave();
  WaitAtTheGate();
}

void ParsingLock::WaitAtTheGate() noexcept NO_THREAD_SAFETY_ANALYSIS {
  gate_.Enter();
  awaited_.store(true, std::memory_order_relaxed);
  work_.Enter();
  awaited_.store(false, std::memory_order_relaxed);
  gate_.Leave();
}

}  // namespace valmere
