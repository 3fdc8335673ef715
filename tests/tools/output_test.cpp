// What may reach a terminal.
#include "tools/output/output.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>

namespace valmere::test {
namespace {

TEST(Output, EscapesWhatSteersATerminal) {
  EXPECT_EQ(tools::EscapeControls("plain \xc3\xa9 text"), "plain \xc3\xa9 text");
  EXPECT_EQ(tools::EscapeControls("a\nb\tc\rd"), "a\\nb\\tc\\rd");
  EXPECT_EQ(tools::EscapeControls("\x1b[2J\x7f"), "\\x1B[2J\\x7F");
  EXPECT_EQ(tools::EscapeControls("\xc2\x9b"
                                  "1m \xc2\xa0"),
            "\\xC2\\x9B1m \xc2\xa0");
  EXPECT_EQ(tools::EscapeControls(std::string("\0\xc2", 2)), "\\x00\xc2");
}

TEST(Output, LeavesAPipeUnchanged) {
  std::FILE* file = std::tmpfile();
  tools::Output out(file);
  out.Line(
      "a\x1b"
      "b");
  out.Flush();
  std::rewind(file);
  char line[16] = {};
  ASSERT_NE(std::fgets(line, sizeof(line), file), nullptr);
  EXPECT_STREQ(line,
               "a\x1b"
               "b\n");
  EXPECT_FALSE(out.failed());
  std::fclose(file);
}

TEST(Output, EscapesOnATerminal) {
  const int terminal = posix_openpt(O_RDWR | O_NOCTTY);
  ASSERT_GE(terminal, 0);
  ASSERT_EQ(grantpt(terminal), 0);
  ASSERT_EQ(unlockpt(terminal), 0);
  std::FILE* file = std::fopen(ptsname(terminal), "r+");
  ASSERT_NE(file, nullptr);
  tools::Output out(file);
  out.Line(
      "a\x1b"
      "b");
  out.Flush();
  char shown[32] = {};
  ASSERT_GT(read(terminal, shown, sizeof(shown) - 1), 0);
  EXPECT_STREQ(shown, "a\\x1Bb\r\n");
  std::fclose(file);
  close(terminal);
}

TEST(Output, NoticesThatNothingCanBeWritten) {
  std::FILE* file = std::fopen("/dev/full", "w");
  ASSERT_NE(file, nullptr);
  tools::Output out(file);
  out.Line("text");
  out.Flush();
  EXPECT_TRUE(out.failed());
  std::fclose(file);
}

}  // namespace
}  // namespace valmere::test
