// Clock, locks and semaphores.
#include "platform/kernel.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <vector>

#include "tests/platform/kernel_probes.h"
#include "tests/support/test_thread.h"

namespace valmere::test {
using namespace platform;
namespace {

using test::Eventually;
using test::TestThread;

TEST(Clock, GoesForwardInUnitsOf100Nanoseconds) {
  const Ticks before = MonotonicNow();
  Semaphore never;
  EXPECT_FALSE(never.WaitUntil(In(20)));
  EXPECT_GE(MonotonicNow() - before, 20 * kTicksPerMillisecond);
}

TEST(CurrentThreadId, IsTheThreadsOwn) {
  const std::uint32_t here = CurrentThreadId();
  std::uint32_t there = here;
  TestThread([&] { there = CurrentThreadId(); }).Join();
  EXPECT_NE(there, here);
  EXPECT_NE(here, 0u);
  EXPECT_EQ(CurrentThreadId(), here);
}

TEST(Lock, KeepsOtherThreadsOut) {
  Lock lock;
  EXPECT_TRUE(CanEnter(lock));
  {
    ScopedLock hold(lock);
    EXPECT_FALSE(CanEnter(lock));
  }
  EXPECT_TRUE(CanEnter(lock));
}

void EnterThreeTimes(Lock& lock) NO_THREAD_SAFETY_ANALYSIS {
  lock.Enter();
  lock.Enter();
  EXPECT_TRUE(lock.TryEnter());
  lock.Leave();
  lock.Leave();
  EXPECT_FALSE(CanEnter(lock));
  lock.Leave();
}

TEST(Lock, IsLeftAsOftenAsItsThreadEnteredIt) {
  Lock lock;
  EnterThreeTimes(lock);
  EXPECT_TRUE(CanEnter(lock));
}

TEST(Lock, LetsOneThreadInAtATime) {
  constexpr int kThreads = 4;
  constexpr int kRounds = 5000;
  Lock lock;
  int count = 0;
  {
    std::vector<TestThread> threads;
    for (int i = 0; i < kThreads; ++i)
      threads.emplace_back([&] {
        for (int round = 0; round < kRounds; ++round) {
          ScopedLock hold(lock);
          ++count;
        }
      });
  }
  EXPECT_EQ(count, kThreads * kRounds);
}

TEST(Semaphore, HoldsItsFirstCount) {
  Semaphore semaphore(2);
  semaphore.Wait();
  EXPECT_TRUE(semaphore.WaitUntil(In(kLong)));
  EXPECT_FALSE(semaphore.WaitUntil(In(0)));
}

TEST(Semaphore, KeepsReleasesForLaterWaits) {
  Semaphore semaphore;
  semaphore.Release();
  semaphore.Release();
  semaphore.Wait();
  semaphore.Wait();
  EXPECT_FALSE(semaphore.WaitUntil(In(0)));
}

TEST(Semaphore, CountsToItsMaximumAndNoFurther) {
  Semaphore semaphore(Semaphore::kMaximum);
  semaphore.Release();
  semaphore.Wait();
  EXPECT_TRUE(semaphore.WaitUntil(In(kLong)));
}

TEST(Semaphore, TakesWhatIsThereAfterTheDeadlineToo) {
  Semaphore semaphore(2);
  EXPECT_TRUE(semaphore.WaitUntil(MonotonicNow() - 1));
  EXPECT_TRUE(semaphore.WaitUntil(-1));
  EXPECT_FALSE(semaphore.WaitUntil(-1));
}

TEST(Semaphore, NeverGivesUpBeforeTheDeadline) {
  Semaphore never;
  for (std::uint32_t milliseconds : {0u, 1u, 2u, 15u, 40u}) {
    const Ticks deadline = In(milliseconds);
    EXPECT_FALSE(never.WaitUntil(deadline));
    EXPECT_GE(MonotonicNow(), deadline);
  }
}

TEST(Semaphore, LetsOneWaiterThroughForEachRelease) {
  constexpr int kThreads = 4;
  Semaphore semaphore;
  std::atomic<int> through{0};
  std::vector<TestThread> threads;
  for (int i = 0; i < kThreads; ++i)
    threads.emplace_back([&, timed = i % 2 == 0] {
      if (timed) {
        EXPECT_TRUE(semaphore.WaitUntil(In(kLong)));
      } else {
        semaphore.Wait();
      }
      ++through;
    });
  for (int i = 1; i <= kThreads; ++i) {
    semaphore.Release();
    EXPECT_TRUE(Eventually([&] { return through == i; }));
  }
}

TEST(Semaphore, MayBeDestroyedByTheWaiterThatWasLetThrough) {
  for (int round = 0; round < 500; ++round) {
    auto semaphore = std::make_unique<Semaphore>();
    TestThread releaser([s = semaphore.get()] { s->Release(); });
    semaphore->Wait();
    semaphore.reset();
  }
}

TEST(Semaphore, HandsOverWhatWasWrittenBeforeTheRelease) {
  Semaphore full;
  Semaphore empty;
  int value = 0;
  TestThread writer([&] {
    for (int i = 1; i <= 200; ++i) {
      value = i;
      full.Release();
      empty.Wait();
    }
  });
  for (int i = 1; i <= 200; ++i) {
    ASSERT_TRUE(full.WaitUntil(In(kLong)));
    ASSERT_EQ(value, i);
    empty.Release();
  }
}

}  // namespace
}  // namespace valmere::test
