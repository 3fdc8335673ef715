// Lines for a standard error that takes them, and how many of them there may be.
#include "platform/standard_error.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <string>

#include "tests/support/test_thread.h"

namespace valmere::test {
using namespace platform;
namespace {

using ::valmere::test::Eventually;

// What `write` has written, with the line ends of a text.
template <class Write>
std::string Captured(Write write) {
  ::testing::internal::CaptureStderr();
  write();
  std::string text = ::testing::internal::GetCapturedStderr();
  std::erase(text, '\r');
  return text;
}

TEST(ErrorLine, IsItsPartsAndALineEnd) {
  EXPECT_EQ(Captured([] { WriteErrorLine({"error: ", "syntax error"}); }), "error: syntax error\n");
  EXPECT_EQ(Captured([] { WriteErrorLine({}); }), "\n");
}

TEST(ErrorLine, GoesToTheStandardErrorOfTheMoment) {
  EXPECT_EQ(Captured([] { WriteErrorLine({"one"}); }), "one\n");
  EXPECT_EQ(Captured([] { WriteErrorLine({"two"}); }), "two\n");
}

TEST(ErrorLine, IsCutWhenItIsTooLong) {
  const std::string long_text(kLongestErrorLine - 2, 'x');
  const std::string just_fits = Captured([&] { WriteErrorLine({"a", long_text}); });
  EXPECT_EQ(just_fits, "a" + long_text + "\n");
  const std::string cut = Captured([&] { WriteErrorLine({"ab", long_text, "c"}); });
  EXPECT_EQ(cut, "ab" + long_text.substr(1) + "\n");
}

TEST(ErrorLine, LeavesTheErrorNumberAlone) {
  Captured([] {
    errno = ERANGE;
    WriteErrorLine({"one"});
    WriteErrorLineSparingly({"two"});
    EXPECT_EQ(errno, ERANGE);
  });
}

TEST(SparingErrorLines, AreABurstAndSoManyASecondAndToldOf) {
  constexpr std::size_t kLines = 10 * kErrorLineBurst;
  const Ticks start = MonotonicNow();
  const std::string text = Captured([] {
    for (std::size_t i = 0; i < kLines; ++i)
      WriteErrorLineSparingly({"again"});
    WriteErrorLine({"by itself"});
  });
  const Ticks seconds = (MonotonicNow() - start) / (1000 * kTicksPerMillisecond) + 1;
  const auto lines = static_cast<Ticks>(std::count(text.begin(), text.end(), '\n'));
  constexpr Ticks kOwn = 2;  // the last one, and what was left out before it
  EXPECT_LE(lines, Ticks{kErrorLineBurst} + seconds * kErrorLinesPerSecond + 2 * seconds + kOwn);
  EXPECT_NE(text.find(" left out\n"), std::string::npos);
  EXPECT_TRUE(text.ends_with("\nby itself\n")) << text;
}

TEST(SparingErrorLines, GoOnAfterAWhile) {
  std::string all = Captured([] {
    for (std::size_t i = 0; i < 2 * kErrorLineBurst; ++i)
      WriteErrorLineSparingly({"again"});
  });
  EXPECT_TRUE(Eventually([&] {
    all += Captured([] { WriteErrorLineSparingly({"later"}); });
    return all.ends_with("\nlater\n");
  }));
  EXPECT_NE(all.find(" left out\n"), std::string::npos);
}

constexpr Ticks kInterval = 100;

TEST(BurstLimit, LetsABurstThroughAndThenOneForEachInterval) {
  BurstLimit limit(3, kInterval);
  const Ticks start = 12'345;
  for (int i = 0; i < 3; ++i)
    EXPECT_TRUE(limit.Allows(start));
  EXPECT_FALSE(limit.Allows(start));
  EXPECT_FALSE(limit.Allows(start + kInterval - 1));
  EXPECT_TRUE(limit.Allows(start + kInterval));
  EXPECT_FALSE(limit.Allows(start + kInterval));
  EXPECT_TRUE(limit.Allows(start + 2 * kInterval));
}

TEST(BurstLimit, LetsAWholeBurstThroughAgainAfterAQuietTimeAndNoMore) {
  BurstLimit limit(3, kInterval);
  for (int i = 0; i < 3; ++i)
    EXPECT_TRUE(limit.Allows(0));
  const Ticks later = 100 * kInterval;
  for (int i = 0; i < 3; ++i)
    EXPECT_TRUE(limit.Allows(later));
  EXPECT_FALSE(limit.Allows(later));
}

}  // namespace
}  // namespace valmere::test
