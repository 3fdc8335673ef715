// Damaged property files, and what is rescued of them.
#include "tools/propfile/propfile_rescue.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "tests/tools/propfile_samples.h"

namespace valmere::test {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using tools::Rescue;
using tools::RescueLines;
using tools::Sealed;
using namespace std::string_literals;

std::vector<std::string> LinesOf(const Rescue& rescue) {
  std::vector<std::string> lines;
  for (const tools::PropfileLine& line : rescue.lines) {
    lines.push_back(line.text);
  }
  return lines;
}

std::vector<std::string> Rescued(const std::string& bytes) {
  return LinesOf(RescueLines(bytes));
}

TEST(RescueLines, TakesAllOfASoundFile) {
  const Rescue rescue = RescueLines(Sealed(kThreeLines));
  EXPECT_THAT(LinesOf(rescue), ElementsAre(kPeriodLine, kZoneLine, kBarLine));
  EXPECT_TRUE(rescue.crc_is_good());
  EXPECT_THAT(rescue.left_out, IsEmpty());
  EXPECT_EQ(rescue.line_count, 3u);
  EXPECT_EQ(rescue.lines[2].value, "a=b|c");
}

TEST(RescueLines, TakesTheWholeLinesOfAFileThatIsCutAtAnyByte) {
  const std::string sound = Sealed(kThreeLines);
  for (std::size_t length = 0; length < sound.size(); ++length) {
    const std::string torn = sound.substr(0, length);
    const auto whole = static_cast<std::size_t>(std::count(
        torn.begin(),
        torn.begin() + static_cast<std::ptrdiff_t>(std::min(length, kThreeLines.size())), '\n'));
    const Rescue rescue = RescueLines(torn);
    const std::vector<std::string> all{kPeriodLine, kZoneLine, kBarLine};
    EXPECT_EQ(LinesOf(rescue), std::vector<std::string>(
                                   all.begin(), all.begin() + static_cast<std::ptrdiff_t>(whole)))
        << length;
    EXPECT_FALSE(rescue.crc_is_good()) << length;
  }
}

TEST(RescueLines, TakesTheOtherLinesWhereAByteIsFlipped) {
  const std::string sound = Sealed(kThreeLines);
  const std::string all[] = {kPeriodLine, kZoneLine, kBarLine};
  for (std::size_t at = 0; at < sound.size(); ++at) {
    for (int bit = 0; bit < 8; ++bit) {
      std::string flipped = sound;
      flipped[at] = static_cast<char>(flipped[at] ^ 1 << bit);
      const std::vector<std::string> rescued = Rescued(flipped);
      std::size_t start = 0;
      for (const std::string& line : all) {
        const bool hit = at >= start && at <= start + line.size();
        // A line feed that is lost joins its line with the next.
        const bool joined = start > 0 && at == start - 1;
        start += line.size() + 1;
        if (hit || joined) continue;
        EXPECT_THAT(rescued, ::testing::Contains(line)) << at << " " << bit;
      }
      EXPECT_FALSE(RescueLines(flipped).crc_is_good());
    }
  }
}

TEST(RescueLines, KnowsATrailerWhetherOrNotItIsRight) {
  for (const std::string trailer : {"xx", "x\n", "\nx", "\n\n", "xx\n", "x", "\n", ""}) {
    const Rescue rescue = RescueLines(kThreeLines + trailer);
    EXPECT_THAT(LinesOf(rescue), ElementsAre(kPeriodLine, kZoneLine, kBarLine))
        << ::testing::PrintToString(trailer);
    EXPECT_THAT(rescue.left_out, IsEmpty()) << ::testing::PrintToString(trailer);
    EXPECT_EQ(rescue.line_count, 3u) << ::testing::PrintToString(trailer);
    EXPECT_EQ(rescue.stored_crc.has_value(), trailer.size() == 2);
  }
}

TEST(RescueLines, KnowsATrailerBehindRubbish) {
  const Rescue rescue = RescueLines(kPeriodLine + "\nrubbish\nxx");
  EXPECT_EQ(rescue.stored_crc, 0x7878);
  ASSERT_EQ(rescue.left_out.size(), 1u);
  EXPECT_EQ(rescue.left_out[0].beginning, "rubbish");
  EXPECT_EQ(rescue.line_count, 2u);
}

TEST(RescueLines, LeavesOutALastLineThatMayHaveBeenCutOff) {
  for (const std::string& bytes :
       {kPeriodLine + "\n" + kZoneLine, Sealed(kPeriodLine + "\n" + kZoneLine)}) {
    const Rescue rescue = RescueLines(bytes);
    EXPECT_THAT(LinesOf(rescue), ElementsAre(kPeriodLine));
    ASSERT_EQ(rescue.left_out.size(), 1u);
    EXPECT_THAT(rescue.left_out[0].why, HasSubstr("its line feed is missing"));
    EXPECT_EQ(rescue.left_out[0].first_line, 2u);
  }
}

TEST(RescueLines, LeavesOutWhatNoServiceWrites) {
  const std::string lines[] = {"A\x01:B|n:m=1", "A\xff:B|n:m=1", "A:B|n\x7f:m=1", "A:B|n:m=1\0\0"s,
                               "|n:m=1",        "A:B n:m=1",     "A:B|n:m",       "",
                               "\0\0\0\0"s};
  for (const std::string& line : lines) {
    const Rescue rescue = RescueLines(Sealed(kPeriodLine + "\n" + line + "\n" + kZoneLine + "\n"));
    EXPECT_THAT(LinesOf(rescue), ElementsAre(kPeriodLine, kZoneLine))
        << ::testing::PrintToString(line);
    ASSERT_EQ(rescue.left_out.size(), 1u);
    EXPECT_EQ(rescue.left_out[0].begin, kPeriodLine.size() + 1);
    EXPECT_EQ(rescue.left_out[0].end, kPeriodLine.size() + 1 + line.size());
  }
}

TEST(RescueLines, FindsNextToNothingInRandomBytes) {
  std::string bytes;
  unsigned random = 1;
  while (bytes.size() < (8u << 20)) {
    random = random * 1103515245 + 12345;
    bytes += static_cast<char>(random >> 16);
  }
  EXPECT_LE(Rescued(bytes).size(), 1u);
  EXPECT_THAT(Rescued(bytes + "\n" + kThreeLines + bytes),
              ::testing::IsSupersetOf({kPeriodLine, kZoneLine, kBarLine}));
}

TEST(RescueLines, TakesAnyOtherByteOfAValue) {
  const std::string line = "A:B|n:m=\t\r\x01\x7f\xff";
  EXPECT_THAT(Rescued(Sealed(line + "\n")), ElementsAre(line));
}

TEST(RescueLines, FindsTheServicesOwnLineBehindAForeignHead) {
  for (const std::string& head : {"\x7f"
                                  "ELF\x01\x02"s,
                                  std::string(4096, '\0'), "a|b\0"s}) {
    const Rescue rescue = RescueLines(head + Sealed(kThreeLines));
    EXPECT_THAT(LinesOf(rescue), ElementsAre(kPeriodLine, kZoneLine, kBarLine));
    ASSERT_EQ(rescue.left_out.size(), 1u);
    EXPECT_EQ(rescue.left_out[0].end, head.size());
    EXPECT_EQ(rescue.lines[0].start, head.size());
    EXPECT_EQ(rescue.line_count, 3u);
  }
}

TEST(RescueLines, FindsTheServicesOwnLineBehindARunOfNuls) {
  const std::string cut = kPeriodLine.substr(0, kPeriodLine.size() - 2);
  EXPECT_THAT(Rescued(cut + std::string(512, '\0') + kZoneLine + "\n" + kBarLine + "\nxx"),
              ElementsAre(kZoneLine, kBarLine));
}

TEST(RescueLines, LeavesOutAForeignTail) {
  const Rescue rescue = RescueLines(Sealed(kThreeLines) + "\n#!/bin/sh\necho hello\n");
  EXPECT_THAT(LinesOf(rescue), ElementsAre(kPeriodLine, kZoneLine, kBarLine));
  EXPECT_FALSE(rescue.crc_is_good());
}

TEST(RescueLines, KeepsBothOfTwoLinesWithOneKey) {
  EXPECT_THAT(Rescued(Sealed("A:B|n:m=1\nA:B|n:m=2\n")), ElementsAre("A:B|n:m=1", "A:B|n:m=2"));
}

TEST(RescueLines, JoinsPiecesOfOneKindThatFollowEachOther) {
  const Rescue rescue = RescueLines("one\ntwo\nthree\n" + kPeriodLine + "\nfour\nxx");
  ASSERT_EQ(rescue.left_out.size(), 2u);
  EXPECT_EQ(rescue.left_out[0].first_line, 1u);
  EXPECT_EQ(rescue.left_out[0].last_line, 3u);
  EXPECT_EQ(rescue.left_out[0].end, 13u);
  EXPECT_EQ(rescue.left_out[0].beginning, "one");
  EXPECT_EQ(rescue.left_out[1].first_line, 5u);
}

TEST(RescueLines, HoldsNoMoreThanItTellsOf) {
  std::string bytes;
  for (std::size_t i = 0; i < tools::kMostListed + 7; ++i) {
    bytes += "rubbish\nA:B|n:m=1\n";
  }
  const Rescue rescue = RescueLines(bytes);
  EXPECT_EQ(rescue.left_out.size(), tools::kMostListed);
  EXPECT_EQ(rescue.unlisted, 7u);
  EXPECT_EQ(rescue.lines.size(), tools::kMostListed + 7);
}

TEST(RescueLines, KeepsNoMoreLinesThanItsLimit) {
  std::string bytes;
  for (std::size_t i = 0; i < tools::kMostRescuedLines + 7; ++i) {
    bytes += "a|=\n";
  }
  const Rescue rescue = RescueLines(bytes);
  EXPECT_EQ(rescue.lines.size(), tools::kMostRescuedLines);
  ASSERT_EQ(rescue.left_out.size(), 1u);
  EXPECT_EQ(rescue.left_out[0].last_line, tools::kMostRescuedLines + 7);
}

// Each would take hours if the rest were looked at from every place where a line could begin.
TEST(RescueLines, TakesNoLongerForHostileBytesThanForOthers) {
  const std::string key = kPeriodLine.substr(0, kPeriodLine.find('|') + 1);
  for (const std::string& piece : {key, key + "n=\0"s, "|"s, "\n"s, "|=\n"s, "\0\n"s}) {
    std::string bytes;
    while (bytes.size() < (4u << 20)) {
      bytes += piece;
    }
    EXPECT_THAT(Rescued(bytes), IsEmpty());
  }
}

}  // namespace
}  // namespace valmere::test
