#include "json/json_unescape.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

namespace valmere::test {
namespace {

std::string Failure(const std::string& content) {
  try {
    UnescapeJson(content);
  } catch (const std::invalid_argument& error) {
    return error.what();
  }
  return "";
}

TEST(JsonUnescape, KeepsTextWithoutABackslash) {
  EXPECT_EQ(UnescapeJson(""), "");
  EXPECT_EQ(UnescapeJson("a\"\n\xff'"), "a\"\n\xff'");
}

TEST(JsonUnescape, ResolvesEachLetter) {
  EXPECT_EQ(UnescapeJson("\\\"\\\\\\/\\b\\f\\n\\r\\t"), "\"\\/\b\f\n\r\t");
}

TEST(JsonUnescape, DropsUnknownEscapes) {
  EXPECT_EQ(UnescapeJson("a\\qb"), "ab");
  EXPECT_EQ(UnescapeJson("\\Nx\\'y\\ z"), "xyz");
}

TEST(JsonUnescape, DropsABackslashAtTheEnd) {
  EXPECT_EQ(UnescapeJson("a\\"), "a");
  EXPECT_EQ(UnescapeJson("\\"), "");
  EXPECT_EQ(UnescapeJson("a\\\\\\"), "a\\");
}

TEST(JsonUnescape, EncodesCodeUnitsInUtf8) {
  EXPECT_EQ(UnescapeJson("\\u0041"), "A");
  EXPECT_EQ(UnescapeJson("\\u0000"), std::string(1, '\0'));
  EXPECT_EQ(UnescapeJson("\\u007f"), "\x7f");
  EXPECT_EQ(UnescapeJson("\\u0080"), "\xC2\x80");
  EXPECT_EQ(UnescapeJson("\\u00e9"), "\xC3\xA9");
  EXPECT_EQ(UnescapeJson("\\u07FF"), "\xDF\xBF");
  EXPECT_EQ(UnescapeJson("\\u0800"), "\xE0\xA0\x80");
  EXPECT_EQ(UnescapeJson("\\u20ac"), "\xE2\x82\xAC");
  EXPECT_EQ(UnescapeJson("\\uFFFF"), "\xEF\xBF\xBF");
}

TEST(JsonUnescape, DoesNotCombineSurrogates) {
  EXPECT_EQ(UnescapeJson("\\ud83d\\ude00"), "\xED\xA0\xBD\xED\xB8\x80");
}

TEST(JsonUnescape, ReadsTheFourBytesOfACodeUnitAsANumberMayBeWritten) {
  EXPECT_EQ(UnescapeJson("\\u41"), "A");
  EXPECT_EQ(UnescapeJson("\\u41zzrest"), "Arest");
  EXPECT_EQ(UnescapeJson("\\u 41 rest"), "Arest");
  EXPECT_EQ(UnescapeJson("\\u\t\n+5x"), "\x05x");
  EXPECT_EQ(UnescapeJson("\\u0x41"), "A");
  EXPECT_EQ(UnescapeJson("\\u0Xg1"), std::string(1, '\0'));
  EXPECT_EQ(UnescapeJson("\\u0x"), std::string(1, '\0'));
  EXPECT_EQ(UnescapeJson("\\u-1zz"), "\xEF\xBF\xBF");
}

TEST(JsonUnescape, ThrowsWhenNoHexadecimalNumberFollowsU) {
  for (const char* content :
       {"\\u", "\\uzzzz", "\\u    41", "\\u+", "\\u--12", "x\\u\\u0041", "\\u- 12"})
    EXPECT_EQ(Failure(content), "invalid stoul argument") << content;
}

}  // namespace
}  // namespace valmere::test
