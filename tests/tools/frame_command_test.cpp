// Frames made and taken apart by hand.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "protocol/wire/message_frame.h"
#include "tests/client/fake_service.h"
#include "tests/support/hex_example.h"
#include "tests/tools/command_run.h"
#include "tools/commands/commands.h"
#include "tools/commands/frame_reader.h"

namespace valmere::test {
namespace {

using ::testing::EndsWith;
using ::testing::HasSubstr;

class FrameCommand : public ::testing::Test {
 protected:
  CommandOutcome Run(std::vector<std::string> words, const std::string& input,
                     tools::OutputOptions options = {}) const {
    WriteBytes(path_, input);
    words.insert(words.begin(), "frame");
    words.push_back(path_);
    return RunCommand(tools::AddFrameCommand, words, std::move(options));
  }

  const TemporaryFolder folder_;
  const std::string path_ = folder_.Path("input");
  const std::string example_ = HexExample(VALMERE_FORMATS "/frame.md");
};

TEST_F(FrameCommand, MakesTheDocumentedExample) {
  const std::string text = example_.substr(kFrameHeaderBytes);
  EXPECT_EQ(Run({"encode"}, text).output, example_);
  EXPECT_EQ(Run({"encode"}, text + "\n").output, example_);
}

TEST_F(FrameCommand, TakesTheDocumentedExampleApart) {
  const CommandOutcome outcome = Run({"decode"}, example_ + FrameOf("{}"));
  EXPECT_EQ(outcome.code, 0) << outcome.errors;
  EXPECT_EQ(outcome.output, example_.substr(kFrameHeaderBytes) + "\n{}\n");
}

TEST_F(FrameCommand, FindsNoFrameInNothing) {
  EXPECT_EQ(Run({"decode"}, "").code, 0);
}

TEST_F(FrameCommand, PrintsEachTextOnOneLine) {
  const std::string frame = FrameOf("{\n\"a\": 1\n}");
  EXPECT_EQ(Run({"decode"}, frame).output, "{ \"a\": 1 }\n");
  tools::OutputOptions options;
  options.null_ends = true;
  EXPECT_EQ(Run({"decode"}, frame, options).output, std::string("{\n\"a\": 1\n}\0", 11));
}

TEST_F(FrameCommand, DumpsTheHeader) {
  const CommandOutcome outcome = Run({"decode", "--hex"}, FrameOf("{}"));
  EXPECT_EQ(outcome.output,
            "0000  B3 EC 09 9A 22 92 48 FA 83 D0 06 84 0B C9 91 02  ....\".H.........\n"
            "0010  02 00 00 00                                      ....\n"
            "{}\n");
}

TEST_F(FrameCommand, DumpsTheFrameItMakes) {
  EXPECT_THAT(Run({"encode", "--hex"}, "{}").output,
              EndsWith("0010  02 00 00 00 7B 7D                                ....{}\n"));
}

TEST_F(FrameCommand, SaysWhereNoFrameBegins) {
  const CommandOutcome outcome = Run({"decode"}, FrameOf("{}") + "{}");
  EXPECT_EQ(outcome.code, 1);
  EXPECT_EQ(outcome.output, "{}\n");
  EXPECT_EQ(outcome.errors, "byte 22: no frame begins here: the identifier is wrong");
  std::string wrong = FrameOf("{}");
  wrong[15] ^= 1;
  EXPECT_EQ(Run({"decode"}, wrong).errors, "byte 0: no frame begins here: the identifier is wrong");
}

TEST_F(FrameCommand, SaysWhereALengthIsTooLarge) {
  std::string frame = FrameOf("{}") + FrameOf("{}");
  frame[22 + 18] = 0x40;
  EXPECT_EQ(Run({"decode"}, frame).code, 1);
  EXPECT_EQ(Run({"decode"}, frame).errors,
            "byte 38: the length is 4194306, more than a text may have (4194304)");
}

TEST_F(FrameCommand, SaysWhereTheInputEndsTooEarly) {
  const std::string frame = FrameOf("{}");
  EXPECT_EQ(Run({"decode"}, frame + frame.substr(0, 7)).errors,
            "byte 29: the input ends within the frame that begins at byte 22: 7 of 20 bytes of the "
            "header");
  EXPECT_EQ(Run({"decode"}, frame.substr(0, 21)).errors,
            "byte 21: the input ends within the frame that begins at byte 0: 1 of 2 bytes of the "
            "text");
}

TEST_F(FrameCommand, TakesTheLongestTextAndNoLonger) {
  std::string text(kMaximumMessageBytes, ' ');
  EXPECT_EQ(Run({"encode"}, text).output, FrameOf(text));
  EXPECT_EQ(Run({"decode"}, FrameOf(text)).output, text + "\n");
  text += ' ';
  const CommandOutcome outcome = Run({"encode"}, text);
  EXPECT_EQ(outcome.code, 1);
  EXPECT_EQ(outcome.output, "");
}

TEST_F(FrameCommand, ParsesTheTextWhenItIsAskedTo) {
  EXPECT_EQ(Run({"encode", "--check"}, R"({"a": [1]})").code, 0);
  for (const char* text : {"", "[]", "{", "1"}) {
    EXPECT_EQ(Run({"encode"}, text).code, 0);
    const CommandOutcome outcome = Run({"encode", "--check"}, text);
    EXPECT_EQ(outcome.code, 1) << text;
    EXPECT_EQ(outcome.output, "");
    EXPECT_EQ(outcome.errors, "the text is no JSON object");
  }
  const CommandOutcome outcome = Run({"decode", "--check"}, FrameOf("{}") + FrameOf("[]"));
  EXPECT_EQ(outcome.code, 1);
  EXPECT_EQ(outcome.output, "{}\n[]\n");
  EXPECT_EQ(outcome.errors, "byte 22: the text is no JSON object");
}

TEST_F(FrameCommand, NamesAFileThatCannotBeRead) {
  const CommandOutcome outcome =
      RunCommand(tools::AddFrameCommand, {"frame", "decode", folder_.Path("none")});
  EXPECT_EQ(outcome.code, 1);
  EXPECT_THAT(outcome.errors, HasSubstr("No such file or directory"));
  EXPECT_THAT(RunCommand(tools::AddFrameCommand, {"frame", "decode", folder_.Path("")}).errors,
              HasSubstr("cannot read"));
}

}  // namespace
}  // namespace valmere::test
