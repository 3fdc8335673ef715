#include "host/socket/patience.h"

#include <gtest/gtest.h>
#include <poll.h>

#include <chrono>

namespace valmere::test {
using namespace host;
namespace {

using std::chrono::milliseconds;

// A wait for nothing.
bool Sleep(int time) {
  poll(nullptr, 0, time);
  return false;
}

TEST(Patience, IsOverWhenTheWaitsHaveTakenItsTime) {
  Patience patience(milliseconds(30));
  EXPECT_FALSE(patience.over());
  while (!patience.over()) {
    EXPECT_FALSE(patience.Spend([](int time) {
      EXPECT_LE(time, 30);
      return Sleep(time);
    }));
  }
}

TEST(Patience, CountsAWaitThatTookFarTooLongAsOneThatDidNot) {
  // The first wait is for a second at most; a stop of the program makes it take two.
  Patience patience(milliseconds(1500));
  patience.Spend([](int time) {
    EXPECT_EQ(time, 1000);
    return Sleep(2 * time);
  });
  EXPECT_FALSE(patience.over());
  patience.Spend([](int time) {
    EXPECT_GE(time, 400);
    return Sleep(time);
  });
}

TEST(Patience, CountsOnlyTheTimeOfWaits) {
  Patience patience(milliseconds(50));
  Sleep(100);
  EXPECT_FALSE(patience.over());
  patience.Spend([](int time) {
    EXPECT_EQ(time, 50);
    return true;
  });
  EXPECT_FALSE(patience.over());
}

TEST(Patience, NeverAsksForAnEndlessWait) {
  Patience patience(milliseconds(5));
  for (int i = 0; i < 3; ++i) {
    patience.Spend([](int time) {
      EXPECT_GE(time, 0);
      return Sleep(time + 20);
    });
  }
  EXPECT_TRUE(patience.over());
}

}  // namespace
}  // namespace valmere::test
