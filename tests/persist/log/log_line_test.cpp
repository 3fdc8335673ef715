#include "persist/log/log_line.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <ctime>
#include <string>

namespace valmere::test {
namespace {

std::tm MakeTime(int year, int month, int day, int weekday, int hour, int minute, int second) {
  std::tm time{};
  time.tm_year = year - 1900;
  time.tm_mon = month - 1;
  time.tm_mday = day;
  time.tm_wday = weekday;
  time.tm_hour = hour;
  time.tm_min = minute;
  time.tm_sec = second;
  return time;
}

TEST(LogLine, JoinsTheTimeACommaTheMessageAndCrLf) {
  EXPECT_EQ(FormatLogLine(MakeTime(2026, 11, 16, 1, 9, 30, 0), "message text"),
            "Mon Nov 16 09:30:00 2026,message text\r\n");
}

TEST(LogLine, TakesTheMessageByteForByte) {
  const std::string message("a\0\x80\xFF\n,b\"", 8);
  EXPECT_EQ(FormatLogLine(MakeTime(2026, 11, 16, 1, 9, 30, 0), message),
            "Mon Nov 16 09:30:00 2026," + message + "\r\n");
  EXPECT_EQ(FormatLogLine(MakeTime(2026, 11, 16, 1, 9, 30, 0), ""),
            "Mon Nov 16 09:30:00 2026,\r\n");
}

// The fields as the C standard prints them; the C library's own asctime differs on some systems.
std::string StandardTime(const std::tm& time) {
  constexpr const char* kDays[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
  constexpr const char* kMonths[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                     "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
  char text[64] = {};
  std::snprintf(text, sizeof text, "%.3s %.3s%3d %.2d:%.2d:%.2d %d", kDays[time.tm_wday],
                kMonths[time.tm_mon], time.tm_mday, time.tm_hour, time.tm_min, time.tm_sec,
                1900 + time.tm_year);
  return text;
}

TEST(LogLine, HasTheTimeAsTheStandardPrintsIt) {
  for (int day = 1; day <= 31; ++day) {
    const std::tm time =
        MakeTime(1999 + 3 * day, 1 + day % 12, day, day % 7, day % 24, 2 * day - 2, day + 29);
    EXPECT_EQ(FormatLogLine(time, ""), StandardTime(time) + ",\r\n");
  }
}

TEST(LogLine, StandsATimeThatIsNone) {
  EXPECT_EQ(FormatLogLine(std::tm{}, "m"), "Sun Jan  0 00:00:00 1900,m\r\n");
  EXPECT_EQ(FormatLogLine(MakeTime(2026, 13, 1, 7, 0, 0, 0), "m"),
            "??? ???  1 00:00:00 2026,m\r\n");
  EXPECT_EQ(FormatLogLine(MakeTime(2026, 0, 1, -1, 0, 0, 0), "m"),
            "??? ???  1 00:00:00 2026,m\r\n");
}

TEST(LogQuote, LeavesPrintableTextAsItIs) {
  EXPECT_EQ(QuoteForLog(""), "\"\"");
  EXPECT_EQ(QuoteForLog("Name, value = 1 ~"), "\"Name, value = 1 ~\"");
}

TEST(LogQuote, EscapesWhatCouldForgeALineOrEndTheQuote) {
  EXPECT_EQ(QuoteForLog("x\r\nMon Nov 16 09:30:00 2026,forged"),
            "\"x\\r\\nMon Nov 16 09:30:00 2026,forged\"");
  EXPECT_EQ(QuoteForLog("a\"b\\c\td"), "\"a\\\"b\\\\c\\td\"");
  EXPECT_EQ(QuoteForLog(std::string_view("\0\x1B\x7F\x80\xFF", 5)),
            "\"\\x00\\x1B\\x7F\\x80\\xFF\"");
}

TEST(LogQuote, LeavesNoByteUnescapedThatIsNotPrintable) {
  for (int byte = 0; byte < 256; ++byte) {
    const std::string quote = QuoteForLog(std::string(1, static_cast<char>(byte)));
    for (const char character : quote)
      EXPECT_TRUE(character >= 0x20 && character < 0x7F) << byte;
  }
}

TEST(LogQuote, CutsALongText) {
  const std::string longest(kLongestLogQuote, 'a');
  EXPECT_EQ(QuoteForLog(longest), "\"" + longest + "\"");
  EXPECT_EQ(QuoteForLog(longest + "b"), "\"" + longest + "\"...");
}

}  // namespace
}  // namespace valmere::test
