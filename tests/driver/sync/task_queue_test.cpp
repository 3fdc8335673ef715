#include "driver/sync/task_queue.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <memory>
#include <optional>
#include <vector>

#include "driver/sync/event_flags.h"
#include "driver/sync/live_counters.h"
#include "tests/support/test_thread.h"

namespace valmere::test {
namespace {

TEST(TaskQueue, RunsJobsInTheOrderInWhichTheyArePushed) {
  std::vector<int> order;
  {
    TaskQueue queue(251);
    for (int i = 0; i < 1000; ++i)
      queue.Push([&order, i] { order.push_back(i); });
  }
  ASSERT_EQ(order.size(), 1000u);
  EXPECT_TRUE(std::is_sorted(order.begin(), order.end()));
}

TEST(TaskQueue, RunsJobsWithoutBeingAskedAgain) {
  EventFlags ran(EventFlags::AutoClear::kYes);
  TaskQueue queue(251);
  for (int i = 0; i < 200; ++i) {
    queue.Push([&] { ran.Set(1); });
    ASSERT_EQ(ran.WaitFor(1, 10'000), 1u);
  }
}

TEST(TaskQueue, RunsItsJobsOnOneThreadOfItsOwn) {
  std::vector<std::uint32_t> ids;
  {
    TaskQueue queue(251);
    for (int i = 0; i < 3; ++i)
      queue.Push([&] { ids.push_back(platform::CurrentThreadId()); });
  }
  ASSERT_EQ(ids.size(), 3u);
  EXPECT_NE(ids[0], platform::CurrentThreadId());
  EXPECT_EQ(ids[1], ids[0]);
  EXPECT_EQ(ids[2], ids[0]);
}

TEST(TaskQueue, TakesJobsFromWithinAJob) {
  std::vector<int> order;
  {
    TaskQueue queue(251);
    queue.Push([&] {
      order.push_back(1);
      queue.Push([&] {
        order.push_back(3);
        queue.Push([&] { order.push_back(4); });
      });
      order.push_back(2);
    });
  }
  EXPECT_EQ(order, (std::vector<int>{1, 2, 3, 4}));
}

TEST(TaskQueue, RunsWhatIsStillQueuedBeforeItEnds) {
  EventFlags go(EventFlags::AutoClear::kNo);
  int ran = 0;
  std::optional<TaskQueue> queue(251);
  queue->Push([&] { go.Wait(1); });
  for (int i = 0; i < 10; ++i)
    queue->Push([&] { ++ran; });
  TestThread opener([&] { go.Set(1); });
  queue.reset();
  EXPECT_EQ(ran, 10);
}

TEST(TaskQueue, GivesItsJobsMoreTimeThanAThreadGetsToEnd) {
  EventFlags never(EventFlags::AutoClear::kNo);
  std::atomic<bool> ran{false};
  {
    TaskQueue queue(251);
    queue.Push([&] { never.WaitFor(1, WorkerThread::kEndWaitMilliseconds + 100); });
    queue.Push([&] { ran = true; });
  }
  EXPECT_TRUE(ran);
}

// A job with a lock held can't be ended by force.
TEST(TaskQueue, LeavesAJobBehindThatDoesNotReturn) {
  struct Stuck {
    platform::Lock lock;
    platform::Semaphore begun;
    platform::Semaphore go_on;
  };
  const auto stuck = std::make_shared<Stuck>();
  const auto ran = std::make_shared<std::atomic<bool>>(false);
  const platform::Ticks start = platform::MonotonicNow();
  {
    TaskQueue queue(251);
    queue.Push([stuck] {
      const platform::ScopedLock hold(stuck->lock);
      stuck->begun.Release();
      stuck->go_on.Wait();
    });
    queue.Push([ran] { *ran = true; });
    stuck->begun.Wait();
  }
  const platform::Ticks taken = platform::MonotonicNow() - start;
  EXPECT_GE(taken, TaskQueue::kJobsEndMilliseconds * platform::kTicksPerMillisecond);
  EXPECT_LT(taken, 2 * TaskQueue::kJobsEndMilliseconds * platform::kTicksPerMillisecond);
  EXPECT_EQ(LiveWorkerThreads::Live(), 1u);
  stuck->go_on.Release();
  EXPECT_TRUE(Eventually([] { return LiveWorkerThreads::Live() == 0; }));
  EXPECT_TRUE(*ran);
}

// Pushes into its queue when it is destroyed, which needs the queue's lock.
class PushesAtTheEnd {
 public:
  PushesAtTheEnd(TaskQueue& queue, std::atomic<int>& ended) : queue_(queue), ended_(ended) {}
  ~PushesAtTheEnd() {
    TestThread([this] { queue_.Push([] {}); }).Join();
    ++ended_;
  }

 private:
  TaskQueue& queue_;
  std::atomic<int>& ended_;
};

TEST(TaskQueue, NeitherRunsNorDestroysAJobUnderItsLock) {
  std::atomic<int> ended{0};
  {
    TaskQueue queue(251);
    queue.Push([&] { TestThread([&] { queue.Push([] {}); }).Join(); });
    queue.Push([last = std::make_shared<PushesAtTheEnd>(queue, ended)] {});
  }
  EXPECT_EQ(ended, 1);
}

TEST(TaskQueue, DestroysAJobBeforeTheNextOneRuns) {
  bool gone = false;
  {
    EventFlags go(EventFlags::AutoClear::kNo);
    TaskQueue queue(251);
    queue.Push([&] { go.Wait(1); });
    auto held = std::make_shared<int>();
    const std::weak_ptr<int> watch = held;
    queue.Push([held = std::move(held)] {});
    queue.Push([&, watch] { gone = watch.expired(); });
    go.Set(1);
  }
  EXPECT_TRUE(gone);
}

TEST(TaskQueue, EndsAtOnceWhenNothingIsQueued) {
  for (int round = 0; round < 100; ++round)
    TaskQueue(251);
  EXPECT_EQ(LiveWorkerThreads::Live(), 0u);
  EXPECT_EQ(LiveEventFlags::Live(), 0u);
}

TEST(TaskQueue, EndsAnyNumberOfTimesAndItsWorkerWithTheFirst) {
  int ran = 0;
  TaskQueue queue(251);
  for (int i = 0; i < 3; ++i)
    queue.Push([&] { ++ran; });
  queue.End();
  EXPECT_EQ(ran, 3);
  EXPECT_FALSE(queue.running());
  EXPECT_EQ(LiveWorkerThreads::Live(), 0u);
  queue.End();
}

TEST(TaskQueue, DropsAJobThatComesAfterItsEnd) {
  bool ran = false;
  TaskQueue queue(251);
  queue.End();
  auto held = std::make_shared<int>();
  const std::weak_ptr<int> watch = held;
  queue.Push([&ran, held = std::move(held)] { ran = true; });
  EXPECT_TRUE(watch.expired());
  queue.End();
  EXPECT_FALSE(ran);
}

TEST(TaskQueue, TakesJobsFromManyThreads) {
  constexpr int kAskers = 4;
  constexpr int kJobs = 1000;
  int ran = 0;
  {
    TaskQueue queue(251);
    std::vector<TestThread> threads;
    for (int i = 0; i < kAskers; ++i)
      threads.emplace_back([&] {
        for (int job = 0; job < kJobs; ++job)
          queue.Push([&] { ++ran; });
      });
  }
  EXPECT_EQ(ran, kAskers * kJobs);
}

TEST(TaskQueue, AnInletPushesAndOutlivesTheQueue) {
  auto queue = std::make_unique<TaskQueue>(251);
  const TaskQueue::Inlet inlet = queue->inlet();
  std::atomic<int> runs{0};
  inlet.Push([&] { ++runs; });
  EXPECT_TRUE(Eventually([&] { return runs == 1; }));
  queue.reset();
  EXPECT_EQ(LiveWorkerThreads::Live(), 0u) << "the inlet keeps no queue";
  inlet.Push([&] { ++runs; });
  EXPECT_EQ(runs, 1);
}

}  // namespace
}  // namespace valmere::test
