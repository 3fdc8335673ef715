#include "store/property/listener_list.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <vector>

#include "tests/store/engine/start_gate.h"
#include "tests/support/test_thread.h"

namespace valmere::test {
namespace {

using ::testing::ElementsAre;

void CallAll(const ListenerList& list) {
  list.Walk([](const PropertyListener& listener) { listener(nullptr); });
}

TEST(ListenerList, WalksNothingWhenItIsEmpty) {
  const ListenerList list;
  list.Walk([](const PropertyListener&) { FAIL(); });
}

TEST(ListenerList, WalksInOrderOfAppending) {
  ListenerList list;
  std::vector<int> calls;
  for (int i = 1; i <= 3; ++i)
    list.Append([&calls, i](const std::shared_ptr<Property>&) { calls.push_back(i); });
  CallAll(list);
  EXPECT_THAT(calls, ElementsAre(1, 2, 3));
}

TEST(ListenerList, CallsAListenerThatAListenerAppendedFromTheNextWalkOn) {
  ListenerList list;
  int late_calls = 0;
  list.Append([&](const std::shared_ptr<Property>&) {
    list.Append([&](const std::shared_ptr<Property>&) { ++late_calls; });
  });
  CallAll(list);
  EXPECT_EQ(late_calls, 0);
  CallAll(list);
  EXPECT_EQ(late_calls, 1);
}

TEST(ListenerList, LetsItsListenersGoWithItself) {
  const auto held = std::make_shared<int>(0);
  {
    ListenerList list;
    for (int i = 0; i < 3; ++i)
      list.Append([held](const std::shared_ptr<Property>&) {});
    EXPECT_EQ(held.use_count(), 4);
  }
  EXPECT_EQ(held.use_count(), 1);
}

TEST(ListenerList, LosesNoListenerOfThreadsThatAppendAtOnce) {
  constexpr int kThreads = 2;
  constexpr int kEach = 20;
  constexpr int kRounds = 100;
  for (int round = 0; round < kRounds; ++round) {
    ListenerList list;
    std::atomic<int> calls{0};
    std::atomic<int> short_walks{0};
    {
      StartGate gate(kThreads);
      std::vector<TestThread> threads;
      for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([&] {
          gate.Pass();
          for (int appended = 1; appended <= kEach; ++appended) {
            list.Append([&](const std::shared_ptr<Property>&) { ++calls; });
            int seen = 0;
            list.Walk([&](const PropertyListener&) { ++seen; });
            if (seen < appended) ++short_walks;
          }
        });
      }
    }
    CallAll(list);
    ASSERT_EQ(calls, kThreads * kEach);
    ASSERT_EQ(short_walks, 0);
  }
}

}  // namespace
}  // namespace valmere::test
