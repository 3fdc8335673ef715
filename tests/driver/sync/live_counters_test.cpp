#include "driver/sync/live_counters.h"

#include <gtest/gtest.h>

#include <vector>

#include "driver/sync/event_flags.h"
#include "driver/sync/task_queue.h"
#include "driver/sync/worker_thread.h"
#include "tests/support/test_thread.h"

namespace valmere::test {
namespace {

TEST(LiveCounters, ReadZeroWhereNothingLives) {
  EXPECT_EQ(LiveWorkerThreads::Live(), 0u);
  EXPECT_EQ(LiveEventFlags::Live(), 0u);
  EXPECT_EQ(LiveProperties::Live(), 0u);
}

TEST(LiveCounters, CountEachKindForItself) {
  {
    const EventFlags flags(EventFlags::AutoClear::kNo);
    const LiveProperties property;
    const LiveProperties another;
    EXPECT_EQ(LiveEventFlags::Live(), 1u);
    EXPECT_EQ(LiveProperties::Live(), 2u);
    EXPECT_EQ(LiveWorkerThreads::Live(), 0u);
    // Counted from construction, whether started or not.
    const WorkerThread worker([] {}, 249);
    EXPECT_EQ(LiveWorkerThreads::Live(), 1u);
    {
      const TaskQueue queue(251);
      EXPECT_EQ(LiveWorkerThreads::Live(), 2u);
      EXPECT_GT(LiveEventFlags::Live(), 1u);
    }
    EXPECT_EQ(LiveWorkerThreads::Live(), 1u);
    EXPECT_EQ(LiveEventFlags::Live(), 1u);
  }
  EXPECT_EQ(LiveWorkerThreads::Live(), 0u);
  EXPECT_EQ(LiveEventFlags::Live(), 0u);
  EXPECT_EQ(LiveProperties::Live(), 0u);
}

TEST(LiveCounters, CountOnManyThreadsAtOnce) {
  {
    std::vector<TestThread> threads;
    for (int i = 0; i < 4; ++i)
      threads.emplace_back([] {
        for (int round = 0; round < 2000; ++round) {
          const EventFlags flags(EventFlags::AutoClear::kYes);
          EXPECT_GT(LiveEventFlags::Live(), 0u);
        }
      });
  }
  EXPECT_EQ(LiveEventFlags::Live(), 0u);
}

}  // namespace
}  // namespace valmere::test
