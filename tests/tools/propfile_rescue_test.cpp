// Damaged property files, and what is rescued of them.
#include "tools/propfile/propfile_rescue.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>

#include "tests/host/subprocess.h"
#include "tests/tools/command_run.h"
#include "tools/commands/commands.h"

namespace valmere::test {
namespace {

using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::StartsWith;
using tools::Rescue;
using tools::RescueLines;
using tools::Sealed;
using namespace std::string_literals;

const std::string kSomeGroup = "99A61D40-20CE-41EA-A579-EB92C6ED94C6";
const std::string kPeriodLine =
    kSomeGroup + ":DA821DC5-948D-4659-9B52-177E4C102129|General:Period=750";
const std::string kZoneLine =
    kSomeGroup + ":CD31503F-4949-40E1-BA2C-B2A88CF420F0|Debug Zone:Init=True";
const std::string kBarLine =
    kSomeGroup + ":C8B8886D-A101-47A9-BC60-477938C53648|General:Name=a=b|c";
const std::string kThreeLines = kPeriodLine + "\n" + kZoneLine + "\n" + kBarLine + "\n";

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

class RescueCommand : public ::testing::Test {
 protected:
  CommandOutcome Run(const std::vector<std::string>& words, tools::OutputOptions options = {}) {
    std::vector<std::string> line{"propfile", "rescue", path_};
    line.insert(line.end(), words.begin(), words.end());
    ::testing::internal::CaptureStderr();
    const CommandOutcome outcome = RunCommand(tools::AddPropfileCommand, line, std::move(options));
    told_ = ::testing::internal::GetCapturedStderr();
    return outcome;
  }
  void Put(const std::string& bytes) const { WriteBytes(path_, bytes); }
  std::size_t FileCount() const {
    const std::filesystem::directory_iterator files(folder_.Path(""));
    return static_cast<std::size_t>(std::distance(begin(files), end(files)));
  }
  static mode_t ModeOf(const std::string& path) {
    struct stat status {};
    EXPECT_EQ(stat(path.c_str(), &status), 0);
    return status.st_mode & 07777;
  }

  const TemporaryFolder folder_;
  const std::string path_ = folder_.Path("Properties.ini");
  const std::string out_ = folder_.Path("out.ini");
  std::string told_;
};

TEST_F(RescueCommand, PrintsTheGoodLinesAndTellsOfTheRest) {
  Put("A1:B2|General:Speed=6=six\nrub\x1b[2Jbish\n" + kZoneLine + "\nxx");
  const CommandOutcome outcome = Run({});
  EXPECT_EQ(outcome.code, 0) << outcome.errors;
  const std::string key = kZoneLine.substr(0, kZoneLine.find('|'));
  EXPECT_EQ(outcome.output, "A1:B2\tGeneral:Speed\t6=six\n" + key + "\tDebug Zone:Init\tTrue\n");
  EXPECT_THAT(told_, StartsWith("valmere: " + path_ +
                                ":2 (bytes 27 to 37): left out: it is no text: "
                                "\"rub\\x1B[2Jbish\"\n"));
  EXPECT_THAT(told_, HasSubstr(path_ + ": the CRC is wrong: 7878 is stored, "));
  EXPECT_THAT(told_, HasSubstr(path_ + ": 2 of 3 lines\n"));
}

TEST_F(RescueCommand, EndsWellWithASoundFile) {
  Put(Sealed(kThreeLines));
  EXPECT_EQ(Run({}).code, 0);
  EXPECT_THAT(told_, AllOf(HasSubstr("the CRC is good: "), HasSubstr(": 3 of 3 lines\n"),
                           Not(HasSubstr("left out"))));
}

TEST_F(RescueCommand, PrintsJsonLines) {
  Put("A1:B2|General:Speed=\xff\n");
  tools::OutputOptions options;
  options.form = tools::OutputForm::kJson;
  const CommandOutcome outcome = Run({}, options);
  EXPECT_THAT(outcome.output,
              StartsWith("{\"line\":1,\"key\":\"A1:B2\",\"names\":\"General:Speed\","
                         "\"value_base64\":\"/w==\"}\n{\"computed_crc\":\""));
  EXPECT_THAT(outcome.output, ::testing::EndsWith("\"rescued\":1,\"lines\":1}\n"));
  EXPECT_THAT(told_, HasSubstr("the CRC is missing"));
}

TEST_F(RescueCommand, EndsWithOneWhenNothingCouldBeRead) {
  const std::string nothing[] = {"",        "x",        "xx",          "\n",
                                 "rubbish", Sealed(""), "a\nb\nc\nxx", std::string(5000, '\0')};
  for (const std::string& bytes : nothing) {
    Put(bytes);
    const CommandOutcome outcome = Run({"--output", out_});
    EXPECT_EQ(outcome.code, 1) << ::testing::PrintToString(bytes);
    EXPECT_EQ(outcome.output, "");
    EXPECT_EQ(outcome.errors, path_ + ": nothing could be read");
    EXPECT_EQ(FileCount(), 1u);
  }
}

TEST_F(RescueCommand, ShowsBytesThatAreNoTextAsEscapes) {
  Put(kPeriodLine +
      "\n\xff\xfe\x9b"
      "2J\nxx");
  EXPECT_EQ(Run({}).code, 0);
  EXPECT_THAT(told_, HasSubstr("\"\\xFF\\xFE\\x9B2J\""));
}

TEST_F(RescueCommand, CutsLongTextsInWhatItTells) {
  Put(kPeriodLine + "\n" + std::string(5000, 'x') + "\nxx");
  EXPECT_EQ(Run({}).code, 0);
  EXPECT_THAT(told_, AllOf(HasSubstr("xxx...\""), Not(HasSubstr(std::string(100, 'x')))));
}

TEST_F(RescueCommand, WritesASoundFileOfTheGoodLines) {
  Put(kPeriodLine + "\nrubbish\n" + kZoneLine + "\n" + kPeriodLine + "\n" + kBarLine);
  ASSERT_EQ(chmod(path_.c_str(), 0640), 0);
  EXPECT_EQ(Run({"--output", out_}).code, 0);
  EXPECT_EQ(BytesOf(out_), Sealed(kPeriodLine + "\n" + kZoneLine + "\n" + kPeriodLine + "\n"));
  EXPECT_EQ(ModeOf(out_), 0640u);
  EXPECT_EQ(FileCount(), 2u);
}

TEST_F(RescueCommand, ReplacesAFileOnlyByForce) {
  Put(kPeriodLine + "\n");
  WriteBytes(out_, "precious");
  const CommandOutcome refused = Run({"--output", out_});
  EXPECT_EQ(refused.code, 1);
  EXPECT_EQ(refused.errors, out_ + " is there already; --force replaces it");
  EXPECT_EQ(BytesOf(out_), "precious");
  EXPECT_EQ(Run({"--output", out_, "--force"}).code, 0);
  EXPECT_EQ(BytesOf(out_), Sealed(kPeriodLine + "\n"));
}

TEST_F(RescueCommand, DoesNotReplaceALinkThatLeadsNowhere) {
  Put(kPeriodLine + "\n");
  std::filesystem::create_symlink(folder_.Path("nowhere"), out_);
  EXPECT_EQ(Run({"--output", out_}).code, 1);
  EXPECT_TRUE(std::filesystem::is_symlink(out_));
}

TEST_F(RescueCommand, MendsTheFileItself) {
  Put(kPeriodLine + "\n" + kZoneLine);
  ASSERT_EQ(chmod(path_.c_str(), 0604), 0);
  EXPECT_EQ(Run({"--output", path_}).code, 1);
  EXPECT_EQ(BytesOf(path_), kPeriodLine + "\n" + kZoneLine);
  EXPECT_EQ(Run({"--output", path_, "--force"}).code, 0);
  EXPECT_EQ(BytesOf(path_), Sealed(kPeriodLine + "\n"));
  EXPECT_EQ(ModeOf(path_), 0604u);
  EXPECT_EQ(FileCount(), 1u);
}

TEST_F(RescueCommand, LeavesNothingBehindWhenItCannotWrite) {
  Put(kPeriodLine + "\n");
  EXPECT_EQ(Run({"--output", folder_.Path("no/such/folder")}).code, 1);
  std::filesystem::create_directory(out_);
  EXPECT_EQ(Run({"--output", out_, "--force"}).errors, out_ + " is no regular file");
  EXPECT_EQ(FileCount(), 2u);
}

TEST_F(RescueCommand, WritesNoFileThatTheServiceWouldNotTake) {
  Put("A:B|n:m=" + std::string(17u << 20, 'x') + "\n");
  const CommandOutcome outcome = Run({"--output", out_});
  EXPECT_EQ(outcome.code, 1);
  EXPECT_THAT(outcome.errors, HasSubstr("the service takes no file above 16 MiB"));
  EXPECT_EQ(FileCount(), 1u);
}

TEST_F(RescueCommand, LooksAtTheFirstPartOfAnEndlessFileAlone) {
  Put(kPeriodLine + "\n");
  std::filesystem::resize_file(path_, 100u << 20);
  const CommandOutcome outcome = Run({});
  EXPECT_EQ(outcome.code, 0);
  EXPECT_THAT(told_, HasSubstr("what lies behind the first 64 MiB"));
}

TEST_F(RescueCommand, RefusesWhatIsNoFile) {
  EXPECT_EQ(Run({}).errors, "cannot read " + path_ + ": No such file or directory");
  ASSERT_EQ(mkfifo(path_.c_str(), 0600), 0);
  EXPECT_EQ(Run({}).errors, path_ + " is no regular file");
}

}  // namespace
}  // namespace valmere::test
