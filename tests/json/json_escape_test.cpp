#include "json/json_escape.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "json/json_unescape.h"

namespace valmere::test {
namespace {

std::string Expected(int byte) {
  switch (byte) {
    case 0x08:
      return "\\b";
    case 0x09:
      return "\\t";
    case 0x0A:
      return "\\n";
    case 0x0C:
      return "\\f";
    case 0x0D:
      return "\\r";
    case 0x22:
      return "\\\"";
    case 0x5C:
      return "\\\\";
    default:
      break;
  }
  if (byte >= 0x20) return std::string(1, static_cast<char>(byte));
  char text[8];
  std::snprintf(text, sizeof text, "\\u%04x", static_cast<unsigned>(byte));
  return text;
}

TEST(JsonEscape, TreatsEachOfThe256BytesAsTheTableSays) {
  for (int byte = 0; byte < 256; ++byte)
    EXPECT_EQ(EscapeJson(std::string(1, static_cast<char>(byte))), Expected(byte)) << byte;
}

TEST(JsonEscape, FindsEachByteAtEachPlaceOfALongText) {
  for (int byte = 0; byte < 256; ++byte) {
    for (std::size_t place = 0; place < 19; ++place) {
      std::string text(19, '\xe9');
      text[place] = static_cast<char>(byte);
      const std::string expected =
          std::string(place, '\xe9') + Expected(byte) + std::string(18 - place, '\xe9');
      ASSERT_EQ(EscapeJson(text), expected) << byte << " at " << place;
    }
  }
}

TEST(JsonEscape, LeavesNeighboursOfEscapedBytesAlone) {
  for (const char neighbour :
       {'\x20', '\x21', '\x23', '\x5b', '\x5d', '\x7f', '\x80', '\xff', '/'}) {
    const std::string text(16, neighbour);
    EXPECT_EQ(EscapeJson(text), text);
  }
}

TEST(JsonEscape, WritesControlBytesInLowerCaseHexadecimal) {
  EXPECT_EQ(EscapeJson("\x01"), "\\u0001");
  EXPECT_EQ(EscapeJson("\x1f"), "\\u001f");
  EXPECT_EQ(EscapeJson(std::string(1, '\0')), "\\u0000");
  EXPECT_EQ(EscapeJson("\x7f"), "\x7f");
}

TEST(JsonEscape, EscapesTextOfManyKinds) {
  EXPECT_EQ(EscapeJson(""), "");
  EXPECT_EQ(EscapeJson("say \"hi\"\n\\ / \x02 end"), "say \\\"hi\\\"\\n\\\\ / \\u0002 end");
}

TEST(JsonEscape, TellsTheSizeBeforehand) {
  for (const char* text : {"", "a", "plain text of some length", "\"", "\n\x01 and more \\ of it"})
    EXPECT_EQ(EscapeJson(text).size(), EscapedSize(text)) << text;
}

TEST(JsonEscape, AppendsToWhatIsThere) {
  std::string out = "kept \"";
  AppendEscaped("plain", out);
  AppendEscaped("\"q\"", out);
  EXPECT_EQ(out, "kept \"plain\\\"q\\\"");
}

TEST(JsonEscape, IsUndoneByTheParsersUnescape) {
  std::string all;
  for (int round = 0; round < 3; ++round)
    for (int byte = 0; byte < 256; ++byte)
      all += static_cast<char>(byte);
  EXPECT_EQ(UnescapeJson(EscapeJson(all)), all);
}

}  // namespace
}  // namespace valmere::test
