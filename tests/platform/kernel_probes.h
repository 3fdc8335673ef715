// What the tests of locks, semaphores and threads share.
#pragma once

#include <cstdint>

#include "platform/kernel.h"
#include "tests/support/test_thread.h"

namespace valmere::test {
using namespace platform;

inline constexpr std::uint32_t kLong = 60'000;

inline Ticks In(std::uint32_t milliseconds) {
  return MonotonicNow() + milliseconds * kTicksPerMillisecond;
}

// Whether another thread can enter it now.
inline bool CanEnter(Lock& lock) NO_THREAD_SAFETY_ANALYSIS {
  bool entered = false;
  test::TestThread other([&]() NO_THREAD_SAFETY_ANALYSIS {
    entered = lock.TryEnter();
    if (entered) lock.Leave();
  });
  other.Join();
  return entered;
}

}  // namespace valmere::test
