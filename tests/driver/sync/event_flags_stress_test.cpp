// Many threads on one object. What is counted in must come out again: with auto-clear every wait
// that ends took its flag alone.
#include <gtest/gtest.h>

#include <atomic>
#include <vector>

#include "driver/sync/event_flags.h"
#include "tests/support/test_thread.h"

namespace valmere::test {
namespace {

constexpr int kThreads = 4;
constexpr int kRounds = 1500;
constexpr std::uint32_t kStop = 0x80000000;

TEST(EventFlagsStress, PassATokenAroundWithoutLosingOrDoublingIt) {
  EventFlags flags(EventFlags::AutoClear::kYes);
  int guarded = 0;  // only the holder of the token touches it
  {
    std::vector<TestThread> threads;
    for (int i = 0; i < kThreads; ++i)
      threads.emplace_back([&, timed = i % 2 == 0] {
        for (int round = 0; round < kRounds; ++round) {
          if (timed) {
            while (flags.WaitFor(1, 1) == 0) {
            }
          } else {
            flags.Wait(1);
          }
          ++guarded;
          flags.Set(1);
        }
      });
    flags.Set(1);
  }
  EXPECT_EQ(guarded, kThreads * kRounds);
  EXPECT_EQ(flags.Get(), 1u);
}

TEST(EventFlagsStress, WakeEveryPairThroughFlagsOfItsOwn) {
  EventFlags flags(EventFlags::AutoClear::kYes);
  std::vector<TestThread> threads;
  for (std::uint32_t i = 0; i < kThreads; ++i) {
    const std::uint32_t there = 1u << (2 * i);
    const std::uint32_t back = 2u << (2 * i);
    threads.emplace_back([&flags, there, back] {
      for (int round = 0; round < kRounds; ++round) {
        flags.Set(there);
        EXPECT_NE(flags.Wait(back) & back, 0u);
      }
    });
    threads.emplace_back([&flags, there, back] {
      for (int round = 0; round < kRounds; ++round) {
        while ((flags.WaitFor(there, 1) & there) == 0) {
        }
        const EventFlags::PendingWake wake = flags.Raise(back);
      }
    });
  }
}

TEST(EventFlagsStress, KeepPredicatesAndMasksApart) {
  EventFlags flags(EventFlags::AutoClear::kNo);
  Lock lock;
  int queued = 0;
  std::atomic<int> taken{0};
  const auto take = [&] {
    ScopedLock hold(lock);
    if (queued == 0) return false;
    --queued;
    ++taken;
    return true;
  };
  const auto push = [&] {
    {
      ScopedLock hold(lock);
      ++queued;
    }
    flags.Set(1);
  };
  {
    std::vector<TestThread> threads;
    for (int i = 0; i < kThreads; ++i) {
      threads.emplace_back([&, timed = i % 2 == 0] {
        for (int round = 0; round < kRounds; ++round) {
          if (timed) {
            // Not the word tells whether something was taken: until the first Set it is 0.
            bool took = false;
            while (!took)
              flags.WaitFor([&] { return took = take(); }, 1);
          } else {
            flags.Wait(take);
          }
        }
      });
      threads.emplace_back([&] {
        for (int round = 0; round < kRounds; ++round)
          push();
      });
    }
    threads.emplace_back([&] { EXPECT_NE(flags.Wait(kStop) & kStop, 0u); });
    EXPECT_TRUE(Eventually([&] { return taken == kThreads * kRounds; }));
    flags.Set(kStop);
  }
  EXPECT_EQ(queued, 0);
}

}  // namespace
}  // namespace valmere::test
