// Looks at the parser lock from outside.
#pragma once

#include "protocol/message/parser_lock.h"
#include "tests/support/test_thread.h"

namespace valmere::test {

// Whether another thread could take the lock right now.
inline bool ParserLockIsFree() {
  bool free = false;
  TestThread([&] {
    if (ParserLock().TryEnter()) {
      free = true;
      ParserLock().Leave();
    }
  }).Join();
  return free;
}

}  // namespace valmere::test
