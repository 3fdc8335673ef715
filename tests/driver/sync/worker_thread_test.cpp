#include "driver/sync/worker_thread.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>

#include "driver/sync/event_flags.h"
#include "tests/support/test_thread.h"

namespace valmere {
namespace {

using platform::kTicksPerMillisecond;
using platform::MonotonicNow;

TEST(WorkerThread, RunsItsFunctionOnAnotherThread) {
  std::atomic<std::uint32_t> id{0};
  {
    WorkerThread worker([&] { id = platform::CurrentThreadId(); }, 249);
    ASSERT_TRUE(worker.Start());
    EXPECT_TRUE(testing::Eventually([&] { return id != 0; }));
  }
  EXPECT_NE(id, platform::CurrentThreadId());
}

TEST(WorkerThread, KeepsItsPriority) {
  for (int priority : {0, 249, 251, 253, 255})
    EXPECT_EQ(WorkerThread([] {}, priority).priority(), priority);
}

TEST(WorkerThread, RunsNothingUntilItIsStarted) {
  bool ran = false;
  {
    const WorkerThread worker([&] { ran = true; }, 251);
    EXPECT_FALSE(worker.started());
  }
  EXPECT_FALSE(ran);
}

TEST(WorkerThread, StartsOnlyOnce) {
  std::atomic<int> runs{0};
  {
    WorkerThread worker([&] { ++runs; }, 251);
    EXPECT_TRUE(worker.Start());
    EXPECT_TRUE(worker.started());
    EXPECT_FALSE(worker.Start());
    EXPECT_TRUE(testing::Eventually([&] { return runs == 1; }));
    EXPECT_FALSE(worker.Start());
    EXPECT_TRUE(worker.started());
  }
  EXPECT_EQ(runs, 1);
}

TEST(WorkerThread, IsWaitedForWhenItsFunctionReturnsInTime) {
  EventFlags stop(EventFlags::AutoClear::kNo);
  bool finished = false;
  {
    WorkerThread worker(
        [&] {
          stop.Wait(1);
          finished = true;
        },
        251);
    ASSERT_TRUE(worker.Start());
    stop.Set(1);
  }
  EXPECT_TRUE(finished);
}

// What a thread that is ended by force still refers to.
struct Stuck {
  EventFlags never{EventFlags::AutoClear::kNo};
  std::atomic<bool> running{false};
  std::atomic<bool> returned{false};
};

TEST(WorkerThread, IsEndedByForceWhenItsFunctionDoesNotReturn) {
  Stuck stuck;
  auto worker = std::make_unique<WorkerThread>(
      [&] {
        stuck.running = true;
        stuck.never.Wait(1);
        stuck.returned = true;
      },
      253);
  ASSERT_TRUE(worker->Start());
  ASSERT_TRUE(testing::Eventually([&] { return stuck.running.load(); }));
  const platform::Ticks before = MonotonicNow();
  worker.reset();
  EXPECT_GE(MonotonicNow() - before, WorkerThread::kEndWaitMilliseconds * kTicksPerMillisecond);
  EXPECT_EQ(LiveWorkerThreads::Live(), 0u);
  stuck.never.Set(1);
  EXPECT_FALSE(stuck.never.WaitFor(2, 20));
  EXPECT_FALSE(stuck.returned);
}

TEST(WorkerThread, GivesItsFunctionsStateBackAtTheEnd) {
  auto state = std::make_shared<int>(1);
  {
    WorkerThread worker([state] {}, 251);
    worker.Start();
    EXPECT_GT(state.use_count(), 1);
  }
  EXPECT_EQ(state.use_count(), 1);
}

#ifndef NDEBUG
TEST(WorkerThreadDeathTest, IsNotDestroyedOnItsOwnThread) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(
      {
        std::unique_ptr<WorkerThread> worker;
        EventFlags ready(EventFlags::AutoClear::kNo);
        worker = std::make_unique<WorkerThread>(
            [&] {
              ready.Wait(1);
              worker.reset();
            },
            251);
        worker->Start();
        ready.Set(1);
        ready.WaitFor(2, 10'000);
      },
      "own thread");
}
#endif

}  // namespace
}  // namespace valmere
