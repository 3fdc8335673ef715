#include "net/null_listener.h"

#include <gtest/gtest.h>

#include <atomic>

#include "tests/support/test_thread.h"

namespace valmere::test {
namespace {

// An accept on a thread of its own.
struct BlockedAccept {
  explicit BlockedAccept(Listener& listener)
      : thread([this, &listener] {
          started.Release();
          empty = listener.Accept() == nullptr;
          returned = true;
        }) {
    started.Wait();
  }
  platform::Semaphore started;
  std::atomic<bool> empty{false};
  std::atomic<bool> returned{false};
  TestThread thread;
};

// Time for a thread to do what it must not do.
void GiveTime() {
  platform::Semaphore never;
  never.WaitUntil(platform::MonotonicNow() + 50 * platform::kTicksPerMillisecond);
}

TEST(NullListener, AlwaysOpens) {
  NullListener listener;
  EXPECT_EQ(0, listener.Open());
  EXPECT_EQ(0, listener.Open());
}

TEST(NullListener, AcceptsNothingOnceClosed) {
  NullListener listener;
  ASSERT_EQ(0, listener.Open());
  listener.Close();
  EXPECT_EQ(nullptr, listener.Accept());
  EXPECT_EQ(nullptr, listener.Accept());
}

TEST(NullListener, BlocksAnAcceptUntilItIsClosed) {
  NullListener listener;
  ASSERT_EQ(0, listener.Open());
  BlockedAccept accept(listener);
  GiveTime();
  EXPECT_FALSE(accept.returned);
  listener.Close();
  accept.thread.Join();
  EXPECT_TRUE(accept.empty);
}

TEST(NullListener, CloseEndsEveryBlockedAccept) {
  NullListener listener;
  ASSERT_EQ(0, listener.Open());
  BlockedAccept first(listener);
  BlockedAccept second(listener);
  listener.Close();
  first.thread.Join();
  second.thread.Join();
  EXPECT_TRUE(first.empty);
  EXPECT_TRUE(second.empty);
}

TEST(NullListener, ClosesAnyNumberOfTimes) {
  NullListener listener;
  listener.Close();
  listener.Close();
  EXPECT_EQ(nullptr, listener.Accept());
}

TEST(NullListener, BlocksAgainWhenItIsOpenedAgain) {
  NullListener listener;
  listener.Close();
  ASSERT_EQ(0, listener.Open());
  BlockedAccept accept(listener);
  GiveTime();
  EXPECT_FALSE(accept.returned);
  listener.Close();
}

}  // namespace
}  // namespace valmere::test
