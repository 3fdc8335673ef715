// Threads: their start, their end, and an end by force.
#include <gtest/gtest.h>

#include <atomic>
#include <memory>

#include "platform/kernel.h"
#include "tests/platform/kernel_probes.h"
#include "tests/support/test_thread.h"

namespace valmere::test {
using namespace platform;
namespace {

using test::Eventually;

TEST(Thread, RunsItsEntryWithItsArgument) {
  int value = 0;
  Thread thread;
  ASSERT_TRUE(thread.Start([](void* v) { *static_cast<int*>(v) = 7; }, &value, 249));
  EXPECT_TRUE(thread.WaitEnded(kLong));
  EXPECT_EQ(value, 7);
}

TEST(Thread, HasEndedWhenItWasNeverStarted) {
  Thread thread;
  EXPECT_TRUE(thread.WaitEnded(0));
  EXPECT_EQ(thread.ForceEnd(), Thread::ForcedEnd::kNotNow);
  thread.LeaveBehind();
  EXPECT_TRUE(thread.WaitEnded(0));
}

TEST(Thread, IsWaitedForNoLongerThanAsked) {
  Semaphore go;
  Thread thread;
  ASSERT_TRUE(thread.Start([](void* s) { static_cast<Semaphore*>(s)->Wait(); }, &go, 251));
  const Ticks before = MonotonicNow();
  EXPECT_FALSE(thread.WaitEnded(30));
  EXPECT_GE(MonotonicNow() - before, 30 * kTicksPerMillisecond);
  go.Release();
  EXPECT_TRUE(thread.WaitEnded(kLong));
  EXPECT_TRUE(thread.WaitEnded(0));
}

TEST(Thread, StartsAgainOnceItHasEnded) {
  std::atomic<int> runs{0};
  Thread thread;
  for (int priority : {0, 249, 255}) {
    ASSERT_TRUE(
        thread.Start([](void* r) { ++*static_cast<std::atomic<int>*>(r); }, &runs, priority));
    EXPECT_TRUE(thread.WaitEnded(kLong));
  }
  EXPECT_EQ(runs, 3);
}

TEST(Thread, HasHalfOfItsStackForOneFrame) {
  Thread thread;
  int sum = 0;
  ASSERT_TRUE(thread.Start(
      [](void* s) {
        volatile char frame[Thread::kStackBytes / 2];
        for (volatile char& byte : frame)
          byte = 1;
        *static_cast<int*>(s) = frame[0] + frame[sizeof(frame) - 1];
      },
      &sum, 249));
  EXPECT_TRUE(thread.WaitEnded(kLong));
  EXPECT_EQ(sum, 2);
}

// What a thread that is to be ended by force leaves behind: traces of how far it came.
struct Traces {
  Lock lock;
  Semaphore never;
  std::atomic<bool> running{false};
  std::atomic<bool> stop{false};
  std::atomic<bool> unwound{false};
  std::atomic<unsigned> turns{0};
};

class OnUnwinding {
 public:
  explicit OnUnwinding(std::atomic<bool>& flag) : flag_(flag) {}
  ~OnUnwinding() { flag_ = true; }

 private:
  std::atomic<bool>& flag_;
};

// A thread that runs an entry with traces and is then asked for its end.
class Stuck {
 public:
  Stuck(Thread::Entry entry, Traces& traces) : traces_(traces) {
    EXPECT_TRUE(thread_.Start(entry, &traces, 249));
    EXPECT_TRUE(Eventually([&] { return traces.running.load(); }));
    EXPECT_FALSE(thread_.WaitEnded(10));
  }

  void ExpectForcedEnd() {
    EXPECT_TRUE(Eventually([&] { return thread_.ForceEnd() == Thread::ForcedEnd::kGone; }));
    EXPECT_TRUE(thread_.WaitEnded(0));
    EXPECT_FALSE(traces_.unwound);
  }
  // Tried for a while: it must not come to a place where it can be ended.
  void ExpectNoForcedEnd() {
    for (int i = 0; i < 10; ++i) {
      EXPECT_EQ(thread_.ForceEnd(), Thread::ForcedEnd::kNotNow);
      EXPECT_FALSE(thread_.WaitEnded(1));
    }
  }
  Thread& thread() { return thread_; }

 private:
  Traces& traces_;
  Thread thread_;
};

TEST(Thread, IsEndedByForceWhileItWaits) {
  Traces traces;
  Stuck stuck(
      [](void* argument) {
        Traces& t = *static_cast<Traces*>(argument);
        OnUnwinding mark(t.unwound);
        t.running = true;
        t.never.Wait();
      },
      traces);
  stuck.ExpectForcedEnd();
}

TEST(Thread, IsEndedByForceWhileItWaitsForATime) {
  Traces traces;
  Stuck stuck(
      [](void* argument) {
        Traces& t = *static_cast<Traces*>(argument);
        OnUnwinding mark(t.unwound);
        t.running = true;
        t.never.WaitUntil(In(kLong));
      },
      traces);
  stuck.ExpectForcedEnd();
}

// It may be anywhere, inside the allocator too.
TEST(Thread, IsNotEndedByForceWhileItRuns) {
  Traces traces;
  Stuck stuck(
      [](void* argument) {
        Traces& t = *static_cast<Traces*>(argument);
        OnUnwinding mark(t.unwound);
        t.running = true;
        while (!t.stop)
          ++t.turns;
      },
      traces);
  stuck.ExpectNoForcedEnd();
  traces.stop = true;
  EXPECT_TRUE(stuck.thread().WaitEnded(kLong));
  EXPECT_TRUE(traces.unwound);
}

TEST(Thread, IsNotEndedByForceWhileItHoldsALock) {
  Traces traces;
  Stuck stuck(
      [](void* argument) NO_THREAD_SAFETY_ANALYSIS {
        Traces& t = *static_cast<Traces*>(argument);
        OnUnwinding mark(t.unwound);
        {
          ScopedLock hold(t.lock);
          ScopedLock again(t.lock);
          t.running = true;
          t.never.Wait();
        }
        t.never.Wait();
      },
      traces);
  stuck.ExpectNoForcedEnd();
  traces.never.Release();
  stuck.ExpectForcedEnd();
  EXPECT_TRUE(CanEnter(traces.lock));
}

TEST(Thread, IsNotEndedByForceWhileItWaitsForALock) {
  Traces traces;
  auto hold = std::make_unique<ScopedLock>(traces.lock);
  Stuck stuck(
      [](void* argument) {
        Traces& t = *static_cast<Traces*>(argument);
        OnUnwinding mark(t.unwound);
        t.running = true;
        ScopedLock wait(t.lock);
      },
      traces);
  stuck.ExpectNoForcedEnd();
  hold.reset();
  EXPECT_TRUE(stuck.thread().WaitEnded(kLong));
  EXPECT_TRUE(traces.unwound);
}

TEST(Thread, GoesOnWhenItIsLeftBehind) {
  // Never freed: nothing tells when the thread is done with it.
  static Traces* const traces = new Traces;
  Stuck stuck(
      [](void* argument) {
        Traces& t = *static_cast<Traces*>(argument);
        OnUnwinding mark(t.unwound);
        ScopedLock hold(t.lock);
        t.running = true;
        t.never.Wait();
      },
      *traces);
  stuck.thread().LeaveBehind();
  EXPECT_TRUE(stuck.thread().WaitEnded(0));
  EXPECT_EQ(stuck.thread().ForceEnd(), Thread::ForcedEnd::kNotNow);
  EXPECT_FALSE(traces->unwound);
  traces->never.Release();
  EXPECT_TRUE(Eventually([&] { return traces->unwound.load(); }));
  EXPECT_TRUE(Eventually([&] { return CanEnter(traces->lock); }));
}

TEST(Thread, MayEndByItselfWhileItIsToBeEndedByForce) {
  std::atomic<int> runs{0};
  for (int round = 1; round <= 50; ++round) {
    Thread thread;
    ASSERT_TRUE(thread.Start([](void* r) { ++*static_cast<std::atomic<int>*>(r); }, &runs, 249));
    // Some have ended by now, some end just now, some have not begun.
    for (int i = 0; i < round && runs != round; ++i)
      CurrentThreadId();
    EXPECT_EQ(thread.ForceEnd(), Thread::ForcedEnd::kNotNow) << "it never waits";
    EXPECT_TRUE(thread.WaitEnded(kLong));
    runs = round;
  }
}

}  // namespace
}  // namespace valmere::test
