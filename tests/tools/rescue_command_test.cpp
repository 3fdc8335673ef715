// The command that rescues what it can of a damaged property file.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "tests/host/subprocess.h"
#include "tests/tools/command_run.h"
#include "tests/tools/propfile_samples.h"
#include "tools/commands/commands.h"
#include "tools/propfile/propfile_text.h"

namespace valmere::test {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;
using tools::Sealed;
using namespace std::string_literals;

class RescueCommand : public ::testing::Test {
 protected:
  CommandOutcome Run(const std::vector<std::string>& words, tools::OutputOptions options = {}) {
    std::vector<std::string> line{"propfile", "rescue", path_};
    line.insert(line.end(), words.begin(), words.end());
    ::testing::internal::CaptureStderr();
    const CommandOutcome outcome = RunCommand(tools::AddPropfileCommand, line, std::move(options));
    errors_ = ::testing::internal::GetCapturedStderr();
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
  std::string errors_;
};

TEST_F(RescueCommand, PrintsTheGoodLinesAndTellsOfTheRest) {
  Put("A1:B2|General:Speed=6=six\nrub\x1b[2Jbish\n" + kZoneLine + "\nxx");
  const CommandOutcome outcome = Run({});
  EXPECT_EQ(outcome.code, 0) << outcome.errors;
  const std::string key = kZoneLine.substr(0, kZoneLine.find('|'));
  EXPECT_EQ(outcome.output, "A1:B2\tGeneral:Speed\t6=six\n" + key + "\tDebug Zone:Init\tTrue\n");
  EXPECT_THAT(errors_, StartsWith("valmere: " + path_ +
                                  ":2 (bytes 27 to 37): left out: it is no text: "
                                  "\"rub\\x1B[2Jbish\"\n"));
  EXPECT_THAT(errors_, HasSubstr(path_ + ": the CRC is wrong: 7878 is stored, "));
  EXPECT_THAT(errors_, HasSubstr(path_ + ": 2 of 3 lines\n"));
}

TEST_F(RescueCommand, EndsWellWithASoundFile) {
  Put(Sealed(kThreeLines));
  EXPECT_EQ(Run({}).code, 0);
  EXPECT_THAT(errors_, AllOf(HasSubstr("the CRC is good: "), HasSubstr(": 3 of 3 lines\n"),
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
  EXPECT_THAT(errors_, HasSubstr("the CRC is missing"));
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
  EXPECT_THAT(errors_, HasSubstr("\"\\xFF\\xFE\\x9B2J\""));
}

TEST_F(RescueCommand, CutsLongTextsInWhatItTells) {
  Put(kPeriodLine + "\n" + std::string(5000, 'x') + "\nxx");
  EXPECT_EQ(Run({}).code, 0);
  EXPECT_THAT(errors_, AllOf(HasSubstr("xxx...\""), Not(HasSubstr(std::string(100, 'x')))));
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
  EXPECT_THAT(errors_, HasSubstr("what lies behind the first 64 MiB"));
}

TEST_F(RescueCommand, RefusesWhatIsNoFile) {
  EXPECT_EQ(Run({}).errors, "cannot read " + path_ + ": No such file or directory");
  ASSERT_EQ(mkfifo(path_.c_str(), 0600), 0);
  EXPECT_EQ(Run({}).errors, path_ + " is no regular file");
}

}  // namespace
}  // namespace valmere::test
