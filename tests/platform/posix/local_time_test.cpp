// The zone that TZ names is the device's.
#include "platform/local_time.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>

namespace valmere::test {
using namespace platform;
namespace {

int MinuteOfTheDayIn(const char* zone) {
  setenv("TZ", zone, 1);
  tzset();
  const std::tm now = LocalNow();
  return now.tm_hour * 60 + now.tm_min;
}

TEST(LocalNow, IsInTheDevicesZone) {
  const int here = MinuteOfTheDayIn("UTC0");
  const int east = MinuteOfTheDayIn("EAST-5:30");
  unsetenv("TZ");
  tzset();
  const int ahead = (east - here + 24 * 60) % (24 * 60);
  EXPECT_GE(ahead, 330);
  EXPECT_LE(ahead, 331) << "a minute may have begun in between";
}

}  // namespace
}  // namespace valmere::test
