#include "platform/local_time.h"

#include <gtest/gtest.h>

namespace valmere::test {
using namespace platform;
namespace {

TEST(LocalNow, IsTheWallClocksTime) {
  const std::time_t before = std::time(nullptr);
  std::tm now = LocalNow();
  const std::time_t after = std::time(nullptr);
  now.tm_isdst = -1;  // mktime finds out
  const std::time_t told = std::mktime(&now);
  EXPECT_GE(told, before);
  EXPECT_LE(told, after);
}

}  // namespace
}  // namespace valmere::test
