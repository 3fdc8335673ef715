#include "net/network_startup.h"

#include <gtest/gtest.h>

namespace valmere {
namespace {

int starts = 0;
int clean_ups = 0;

bool Succeed() noexcept {
  ++starts;
  return true;
}
bool Fail() noexcept {
  ++starts;
  return false;
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

TEST_F(NetworkStartupTest, LeavesALibraryAloneThatDidNotStart) {
  {
    const NetworkStartup guard(Fail, CleanUp);
    EXPECT_FALSE(guard.started());
    EXPECT_EQ(1, starts);
  }
  EXPECT_EQ(0, clean_ups);
}

TEST_F(NetworkStartupTest, StartsTheRealLibrary) {
  const NetworkStartup guard;
  EXPECT_TRUE(guard.started());
}

}  // namespace
}  // namespace valmere
