#include "driver/sync/worker_thread.h"

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <memory>
#include <utility>
#include <vector>

#include "driver/sync/event_flags.h"
#include "driver/sync/lock.h"
#include "tests/support/test_thread.h"

namespace valmere::test {
namespace {

using platform::kTicksPerMillisecond;
using platform::MonotonicNow;

TEST(WorkerThread, RunsItsFunctionOnAnotherThread) {
  std::atomic<std::uint32_t> id{0};
  {
    WorkerThread worker([&] { id = platform::CurrentThreadId(); }, 249);
    ASSERT_TRUE(worker.Start());
    EXPECT_TRUE(Eventually([&] { return id != 0; }));
  }
  EXPECT_NE(id, platform::CurrentThreadId());
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
    EXPECT_TRUE(Eventually([&] { return runs == 1; }));
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

// What the function of a stuck worker uses, and how far it came.
struct Stuck {
  EventFlags never{EventFlags::AutoClear::kNo};
  Lock lock;
  std::atomic<bool> running{false};
  std::atomic<bool> returned{false};
};

// A worker whose function waits for a flag, and is not told.
class StuckWorker {
 public:
  explicit StuckWorker(std::function<void(Stuck&)> function)
      : worker_(std::make_unique<WorkerThread>(
            [stuck = stuck_, function = std::move(function)] {
              function(*stuck);
              stuck->returned = true;
            },
            253)) {
    EXPECT_TRUE(worker_->Start());
    EXPECT_TRUE(Eventually([&] { return stuck_->running.load(); }));
  }

  Stuck& stuck() { return *stuck_; }
  WorkerThread& worker() { return *worker_; }
  void Destroy() { worker_.reset(); }
  long handles() const { return stuck_.use_count(); }

 private:
  std::shared_ptr<Stuck> stuck_ = std::make_shared<Stuck>();
  std::unique_ptr<WorkerThread> worker_;
};

void Wait(Stuck& stuck) {
  stuck.running = true;
  stuck.never.Wait(1);
}

void WaitWithALock(Stuck& stuck) {
  const ScopedLock hold(stuck.lock);
  Wait(stuck);
}

TEST(WorkerThread, IsEndedByForceWhenItsFunctionDoesNotReturn) {
  StuckWorker stuck(Wait);
  const platform::Ticks before = MonotonicNow();
  stuck.Destroy();
  EXPECT_GE(MonotonicNow() - before, WorkerThread::kEndWaitMilliseconds * kTicksPerMillisecond);
  EXPECT_EQ(LiveWorkerThreads::Live(), 0u);
  EXPECT_EQ(stuck.handles(), 1);
  stuck.stuck().never.Set(1);
  EXPECT_FALSE(stuck.stuck().never.WaitFor(2, 20));
  EXPECT_FALSE(stuck.stuck().returned);
}

TEST(WorkerThread, IsLeftBehindAndCountedWhileItHoldsALock) {
  StuckWorker stuck(WaitWithALock);
  stuck.Destroy();
  EXPECT_EQ(LiveWorkerThreads::Live(), 1u);
  EXPECT_GT(stuck.handles(), 1);
  stuck.stuck().never.Set(1);
  EXPECT_TRUE(Eventually([&] { return stuck.handles() == 1; }));
  EXPECT_TRUE(stuck.stuck().returned);
  EXPECT_EQ(LiveWorkerThreads::Live(), 0u);
  const ScopedLock free(stuck.stuck().lock);
}

TEST(WorkerThread, SharesTheTimeToEndWithOthers) {
  constexpr int kWorkers = 20;
  std::vector<std::unique_ptr<StuckWorker>> stuck;
  for (int i = 0; i < kWorkers; ++i)
    stuck.push_back(std::make_unique<StuckWorker>(i % 2 == 0 ? Wait : WaitWithALock));
  const platform::Ticks before = MonotonicNow();
  const platform::Ticks deadline = WorkerThread::TimeToEnd();
  for (const auto& each : stuck)
    each->worker().EndBy(deadline);
  for (const auto& each : stuck)
    each->Destroy();
  EXPECT_LT(MonotonicNow() - before,
            kWorkers / 2 * WorkerThread::kEndWaitMilliseconds * kTicksPerMillisecond);
  EXPECT_EQ(LiveWorkerThreads::Live(), unsigned{kWorkers} / 2);
  for (const auto& each : stuck)
    each->stuck().never.Set(1);
  EXPECT_TRUE(Eventually([&] { return LiveWorkerThreads::Live() == 0; }));
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
}  // namespace valmere::test
