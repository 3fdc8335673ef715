#include "driver/sync/event_flags.h"

#include <gtest/gtest.h>

#include <atomic>
#include <stdexcept>
#include <vector>

#include "tests/driver/sync/event_flags_waits.h"
#include "tests/support/test_thread.h"

namespace valmere::test {
namespace {

using platform::kTicksPerMillisecond;
using platform::MonotonicNow;

TEST(EventFlags, StartWithAllFlagsDown) {
  EventFlags flags(kKeep);
  EXPECT_EQ(flags.Get(), 0u);
  EXPECT_EQ(flags.Poll(~0u), 0u);
}

TEST(EventFlags, TakeTheFullTimeToWaitForNothing) {
  EventFlags flags(kKeep);
  const platform::Ticks before = MonotonicNow();
  EXPECT_EQ(NotSooner(3000, [&] { return flags.WaitFor(1, 3000); }), 0u);
  EXPECT_LT(MonotonicNow() - before, 30'000 * kTicksPerMillisecond);
}

TEST(EventFlags, NeverEndATimedWaitEarly) {
  EventFlags flags(kAutoClear);
  const EventFlags::Predicate never = [] { return false; };
  for (std::uint32_t milliseconds : {0u, 1u, 2u, 25u, 60u}) {
    EXPECT_EQ(NotSooner(milliseconds, [&] { return flags.WaitFor(1, milliseconds); }), 0u);
    EXPECT_EQ(NotSooner(milliseconds, [&] { return flags.WaitFor(never, milliseconds); }), 0u);
  }
}

TEST(EventFlags, SetBeforeAWaitEndItAtOnce) {
  EventFlags flags(kKeep);
  flags.Set(6);
  EXPECT_EQ(flags.Wait(2), 6u);
  EXPECT_EQ(flags.WaitFor(4, kLong), 6u);
  EXPECT_EQ(flags.WaitFor(4, 0), 6u);
  EXPECT_EQ(flags.Poll(2), 6u);
  EXPECT_EQ(flags.Wait([] { return true; }), 6u);
  EXPECT_EQ(flags.WaitFor([] { return true; }, kLong), 6u);
}

TEST(EventFlags, SetDuringAWaitEndIt) {
  for (const bool timed : {false, true}) {
    EventFlags flags(kKeep);
    std::uint32_t result = 0;
    TestThread waiter([&] { result = timed ? flags.WaitFor(4, kLong) : flags.Wait(4); });
    flags.Set(12);
    waiter.Join();
    EXPECT_EQ(result, 12u);
  }
}

TEST(EventFlags, StayUpUntilTheyAreClearedWithoutAutoClear) {
  EventFlags flags(kKeep);
  flags.Set(1);
  for (int i = 0; i < 3; ++i)
    EXPECT_EQ(flags.Wait(1), 1u);
  flags.Clear(1);
  EXPECT_EQ(flags.Poll(1), 0u);
}

TEST(EventFlags, GoDownWithTheWaitThatTheyEndWithAutoClear) {
  EventFlags flags(kAutoClear);
  flags.Set(1);
  EXPECT_EQ(flags.Wait(1), 1u);
  EXPECT_EQ(flags.Get(), 0u);
  flags.Set(1);
  EXPECT_EQ(flags.WaitFor(1, kLong), 1u);
  EXPECT_EQ(flags.Get(), 0u);
  flags.Set(1);
  EXPECT_EQ(flags.Poll(1), 1u);
  EXPECT_EQ(flags.Get(), 0u);
}

TEST(EventFlags, LoseOnlyTheMaskToAutoClear) {
  EventFlags flags(kAutoClear);
  flags.Set(0x80000007);
  EXPECT_EQ(flags.Wait(3), 0x80000007u);
  EXPECT_EQ(flags.Get(), 0x80000004u);
  EXPECT_EQ(flags.WaitFor(8, 0), 0u);
  EXPECT_EQ(flags.Poll(8), 0u);
  EXPECT_EQ(flags.Get(), 0x80000004u);
}

TEST(EventFlags, AllGoDownWithAPredicateWaitWithAutoClear) {
  EventFlags flags(kAutoClear);
  flags.Set(5);
  EXPECT_EQ(flags.Wait([] { return true; }), 5u);
  EXPECT_EQ(flags.Get(), 0u);
  flags.Set(5);
  EXPECT_EQ(flags.WaitFor([] { return true; }, kLong), 5u);
  EXPECT_EQ(flags.Get(), 0u);
  flags.Set(5);
  EXPECT_EQ(flags.WaitFor([] { return false; }, 0), 0u);
  EXPECT_EQ(flags.Get(), 5u);
}

TEST(EventFlags, ClearRemovesTheMaskOnly) {
  EventFlags flags(kKeep);
  flags.Set(7);
  flags.Clear(2);
  EXPECT_EQ(flags.Get(), 5u);
  flags.Clear(~0u);
  EXPECT_EQ(flags.Get(), 0u);
}

TEST(EventFlags, SetAddsToWhatIsUp) {
  EventFlags flags(kKeep);
  flags.Set(1);
  flags.Set(0);
  flags.Set(0x80000000);
  EXPECT_EQ(flags.Get(), 0x80000001u);
}

TEST(EventFlags, OutsideTheMaskDoNotEndAWait) {
  EventFlags flags(kKeep);
  TestThread setter([&] {
    for (int i = 0; i < 100; ++i)
      flags.Set(2);
  });
  EXPECT_EQ(NotSooner(50, [&] { return flags.WaitFor(1, 50); }), 0u);
}

TEST(EventFlags, SetOnceEndOneOfTwoWaitsWithAutoClear) {
  EventFlags flags(kAutoClear);
  std::atomic<int> ended{0};
  const auto wait = [&] {
    EXPECT_EQ(flags.Wait(1), 1u);
    ++ended;
  };
  TestThread first(wait);
  TestThread second(wait);
  flags.Set(1);
  EXPECT_TRUE(Eventually([&] { return ended == 1; }));
  EXPECT_EQ(flags.Get(), 0u) << "nothing is left that the other could end by";
  flags.Set(1);
  EXPECT_TRUE(Eventually([&] { return ended == 2; }));
}

TEST(EventFlags, SetOnceEndEveryWaitWithoutAutoClear) {
  EventFlags flags(kKeep);
  std::vector<TestThread> waiters;
  for (int i = 0; i < 4; ++i)
    waiters.emplace_back([&] { EXPECT_EQ(flags.Wait(1), 1u); });
  flags.Set(1);
}

TEST(EventFlags, AskAPredicateAtOnceAndAfterEverySet) {
  EventFlags flags(kKeep);
  Gate gate;
  TestThread waiter([&] { EXPECT_EQ(flags.Wait(gate.predicate()), 6u); });
  gate.AwaitSleeper(flags);
  EXPECT_EQ(gate.asked(), 1);
  flags.Set(1);
  EXPECT_TRUE(Eventually([&] { return gate.asked() == 2; }));
  flags.Get();
  flags.Set(2);
  EXPECT_TRUE(Eventually([&] { return gate.asked() == 3; }));
  flags.Get();
  flags.Clear(1);
  gate.Open();
  flags.Set(4);
  waiter.Join();
  EXPECT_EQ(gate.asked(), 4);
}

TEST(EventFlags, AskAPredicateUnderTheirLock) {
  EventFlags flags(kKeep);
  platform::Thread other;
  flags.Wait([&] {
    EXPECT_EQ(flags.Get(), 0u);  // its own thread may use the object
    EXPECT_TRUE(other.Start([](void* f) { static_cast<EventFlags*>(f)->Set(1); }, &flags, 249));
    EXPECT_FALSE(other.WaitEnded(20));
    return true;
  });
  EXPECT_TRUE(other.WaitEnded(kLong));
}

TEST(EventFlags, GiveAPredicateThatIsTrueWithAllFlagsDownAWordOfZero) {
  EventFlags flags(kAutoClear);
  EXPECT_EQ(flags.Wait([] { return true; }), 0u);
}

TEST(EventFlags, EndATimedPredicateWaitWhenItsTimeIsUp) {
  EventFlags flags(kAutoClear);
  Gate gate;
  EXPECT_EQ(NotSooner(20, [&] { return flags.WaitFor(gate.predicate(), 20); }), 0u);
  EXPECT_EQ(gate.asked(), 2);
}

TEST(EventFlags, SurviveAPredicateThatThrows) {
  EventFlags flags(kKeep);
  EXPECT_THROW(flags.Wait([]() -> bool { throw std::runtime_error("no answer"); }),
               std::runtime_error);
  TestThread other([&] { flags.Set(1); });
  EXPECT_EQ(flags.WaitFor(1, kLong), 1u);
}

}  // namespace
}  // namespace valmere::test
