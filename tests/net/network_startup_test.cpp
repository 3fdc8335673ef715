#include "net/network_startup.h"

#include <gtest/gtest.h>

namespace valmere::test {
namespace {

int starts = 0;
int clean_ups = 0;

std::uint16_t Succeed() noexcept {
  ++starts;
  return 0x0202;
}
std::uint16_t Fail() noexcept {
  ++starts;
  return 0;
}
// The lower byte is the major version.
std::uint16_t GiveAnOlderOne() noexcept {
  ++starts;
  return 0x0102;
}
void CleanUp() noexcept {
  ++clean_ups;
}

class NetworkStartupTest : public ::testing::Test {
 protected:
  void SetUp() override { starts = clean_ups = 0; }
};

TEST_F(NetworkStartupTest, StartsTheLibraryAndCleansItUpWhenItDies) {
  {
    const NetworkStartup guard(Succeed, CleanUp);
    EXPECT_TRUE(guard.started());
    EXPECT_EQ(1, starts);
    EXPECT_EQ(0, clean_ups);
  }
  EXPECT_EQ(1, starts);
  EXPECT_EQ(1, clean_ups);
}

TEST_F(NetworkStartupTest, CleansALibraryUpAtOnceThatDidNotStartOrIsOfAnotherVersion) {
  for (const NetworkStartup::StartFunction start : {Fail, GiveAnOlderOne}) {
    SetUp();
    {
      const NetworkStartup guard(start, CleanUp);
      EXPECT_FALSE(guard.started());
      EXPECT_EQ(1, starts);
      EXPECT_EQ(1, clean_ups);
    }
    EXPECT_EQ(1, clean_ups);
  }
}

TEST_F(NetworkStartupTest, StartsTheRealLibrary) {
  const NetworkStartup guard;
  EXPECT_TRUE(guard.started());
}

}  // namespace
}  // namespace valmere::test
