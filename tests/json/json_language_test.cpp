// The generated parser beside a second, plain reading of the same rules, and texts made to be slow.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <optional>
#include <random>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

#include "json/json_parser.h"
#include "json/json_value.h"
#include "json/json_writer.h"
#include "tests/json/reference_parser.h"
#include "tests/json/written.h"

namespace valmere::test {
namespace {

using ::testing::internal::CaptureStderr;
using ::testing::internal::GetCapturedStderr;

constexpr std::size_t kLargestMessage = 4'194'304;

#ifndef VALMERE_TEXTS_PERCENT
#define VALMERE_TEXTS_PERCENT 100
#endif

// How many texts a build tries where one that is not told otherwise tries `count`.
constexpr int Texts(int count) {
  return count / 100 * VALMERE_TEXTS_PERCENT;
}

struct Outcome {
  JsonValue value;
  bool failed = false;
  std::string thrown;
};

Outcome Reference(const std::string& text) {
  Outcome outcome;
  try {
    std::optional<JsonValue> value = ReferenceParse(text);
    outcome.failed = !value;
    if (value) outcome.value = *std::move(value);
  } catch (const std::invalid_argument& error) {
    outcome.thrown = error.what();
  }
  return outcome;
}

Outcome Parsed(std::string text) {
  Outcome outcome;
  std::string_view error;
  try {
    outcome.value = ParseJsonInPlace(text, {}, error);
    outcome.failed = error == "syntax error";
  } catch (const std::invalid_argument& thrown) {
    outcome.thrown = thrown.what();
  }
  return outcome;
}

// Compares on `count` texts of up to `longest` random pieces; the number of texts that are values.
template <std::size_t kPieces>
int Compare(const std::array<std::string_view, kPieces>& pieces, int count, unsigned longest,
            std::uint32_t seed) {
  std::mt19937 random(seed);
  int values = 0;
  for (int i = 0; i < count && !::testing::Test::HasFailure(); ++i) {
    std::string text;
    for (unsigned left = random() % longest + 1; left > 0; --left)
      text += pieces[random() % kPieces];
    const Outcome reference = Reference(text);
    const Outcome parsed = Parsed(text);
    EXPECT_EQ(parsed.thrown, reference.thrown) << text;
    EXPECT_EQ(parsed.value, reference.value) << text;
    EXPECT_EQ(Written(parsed.value), Written(reference.value)) << text;
    EXPECT_EQ(parsed.failed, reference.failed) << text;
    if (!reference.failed && reference.thrown.empty()) ++values;
  }
  return values;
}

TEST(JsonLanguage, IsThatOfTheRulesForHostileBytes) {
  using namespace std::string_view_literals;
  constexpr std::array kBytes = {"\""sv, "\""sv, "\\"sv, "\\"sv,  "q"sv, "u"sv, "0"sv,
                                 "'"sv,  "1"sv,  "7"sv,  "+"sv,   "-"sv, "."sv, "e"sv,
                                 "E"sv,  "["sv,  "]"sv,  "{"sv,   "}"sv, ","sv, ":"sv,
                                 " "sv,  "\n"sv, "\0"sv, "\xe9"sv};
  EXPECT_GT(Compare(kBytes, Texts(200'000), 14, 1), Texts(10'000));
}

TEST(JsonLanguage, IsThatOfTheRulesForBrokenStrings) {
  using namespace std::string_view_literals;
  constexpr std::array kPieces = {"\""sv, "\\\""sv, "\\"sv,      "\\q"sv,  "'"sv, "\\u"sv,
                                  "0"sv,  "a"sv,    "\\u00e9"sv, "\\\\"sv, "["sv, "]"sv};
  EXPECT_GT(Compare(kPieces, Texts(100'000), 14, 2), Texts(5'000));
}

TEST(JsonLanguage, IsThatOfTheRulesForWords) {
  using namespace std::string_view_literals;
  constexpr std::array kPieces = {"t"sv,     "true"sv, "r"sv,    "u"sv, "e"sv, "fals"sv,
                                  "false"sv, "nul"sv,  "null"sv, "l"sv, "T"sv, "5"sv,
                                  "["sv,     "]"sv,    ","sv,    "+"sv};
  EXPECT_GT(Compare(kPieces, Texts(50'000), 6, 3), Texts(5'000));
}

TEST(JsonLanguage, IsThatOfTheRulesForNestedLists) {
  using namespace std::string_view_literals;
  constexpr std::array kPieces = {"{"sv,     "}"sv,     "["sv,    "]"sv,      "]"sv,
                                  "}"sv,     ","sv,     ","sv,    "\"a\":"sv, "'b': "sv,
                                  "1"sv,     "\"c\""sv, "null"sv, "[]"sv,     "{}"sv,
                                  "'\\u'"sv, "1.5"sv,   "[,"sv,   "{'a':"sv,  "\"\\n\""sv};
  EXPECT_GT(Compare(kPieces, Texts(100'000), 9, 4), Texts(4'000));
}

// The text without what it repeats at once.
std::string Collapsed(std::string_view text) {
  std::string collapsed;
  for (const char byte : text) {
    collapsed += byte;
    for (std::size_t run = 1; run <= 3 && 2 * run <= collapsed.size(); ++run) {
      const std::size_t end = collapsed.size() - run;
      if (collapsed.compare(end, run, collapsed, end - run, run) == 0) collapsed.resize(end);
    }
  }
  return collapsed;
}

// What is left of a value when the lengths of its texts and the values of its floats do not count.
std::string Shape(const JsonValue& value) {
  switch (value.kind()) {
    case JsonKind::kArray: {
      std::string shape = "[";
      for (const JsonValue& element : value.elements())
        shape += Shape(element) + ",";
      return shape + "]";
    }
    case JsonKind::kString:
      return "'" + Collapsed(value.text()) + "'";
    case JsonKind::kFloat:
      return "float";
    default:
      return Written(value);
  }
}

std::string ShapeOf(const std::string& text) {
  try {
    return Shape(ParseJson(text));
  } catch (const std::invalid_argument& error) {
    return error.what();
  }
}

// What is longer than the scanner's tables are trusted with is read as what is not.
TEST(JsonLanguage, IsTheSameForLongTokens) {
  constexpr int kLong = 17'000;
  constexpr int kShort = 30;
  const std::array<std::string_view, 7> fillers = {"x", "9", "0", " ", "\t", "\\\"", "\\u00e9"};
  const std::array<std::string_view, 20> pieces = {"\"", "\"", "\"", "'",  "'",   "\\q",  ".",
                                                   "e",  "-",  "+",  "[",  "[\"", "]",    "\"]",
                                                   "',", ",",  "\\", "\n", "1",   "\\u12"};
  std::mt19937 random(5);
  int values = 0;
  CaptureStderr();
  for (int i = 0; i < Texts(2'000); ++i) {
    std::string long_text;
    std::string short_text;
    for (unsigned left = random() % 7 + 1; left > 0; --left) {
      const std::string_view piece = pieces[random() % pieces.size()];
      long_text += piece;
      short_text += piece;
      if (random() % 3 != 0) continue;
      const std::string_view filler = fillers[random() % fillers.size()];
      for (int n = 0; n < kLong; ++n)
        long_text += filler;
      for (int n = 0; n < kShort; ++n)
        short_text += filler;
    }
    const std::string shape = ShapeOf(long_text);
    ASSERT_EQ(shape, ShapeOf(short_text)) << short_text;
    if (shape != "null") ++values;
  }
  GetCapturedStderr();
  EXPECT_GT(values, Texts(100));
}

// A text of the largest size; that its parse ends at all is the point of these tests.
std::string Filled(const std::string& begin, const std::string& piece, const std::string& end) {
  std::string text = begin;
  text.reserve(kLargestMessage + piece.size());
  while (text.size() + piece.size() + end.size() <= kLargestMessage)
    text += piece;
  return text + end;
}

TEST(JsonLanguage, IsReadInLinearTimeWhateverTheText) {
  CaptureStderr();
  for (const std::string& text :
       {Filled("\"", "\\\"", "\\q"), Filled("\"", "\\\"", ""), Filled("", "\"\\q", ""),
        Filled("\"", "\\\"'", "\\q"), Filled("", "\"\\u12", "\""), Filled("'", "\"", ""),
        Filled("\"", "\\u0022", "\\u12"), Filled("", "\\\"", ""), Filled("", "x", ""),
        Filled("\"", "\\\" 'a' ", "\\q"), Filled("\"", "a", "")})
    EXPECT_EQ(ParseJson(text).kind(), JsonKind::kNull) << text.substr(0, 20);
  GetCapturedStderr();
}

TEST(JsonLanguage, ReadsTheLongestNumbersAndStrings) {
  EXPECT_EQ(ParseJson(Filled("", "9", "")), JsonValue(2147483647));
  EXPECT_EQ(ParseJson(Filled("1", "0", ".5")).kind(), JsonKind::kFloat);
  EXPECT_EQ(ParseJson(Filled("1e", "9", "")).kind(), JsonKind::kFloat);
  EXPECT_EQ(ParseJson(Filled("1.", "3", "")), JsonValue(4.0 / 3));
  EXPECT_EQ(ParseJson(Filled("\"", "\\u00e9", "\"")).text().size() % 2, 0U);
  EXPECT_EQ(ParseJson(Filled("\"", "\\\"", "\"")).text().size(), (kLargestMessage - 2) / 2);
}

TEST(JsonLanguage, ReadsAnObjectOfManyMembersInAnyOrder) {
  constexpr int kMembers = 300'000;
  std::string descending = "{";
  for (int i = kMembers; i > 0; --i)
    descending +=
        (i < kMembers ? ",\"" : "\"") + std::to_string(1'000'000 + i) + "\":" + std::to_string(i);
  descending += ",\"1000007\":0}";
  const JsonValue object = ParseJson(descending);
  EXPECT_EQ(object.members().size(), static_cast<std::size_t>(kMembers));
  EXPECT_EQ(object.Find("1000007")->integer(), 7);
  EXPECT_TRUE(
      std::is_sorted(object.members().begin(), object.members().end(),
                     [](const JsonMember& a, const JsonMember& b) { return a.key < b.key; }));
  EXPECT_EQ(ParseJson(Filled("{'a':1", ",'a':1", "}")).members().size(), 1U);
}

TEST(JsonLanguage, ReadsAnArrayOfManyElements) {
  EXPECT_EQ(ParseJson(Filled("[0", ",1", "]")).size(), (kLargestMessage - 3) / 2 + 1);
}

}  // namespace
}  // namespace valmere::test
