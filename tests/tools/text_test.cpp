// What becomes of texts on their way to the user.
#include "tools/output/text.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <clocale>

#include "tools/names/property_pattern.h"
#include "tools/output/base64.h"
#include "tools/output/hex_dump.h"
#include "tools/output/message_description.h"
#include "tools/output/property_format.h"

namespace valmere::test {
namespace {

using client::Property;
using ::testing::ElementsAre;

const Property kSampled{"GG1", "Motor", "PG1", "Speed", "42", client::kSuccessful, "CG1", "Head"};

TEST(Text, TellsUtf8FromOtherBytes) {
  for (const char* text : {"", "abc", "\xc3\xa9", "\xe2\x82\xac", "\xf0\x9f\x98\x80", "\xc2\x80",
                           "\xe0\xa0\x80", "\xf4\x8f\xbf\xbf"}) {
    EXPECT_TRUE(tools::IsUtf8(text)) << text;
  }
  for (const char* text : {"\xff", "\x80", "\xc3", "\xc3(", "\xc0\x80", "\xe0\x9f\xbf",
                           "\xed\xa0\x80", "\xf0\x8f\xbf\xbf", "\xf4\x90\x80\x80", "a\xe2\x82"}) {
    EXPECT_FALSE(tools::IsUtf8(text)) << text;
  }
}

class TextInUtf8 : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_NE(std::setlocale(LC_CTYPE, "C.UTF-8"), nullptr); }
  void TearDown() override { std::setlocale(LC_CTYPE, "C"); }
};

TEST_F(TextInUtf8, CountsTheColumnsThatATerminalUses) {
  EXPECT_EQ(tools::DisplayWidth(""), 0U);
  EXPECT_EQ(tools::DisplayWidth("na\xc3\xafve"), 5U);
  EXPECT_EQ(tools::DisplayWidth("\xe6\xb8\xa9\xe5\xba\xa6"), 4U);  // two wide characters
  EXPECT_EQ(tools::DisplayWidth("e\xcc\x81"), 1U);                 // an accent of its own
  EXPECT_EQ(tools::DisplayWidth("a\xff"), 2U);
}

TEST_F(TextInUtf8, ShortensWhatDoesNotFit) {
  EXPECT_EQ(tools::Shorten("abcdef", 6), "abcdef");
  EXPECT_EQ(tools::Shorten("abcdef", 5), "abcd\xe2\x80\xa6");
  EXPECT_EQ(tools::Shorten("abcdef", 1), "\xe2\x80\xa6");
  EXPECT_EQ(tools::Shorten("\xe6\xb8\xa9\xe5\xba\xa6!", 4), "\xe6\xb8\xa9\xe2\x80\xa6");
}

TEST(Text, ShortensWithDotsWhereTheLocaleKnowsNoEllipsis) {
  EXPECT_EQ(tools::Shorten("abcdef", 5), "ab...");
}

TEST(Base64, EncodesAsTheStandardSays) {
  EXPECT_EQ(tools::EncodeBase64(""), "");
  EXPECT_EQ(tools::EncodeBase64("f"), "Zg==");
  EXPECT_EQ(tools::EncodeBase64("fo"), "Zm8=");
  EXPECT_EQ(tools::EncodeBase64("foo"), "Zm9v");
  EXPECT_EQ(tools::EncodeBase64("foobar"), "Zm9vYmFy");
  EXPECT_EQ(tools::EncodeBase64("\xff\xfe\xfd"), "//79");
}

TEST(Base64, DecodesWhatItEncoded) {
  std::string bytes;
  for (int byte = 0; byte < 256; ++byte) {
    EXPECT_EQ(tools::DecodeBase64(tools::EncodeBase64(bytes)), bytes);
    bytes += static_cast<char>(byte);
  }
}

TEST(Base64, RefusesOtherTexts) {
  for (const char* text : {"A", "Zg=", "Zg", "Z===", "====", "Zh==", "Zg==Zg==", "Zm9 ", "Zm8=x"}) {
    EXPECT_EQ(tools::DecodeBase64(text), std::nullopt) << text;
  }
}

TEST(Format, FillsInEveryField) {
  EXPECT_EQ(tools::Format("%c/%g/%n=%v (%t)", kSampled), "Head/Motor/Speed=42 (Successful)");
  EXPECT_EQ(tools::Format("%C %G %N", kSampled), "CG1 GG1 PG1");
  EXPECT_EQ(tools::Format("100%%\\t\\n\\\\", kSampled), "100%\t\n\\");
  EXPECT_EQ(tools::Format("a\\0b", kSampled), std::string("a\0b", 3));
}

TEST(Format, NamesWhatItDoesNotKnow) {
  EXPECT_EQ(tools::CheckFormat("%c%v plain"), std::nullopt);
  EXPECT_THAT(tools::CheckFormat("%n %x").value_or(""), ::testing::HasSubstr("\"%x\""));
  EXPECT_THAT(tools::CheckFormat("\\r").value_or(""), ::testing::HasSubstr("\"\\r\""));
  EXPECT_TRUE(tools::CheckFormat("%").has_value());
}

TEST(Pattern, MatchesEachFormOfAName) {
  for (const char* pattern : {"*", "S*", "Sp??d", "[ST]peed", "Motor/*", "Head/*", "H*d",
                              "*/Motor/*", "Speed", "Motor/Speed", "PG1", "CG1/GG1/PG1"}) {
    EXPECT_TRUE(tools::PropertyPatterns({pattern}).Match(kSampled)) << pattern;
  }
  for (const char* pattern : {"", "s*", "Spe", "Motor", "[A-C]*", "Head/Speed"}) {
    EXPECT_FALSE(tools::PropertyPatterns({pattern}).Match(kSampled)) << pattern;
  }
}

TEST(Pattern, TakesANameAsItIsBeforeItsSpecialCharacters) {
  Property odd = kSampled;
  odd.name = "Level [%]*";
  EXPECT_TRUE(tools::PropertyPatterns({"Level [%]*"}).Match(odd));
  EXPECT_FALSE(tools::PropertyPatterns({"Level [x]*"}).Match(odd));
}

TEST(Pattern, PicksEverythingWhenThereIsNone) {
  EXPECT_EQ(tools::PropertyPatterns({}).Pick({kSampled, kSampled}).size(), 2U);
  EXPECT_EQ(tools::PropertyPatterns({"x", "Speed"}).Pick({kSampled}).size(), 1U);
}

TEST(MessageDescription, SaysWhatAMessageAsksForInTheOrderOfItsHandling) {
  EXPECT_THAT(
      tools::DescribeMessage(R"({"PropertyGetRequests": [{"Component": "C","GUID": "G:P"}],)"
                             R"("PropertySetRequests": [{"Component": "C","GUID": "G:P",)"
                             R"("Value": "1"}],"SubscribeAllCurrentAndNewProperties": true})"),
      ElementsAre("set C/G:P=1", "get C/G:P", "subscribe to everything"));
  EXPECT_THAT(tools::DescribeMessage(R"({"GetAllProperties": true})"),
              ElementsAre("get everything"));
  EXPECT_THAT(tools::DescribeMessage(R"({"Disconnect": true})"), ElementsAre("disconnect"));
}

TEST(MessageDescription, ShowsPropertiesByTheirNames) {
  const std::string start =
      R"({"PropertyGetResponses": [{"Component": "C","ComponentString": "Head","GUID": "G:P",)"
      R"("GroupString": "Motor","NameString": "Speed","Status": ")";
  EXPECT_THAT(tools::DescribeMessage(start + R"(Successful","Value": "42"}]})"),
              ElementsAre("property Head/Motor/Speed=42"));
  EXPECT_THAT(tools::DescribeMessage(start + R"(Property Not Found","Value": ""}]})"),
              ElementsAre("property Head/Motor/Speed= (Property Not Found)"));
}

TEST(MessageDescription, ShowsATextThatIsNoMessageAsItIs) {
  EXPECT_THAT(tools::DescribeMessage("[1]"), ElementsAre("[1]"));
}

TEST(MessageDescription, DumpsBytes) {
  EXPECT_THAT(tools::HexDump(std::string("0123456789ABCDEF\x00\xff", 18)),
              ElementsAre("0000  30 31 32 33 34 35 36 37 38 39 41 42 43 44 45 46  0123456789ABCDEF",
                          "0010  00 FF                                            .."));
}

}  // namespace
}  // namespace valmere::test
