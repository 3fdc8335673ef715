// Event flags that are raised now and wake their waiters later.
#include <gtest/gtest.h>

#include <atomic>
#include <utility>

#include "driver/sync/event_flags.h"
#include "tests/driver/sync/event_flags_waits.h"
#include "tests/support/test_thread.h"

namespace valmere::test {
namespace {

using platform::kTicksPerMillisecond;
using platform::MonotonicNow;

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
}  // namespace valmere::test
