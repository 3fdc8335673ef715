#include "driver/sync/event_flags.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <stdexcept>
#include <utility>
#include <vector>

#include "tests/support/test_thread.h"

namespace valmere {
namespace {

using platform::kTicksPerMillisecond;
using platform::MonotonicNow;
using test::Eventually;
using test::TestThread;

constexpr auto kKeep = EventFlags::AutoClear::kNo;
constexpr auto kAutoClear = EventFlags::AutoClear::kYes;
constexpr std::uint32_t kLong = 60'000;

// Checks that `wait` takes at least `milliseconds`.
template <class Wait>
std::uint32_t NotSooner(std::uint32_t milliseconds, Wait wait) {
  const platform::Ticks before = MonotonicNow();
  const std::uint32_t result = wait();
  EXPECT_GE(MonotonicNow() - before, milliseconds * kTicksPerMillisecond);
  return result;
}

// A predicate that counts how often it was asked. Once it has been asked, its thread holds the
// object's lock until it sleeps; so whoever gets through Get after that finds it asleep.
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

TEST(EventFlags, RaisedWakeNoOneUntilThePendingWakeGoes) {
  EventFlags flags(kKeep);
  Gate gate;
  platform::Thread waiter;
  std::pair<EventFlags&, Gate&> both(flags, gate);
  ASSERT_TRUE(waiter.Start(
      [](void* argument) {
        auto& [f, g] = *static_cast<std::pair<EventFlags&, Gate&>*>(argument);
        f.Wait(g.predicate());
      },
      &both, 249));
  gate.AwaitSleeper(flags);
  gate.Open();
  {
    EventFlags::PendingWake outer;
    {
      EventFlags::PendingWake wake = flags.Raise(1);
      EXPECT_EQ(flags.Get(), 1u);
      EXPECT_FALSE(waiter.WaitEnded(20));
      outer = std::move(wake);
    }
    EXPECT_FALSE(waiter.WaitEnded(20));
    const EventFlags::PendingWake moved(std::move(outer));
    EXPECT_FALSE(waiter.WaitEnded(20));
    EXPECT_EQ(gate.asked(), 1);
  }
  EXPECT_TRUE(waiter.WaitEnded(kLong));
}

TEST(EventFlags, RaisedAreSeenByNewWaitsAtOnce) {
  EventFlags flags(kAutoClear);
  const EventFlags::PendingWake wake = flags.Raise(1);
  EXPECT_EQ(flags.Wait(1), 1u);
}

TEST(EventFlags, WakeTheirWaitersWhenThePendingWakeIsReplaced) {
  EventFlags flags(kKeep);
  Gate gate;
  TestThread waiter([&] { flags.Wait(gate.predicate()); });
  gate.AwaitSleeper(flags);
  gate.Open();
  EventFlags::PendingWake wake = flags.Raise(1);
  wake = EventFlags::PendingWake();
  waiter.Join();
}

TEST(EventFlags, KeepAPickedWaiterWhoseTimeIsUpUntilItIsReleased) {
  EventFlags flags(kKeep);
  Gate gate;
  Gate again;
  std::atomic<bool> returned{false};
  TestThread waiter([&] {
    EXPECT_EQ(flags.WaitFor(gate.predicate(), 1000), 0u);
    returned = true;
    // The semaphore is used a second time: a count left over would ask the predicate once more.
    EXPECT_EQ(NotSooner(20, [&] { return flags.WaitFor(again.predicate(), 20); }), 0u);
  });
  gate.AwaitSleeper(flags);
  {
    const EventFlags::PendingWake wake = flags.Raise(0);
    platform::Semaphore never;
    never.WaitUntil(MonotonicNow() + 1100 * kTicksPerMillisecond);
    EXPECT_FALSE(returned);
  }
  waiter.Join();
  // Once more when the thread did not come to see its time run out before it was released.
  EXPECT_GE(gate.asked(), 2);
  EXPECT_EQ(again.asked(), 2);
}

TEST(EventFlags, AskAPickedWaiterWhoseTimeIsUpUnderTheirLock) {
  EventFlags flags(kKeep);
  Gate gate;
  const EventFlags::Predicate ask = gate.predicate();
  platform::Thread other;
  bool started = false;
  TestThread waiter([&] {
    flags.WaitFor(
        [&] {
          if (!ask()) return false;
          started = other.Start([](void* f) { static_cast<EventFlags*>(f)->Set(1); }, &flags, 249);
          EXPECT_FALSE(other.WaitEnded(20));
          return true;
        },
        1000);
  });
  gate.AwaitSleeper(flags);
  gate.Open();
  {
    const EventFlags::PendingWake wake = flags.Raise(0);
    platform::Semaphore never;
    never.WaitUntil(MonotonicNow() + 1100 * kTicksPerMillisecond);
  }
  waiter.Join();
  EXPECT_TRUE(started);
  EXPECT_TRUE(other.WaitEnded(kLong));
}

TEST(EventFlags, ReportAFlagThatRoseAsTheTimeRanOut) {
  EventFlags flags(kAutoClear);
  for (int round = 0; round < 200; ++round) {
    TestThread setter([&] { flags.Set(1); });
    const std::uint32_t result = flags.WaitFor(1, 0);
    setter.Join();
    // Either the wait took the flag or it is still up; never both, never neither.
    EXPECT_EQ(result + flags.Poll(1), 1u);
  }
}

}  // namespace
}  // namespace valmere
