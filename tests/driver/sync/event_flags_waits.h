// Waits for event flags, as tests make them.
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>

#include "driver/sync/event_flags.h"
#include "tests/support/test_thread.h"

namespace valmere::test {

inline constexpr auto kKeep = EventFlags::AutoClear::kNo;
inline constexpr auto kAutoClear = EventFlags::AutoClear::kYes;
inline constexpr std::uint32_t kLong = 60'000;

// Checks that `wait` takes at least `milliseconds`.
template <class Wait>
std::uint32_t NotSooner(std::uint32_t milliseconds, Wait wait) {
  const platform::Ticks before = platform::MonotonicNow();
  const std::uint32_t result = wait();
  EXPECT_GE(platform::MonotonicNow() - before, milliseconds * platform::kTicksPerMillisecond);
  return result;
}

// A predicate that counts how often it was asked. Once it has been asked, its thread holds the
// object's lock until it sleeps; so a thread that gets through Get after that finds it asleep.
class Gate {
 public:
  EventFlags::Predicate predicate() {
    return [this] {
      ++asked_;
      return open_.load();
    };
  }
  void Open() { open_ = true; }
  int asked() const { return asked_; }
  void AwaitSleeper(const EventFlags& flags) const {
    EXPECT_TRUE(Eventually([this] { return asked_ > 0; }));
    flags.Get();
  }

 private:
  std::atomic<bool> open_{false};
  std::atomic<int> asked_{0};
};

}  // namespace valmere::test
