// Property files looked into and mended without the service.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "persist/file/property_file.h"
#include "tests/host/subprocess.h"
#include "tests/support/hex_example.h"
#include "tests/support/memory_file_system.h"
#include "tests/tools/command_run.h"
#include "tools/commands/commands.h"
#include "tools/propfile/propfile_text.h"

namespace valmere::test {
namespace {

using ::testing::HasSubstr;
using tools::PropfileText;
using tools::ReadPropfileText;
using tools::Sealed;

const std::string kSpeedLine = "A1:B2|General:Speed=6=six\n";
const std::string kNameLine = "A1:C3|General:Name=\n";
const std::string kMotorLine = "D4:E5|Motor:Speed=fast\n";

class Propfile : public ::testing::Test {
 protected:
  CommandOutcome Run(const std::vector<std::string>& words) const {
    std::vector<std::string> line{"propfile", words.front(), path_};
    line.insert(line.end(), words.begin() + 1, words.end());
    return RunCommand(tools::AddPropfileCommand, line);
  }
  void Put(const std::string& bytes) const { WriteBytes(path_, bytes); }
  std::string Get() const { return BytesOf(path_); }

  const TemporaryFolder folder_;
  const std::string path_ = folder_.Path("Properties.ini");
};

TEST_F(Propfile, ShowsKeyNamesAndValueOfEachLine) {
  Put(HexExample(VALMERE_FORMATS "/property-file.md"));
  const CommandOutcome outcome = Run({"show"});
  EXPECT_EQ(outcome.code, 0) << outcome.errors;
  EXPECT_EQ(outcome.output, "A1:B2\tGeneral:Speed\t6=six\nA1:C3\tGeneral:Name\t\n");
}

TEST_F(Propfile, ShowsACorruptFileAndSaysThatItIs) {
  Put(kSpeedLine + "rubbish\n" + "xx");
  const CommandOutcome outcome = Run({"show"});
  EXPECT_EQ(outcome.code, 1);
  EXPECT_EQ(outcome.output, "A1:B2\tGeneral:Speed\t6=six\nrubbish\n");
  EXPECT_THAT(outcome.errors, HasSubstr("the CRC is wrong: 7878 is stored"));
}

TEST_F(Propfile, ShowsAFileAsJsonLines) {
  Put(Sealed(kSpeedLine + "rubbish\nA:B|n:m=\xff\n"));
  tools::OutputOptions options;
  options.form = tools::OutputForm::kJson;
  const CommandOutcome outcome =
      RunCommand(tools::AddPropfileCommand, {"propfile", "show", path_}, options);
  EXPECT_EQ(outcome.code, 1);
  const std::string crc = tools::CrcText(ReadPropfileText(Get()).computed_crc);
  EXPECT_EQ(outcome.output,
            "{\"line\":1,\"key\":\"A1:B2\",\"names\":\"General:Speed\",\"value\":\"6=six\"}\n"
            "{\"line\":2,\"text\":\"rubbish\",\"fault\":\"there is no \\\"|\\\"\"}\n"
            "{\"line\":3,\"key\":\"A:B\",\"names\":\"n:m\",\"value_base64\":\"/w==\"}\n"
            "{\"stored_crc\":\"" +
                crc + "\",\"computed_crc\":\"" + crc + "\",\"sound\":false}\n");
}

TEST_F(Propfile, FindsNoFaultWithTheDocumentedExample) {
  Put(HexExample(VALMERE_FORMATS "/property-file.md"));
  const CommandOutcome outcome = Run({"check"});
  EXPECT_EQ(outcome.code, 0);
  EXPECT_EQ(outcome.output, path_ + ": sound, 48 bytes, 2 lines, CRC 0AED\n");
}

TEST_F(Propfile, NamesEachFaultWithItsLine) {
  Put(Sealed(kSpeedLine + "nothing\n|none:none=1\nA:B|no equals\n" + kNameLine + "A:B|cut:off=1"));
  const CommandOutcome outcome = Run({"check"});
  EXPECT_EQ(outcome.code, 1);
  EXPECT_EQ(outcome.output, path_ + ":2: there is no \"|\"\n" +  //
                                path_ + ":3: there is nothing before the first \"|\"\n" + path_ +
                                ":4: there is no \"=\" after the first \"|\"\n" + path_ +
                                ":6: its line feed is missing\n");
}

TEST_F(Propfile, SaysWhichCrcIsStoredAndWhichIsRight) {
  Put("A1:B2|General:Speed=7=six\nA1:C3|General:Name=\n\xed\x0a");
  const CommandOutcome outcome = Run({"check"});
  EXPECT_EQ(outcome.code, 1);
  EXPECT_THAT(outcome.output, HasSubstr("the CRC is wrong: 0AED is stored, "));
}

TEST_F(Propfile, CallsAFileWithoutALineTooShort) {
  for (const char* bytes : {"", "x", "\xff\xff"}) {
    Put(bytes);
    EXPECT_THAT(Run({"check"}).output, HasSubstr("it is too short"));
  }
}

TEST_F(Propfile, RefusesWhatIsNoFile) {
  EXPECT_EQ(Run({"check"}).errors, "cannot read " + path_ + ": No such file or directory");
  std::filesystem::create_directory(path_);
  EXPECT_EQ(Run({"check"}).errors, path_ + " is no regular file");
}

TEST_F(Propfile, SetsAValueByKeyOrByName) {
  for (const char* wanted : {"D4:E5", "Motor:Speed", "Motor/Speed"}) {
    Put(Sealed(kSpeedLine + kMotorLine + kNameLine));
    EXPECT_EQ(Run({"set", wanted, "slow=|"}).code, 0) << wanted;
    EXPECT_EQ(Get(), Sealed(kSpeedLine + "D4:E5|Motor:Speed=slow=|\n" + kNameLine));
  }
  Put(Sealed(kSpeedLine + kMotorLine + kNameLine));
  EXPECT_EQ(Run({"set", "Name", "x"}).code, 0);
  EXPECT_EQ(Get(), Sealed(kSpeedLine + kMotorLine + "A1:C3|General:Name=x\n"));
}

TEST_F(Propfile, ListsTheCandidatesOfAnAmbiguousName) {
  Put(Sealed(kSpeedLine + kMotorLine));
  const CommandOutcome outcome = Run({"set", "Speed", "1"});
  EXPECT_EQ(outcome.code, 2);
  EXPECT_EQ(outcome.errors,
            "\"Speed\" is ambiguous; it could be\n"
            "  A1:B2  (General:Speed)\n"
            "  D4:E5  (Motor:Speed)");
  EXPECT_EQ(Get(), Sealed(kSpeedLine + kMotorLine));
}

TEST_F(Propfile, SetsTheLaterOfTwoLinesWithOneKey) {
  Put(Sealed(kSpeedLine + kNameLine + kSpeedLine));
  EXPECT_EQ(Run({"set", "Speed", "1"}).code, 0);
  EXPECT_EQ(Get(), Sealed(kSpeedLine + kNameLine + "A1:B2|General:Speed=1\n"));
}

TEST_F(Propfile, SetsNothingThatIsNotThere) {
  Put(Sealed(kSpeedLine));
  EXPECT_EQ(Run({"set", "speed", "1"}).code, 4);
  EXPECT_EQ(Get(), Sealed(kSpeedLine));
}

TEST_F(Propfile, RefusesAValueWithALineFeed) {
  Put(Sealed(kSpeedLine));
  EXPECT_EQ(Run({"set", "Speed", "1\nA:B|x:y=2"}).code, 5);
  EXPECT_EQ(Get(), Sealed(kSpeedLine));
}

TEST_F(Propfile, SetsInACorruptFileOnlyByForce) {
  Put(kSpeedLine + "xx");
  EXPECT_EQ(Run({"set", "Speed", "1"}).code, 1);
  EXPECT_EQ(Get(), kSpeedLine + "xx");
  EXPECT_EQ(Run({"set", "--force", "Speed", "1"}).code, 0);
  EXPECT_EQ(Get(), Sealed("A1:B2|General:Speed=1\n"));
}

TEST_F(Propfile, GivesALastLineItsLineFeedWhenItSetsByForce) {
  Put(Sealed(kSpeedLine + "A:B|cut:off=1"));
  EXPECT_EQ(Run({"set", "Speed", "1"}).code, 1);
  EXPECT_EQ(Run({"set", "--force", "Speed", "1"}).code, 0);
  EXPECT_EQ(Get(), Sealed("A1:B2|General:Speed=1\nA:B|cut:off=1\n"));
}

TEST_F(Propfile, KeepsTheModeAndLeavesNoOtherFile) {
  Put(Sealed(kSpeedLine));
  ASSERT_EQ(chmod(path_.c_str(), 0640), 0);
  EXPECT_EQ(Run({"set", "Speed", "1"}).code, 0);
  struct stat status {};
  ASSERT_EQ(stat(path_.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0640u);
  const std::filesystem::directory_iterator files(folder_.Path(""));
  EXPECT_EQ(std::distance(begin(files), end(files)), 1);
}

TEST_F(Propfile, ReplacesWhatALinkLeadsTo) {
  const std::string target = folder_.Path("target");
  WriteBytes(target, Sealed(kSpeedLine));
  std::filesystem::create_symlink(target, path_);
  EXPECT_EQ(Run({"set", "Speed", "1"}).code, 0);
  EXPECT_TRUE(std::filesystem::is_symlink(path_));
  EXPECT_EQ(BytesOf(target), Sealed("A1:B2|General:Speed=1\n"));
}

TEST_F(Propfile, SealsAFileWhoseLinesWereEdited) {
  for (const std::string trailer : {"xx", "x\n", "\nx", "xx\n", ""}) {
    Put(kSpeedLine + kNameLine + trailer);
    EXPECT_EQ(Run({"seal"}).code, 0) << ::testing::PrintToString(trailer);
    EXPECT_EQ(Get(), Sealed(kSpeedLine + kNameLine)) << ::testing::PrintToString(trailer);
  }
}

TEST_F(Propfile, LeavesASealedFileAlone) {
  Put(Sealed(kSpeedLine));
  struct stat before {};
  ASSERT_EQ(stat(path_.c_str(), &before), 0);
  EXPECT_EQ(Run({"seal"}).code, 0);
  struct stat after {};
  ASSERT_EQ(stat(path_.c_str(), &after), 0);
  EXPECT_EQ(before.st_ino, after.st_ino);
}

TEST_F(Propfile, SealsMalformedLinesOnlyByForce) {
  const std::string bytes = "rubbish\n" + kSpeedLine + "more rubbish\nxx";
  Put(bytes);
  const CommandOutcome outcome = Run({"seal"});
  EXPECT_EQ(outcome.code, 1);
  EXPECT_THAT(outcome.errors, HasSubstr(":1: there is no \"|\""));
  EXPECT_EQ(Get(), bytes);
  EXPECT_EQ(Run({"seal", "--force"}).code, 0);
  EXPECT_EQ(Get(), Sealed("rubbish\n" + kSpeedLine + "more rubbish\n"));
}

TEST_F(Propfile, RefusesToSealAFileWithoutALine) {
  Put("");
  EXPECT_EQ(Run({"seal"}).code, 1);
  EXPECT_EQ(Get(), "");
}

TEST_F(Propfile, WantsToKnowWhatToDo) {
  EXPECT_EQ(RunCommand(tools::AddPropfileCommand, {"propfile"}).code, 2);
  EXPECT_EQ(RunCommand(tools::AddPropfileCommand, {"propfile", "show"}).code, 2);
}

// What the service takes of `bytes`, as key to left side and value.
PropertyFileResult ReadByTheService(const std::string& bytes, PropertyMap& map) {
  MemoryFileSystem files;
  files.Put(u"/file", bytes);
  return ReadPropertyFile(files, u"/file", map);
}

TEST_F(Propfile, AgreesWithTheServicesReader) {
  const std::string pieces[] = {kSpeedLine, kNameLine, "|", "=", "\n", "a", "k|n=v\n", "k|n=w\n"};
  unsigned random = 1;
  for (int round = 0; round < 5000; ++round) {
    std::string body;
    for (int i = 0; i < round % 7; ++i) {
      random = random * 1103515245 + 12345;
      body += pieces[random >> 16 & 7];
    }
    const std::string bytes = round % 3 == 0 ? body : Sealed(body);
    PropertyMap map;
    const PropertyFileResult result = ReadByTheService(bytes, map);
    const PropfileText file = ReadPropfileText(bytes);
    if (result == PropertyFileResult::kTooShort || result == PropertyFileResult::kWrongChecksum) {
      EXPECT_FALSE(FaultsOf(file).empty()) << body;
      continue;
    }
    PropertyMap ours;
    for (const tools::PropfileLine& line : file.lines) {
      if (line.fault.empty())
        ours[line.key] = PropertyLine{line.key + "|" + line.names, line.value};
    }
    EXPECT_EQ(ours, map) << body;
    if (result == PropertyFileResult::kMalformedLine) {
      EXPECT_FALSE(FaultsOf(file).empty()) << body;
    }
  }
}

}  // namespace
}  // namespace valmere::test
