#include "json/json_parser.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "json/json_escape.h"
#include "json/json_value.h"
#include "json/json_writer.h"
#include "tests/json/written.h"
#include "tests/support/test_thread.h"

namespace valmere::test {
namespace {

using ::testing::internal::CaptureStderr;
using ::testing::internal::GetCapturedStderr;

constexpr char kSyntaxError[] = "syntax error";
constexpr char kMemoryExhausted[] = "memory exhausted";

// As many array brackets as fit into the parser's stack of 10,000 entries.
constexpr int kDeepestArray = 9996;
// An object needs three entries for each level.
constexpr int kDeepestObject = 3331;

std::string Repeated(const std::string& text, int times) {
  std::string all;
  all.reserve(text.size() * static_cast<std::size_t>(times));
  for (int i = 0; i < times; ++i)
    all += text;
  return all;
}

// The text of what was parsed; what is said of it when nothing was.
std::string Reading(std::string text) {
  std::string_view error;
  const JsonValue value = ParseJsonInPlace(text, {}, error);
  if (error.empty()) return Written(value);
  EXPECT_EQ(value.kind(), JsonKind::kNull);
  return std::string(error);
}

TEST(JsonParser, ParsesEmptyContainers) {
  EXPECT_EQ(ParseJson("{}").kind(), JsonKind::kObject);
  EXPECT_EQ(ParseJson("[]").kind(), JsonKind::kArray);
  EXPECT_EQ(Reading("{ \t\n}"), "{}");
  EXPECT_EQ(Reading("[ \t\n]"), "[]");
}

TEST(JsonParser, ParsesNestedContainers) {
  EXPECT_EQ(Reading(R"({"b": [1, {"c": {}}, []], "a": true})"),
            R"({"a": true,"b": [1,{"c": {}},[]]})");
}

TEST(JsonParser, AcceptsAnyValueAtTheTop) {
  EXPECT_EQ(ParseJson("5"), JsonValue(5));
  EXPECT_EQ(ParseJson("true"), JsonValue(true));
  EXPECT_EQ(ParseJson("false"), JsonValue(false));
  EXPECT_EQ(ParseJson("1.5"), JsonValue(1.5));
  EXPECT_EQ(ParseJson("\"text\""), JsonValue("text"));
  EXPECT_EQ(Reading("null"), "null");
}

TEST(JsonParser, RefusesWhatIsNotOneValue) {
  for (const char* text :
       {"",      " ", " \t\n\r#/", "True",  "1 2",       "{} {}",    "truefalse",        "nullnull",
        "{",     "[", "}",         "]",     "{\"a\"}",   "{\"a\":}", "{\"a\":1",         "[1 2]",
        "{1:2}", ",", ":",         "[1:2]", "{\"a\":1]", "[1}",      "{'a':'b' 'c':'d'}"})
    EXPECT_EQ(Reading(text), kSyntaxError) << text;
}

TEST(JsonParser, RefusesACommaBeforeAClosingBracket) {
  for (const char* text : {"{\"a\": 1,}", "[1,]", "[,]", "{,}", "[1,,2]", "[,,1]", "{,,\"a\":1}"})
    EXPECT_EQ(Reading(text), kSyntaxError) << text;
}

TEST(JsonParser, AcceptsACommaBeforeTheFirstEntry) {
  EXPECT_EQ(Reading("[,1]"), "[1]");
  EXPECT_EQ(Reading("[,1,2]"), "[1,2]");
  EXPECT_EQ(Reading("{,\"a\":1}"), "{\"a\": 1}");
}

TEST(JsonParser, SkipsBytesThatBeginNoToken) {
  EXPECT_EQ(Reading("\r\n[1,\r\n2]#/;"), "[1,2]");
  EXPECT_EQ(Reading("[True]"), "[]");
  EXPECT_EQ(Reading("[xtruey]"), "[true]");
  EXPECT_EQ(Reading("nulltrue"), kSyntaxError);
  EXPECT_EQ(Reading("\x01\x80\xff[nul,null]"), "[null]");
  EXPECT_EQ(Reading("\xef\xbb\xbf{}"), "{}");
}

TEST(JsonParser, ReadsNumbers) {
  EXPECT_EQ(ParseJson("-17").integer(), -17);
  EXPECT_EQ(ParseJson("+17").integer(), 17);
  EXPECT_EQ(ParseJson("007").integer(), 7);
  EXPECT_EQ(ParseJson("4294967296"), JsonValue(2147483647));
  EXPECT_EQ(ParseJson("-4294967296"), JsonValue(std::int64_t{-2147483648}));
  EXPECT_EQ(ParseJson("2.0").kind(), JsonKind::kFloat);
  EXPECT_EQ(Reading("2.0"), "2");
  EXPECT_EQ(ParseJson("1e3"), JsonValue(1000.0));
  EXPECT_EQ(ParseJson("5."), JsonValue(5.0));
  EXPECT_EQ(ParseJson(".5E-1"), JsonValue(0.05));
  EXPECT_TRUE(std::isinf(ParseJson("1e999").real()));
  EXPECT_EQ(Reading("[1.2.3]"), kSyntaxError);
  EXPECT_EQ(Reading("1-2"), kSyntaxError);
}

TEST(JsonParser, ReadsFloatTokensWithoutDigitsAsZero) {
  for (const char* text : {"-", "+", ".", "+.", "-.", "e5", "E+5", "-e5", ".e-5"})
    EXPECT_EQ(ParseJson(text), JsonValue(0.0)) << text;
  EXPECT_EQ(Reading("[1e+]"), kSyntaxError);
  EXPECT_EQ(Reading("[1e]"), "[1]");
  EXPECT_EQ(Reading("[1e,+]"), "[1,0]");
  EXPECT_EQ(Reading("[e]"), "[]");
  EXPECT_EQ(Reading("[--]"), kSyntaxError);
}

TEST(JsonParser, ReadsDoubleQuotedStrings) {
  EXPECT_EQ(ParseJson(R"("a\"b\\c\/\b\f\n\r\t\u00e9\u20AC")").text(),
            "a\"b\\c/\b\f\n\r\t\xC3\xA9\xE2\x82\xAC");
  EXPECT_EQ(ParseJson("\"line\nfeed\x01\x7f\x80\xff'\"").text(), "line\nfeed\x01\x7f\x80\xff'");
  EXPECT_EQ(ParseJson("\"\"").text(), "");
  EXPECT_EQ(ParseJson(R"("\\")").text(), "\\");
}

TEST(JsonParser, DoesNotTakeAStringWithABadEscape) {
  for (const char* text :
       {R"("a\qb")", R"("\u12g4")", R"("\)", R"("abc)", R"("\")", R"({"a\x":1})"})
    EXPECT_EQ(Reading(text), kSyntaxError) << text;
  EXPECT_EQ(Reading(R"("\u12")"), "12");
  EXPECT_EQ(Reading(R"(["\q])"), "[]");
  EXPECT_EQ(Reading(R"(["\u12 1])"), kSyntaxError);
  // The quote of the second string ends the first broken one, its text is scanned on.
  EXPECT_EQ(Reading(R"(["\q","x"])"), R"([","])");
}

TEST(JsonParser, ScansOnInsideABrokenString) {
  EXPECT_EQ(Reading(R"(["a\"b\"c\q"x"])"), R"(["x"])");
  // A single-quoted string inside reaches past the bad escape.
  EXPECT_EQ(Reading(R"(["a\"'b\q',"x"])"), R"(["b","x"])");
  // The escaped quote is tried again when the bad escape is behind it.
  EXPECT_EQ(Reading(R"("\" \q "\n")"), "\"\n\"");
  EXPECT_EQ(Reading(R"("\"   1)"), "1");
}

TEST(JsonParser, ReadsSingleQuotedStrings) {
  EXPECT_EQ(ParseJson("'x'"), JsonValue("x"));
  EXPECT_EQ(ParseJson("''"), JsonValue(""));
  EXPECT_EQ(ParseJson("'a\"b\nc'").text(), "a\"b\nc");
  EXPECT_EQ(ParseJson("'a\\qb'").text(), "ab");
  EXPECT_EQ(ParseJson("'\\u00e9'").text(), "\xC3\xA9");
  EXPECT_EQ(Reading("{'k': 'v'}"), "{\"k\": \"v\"}");
}

TEST(JsonParser, DoesNotLetABackslashProtectASingleQuote) {
  EXPECT_EQ(ParseJson("'a\\'").text(), "a");
  EXPECT_EQ(Reading("['a\\'b]"), "[\"a\"]");
  EXPECT_EQ(Reading("['a\\', 'b']"), "[\"a\",\"b\"]");
  EXPECT_EQ(Reading("'abc"), kSyntaxError);
}

TEST(JsonParser, KeepsTheFirstOfEqualKeys) {
  EXPECT_EQ(Reading(R"({"a":1,"b":2,"a":3,'a':4})"), R"({"a": 1,"b": 2})");
  EXPECT_EQ(Reading(R"({"\u0061":1,"a":2})"), R"({"a": 1})");
}

TEST(JsonParser, ReadsUpToTheFirstNul) {
  using namespace std::string_literals;
  EXPECT_EQ(Reading("[1]\0]]"s), "[1]");
  EXPECT_EQ(Reading("[1\0]"s), kSyntaxError);
  EXPECT_EQ(Reading("\"a\0b\""s), kSyntaxError);
  EXPECT_EQ(Reading("\0[1]"s), kSyntaxError);
}

TEST(JsonParser, ThrowsForABadCodeUnitInSingleQuotes) {
  for (const char* text : {"'\\u'", "{\"a\": ['a long enough text to be on the heap', '\\uxyz']}",
                           "{'\\u':1}", "{,'\\u'", "['\\u-' 7]"}) {
    try {
      ParseJson(text);
      FAIL() << text;
    } catch (const std::invalid_argument& error) {
      EXPECT_STREQ(error.what(), "invalid stoul argument");
    }
  }
  EXPECT_EQ(Reading("1 '\\u'"), kSyntaxError);
  EXPECT_EQ(Reading("[1]"), "[1]");
}

TEST(JsonParser, ThrowsFromDeepInsideWithoutALeak) {
  EXPECT_THROW(ParseJson(Repeated("[", 5000) + "'\\u'"), std::invalid_argument);
}

TEST(JsonParser, RunsOutOfStackBeyondTenThousandEntries) {
  const std::string arrays = Repeated("[", kDeepestArray) + Repeated("]", kDeepestArray);
  EXPECT_EQ(ParseJson(arrays).kind(), JsonKind::kArray);
  EXPECT_EQ(Reading("[" + arrays + "]"), kMemoryExhausted);
  EXPECT_EQ(Reading(Repeated("[", 100'000)), kMemoryExhausted);

  const std::string objects =
      Repeated("{'a':", kDeepestObject) + "{}" + Repeated("}", kDeepestObject);
  EXPECT_EQ(ParseJson(objects).kind(), JsonKind::kObject);
  EXPECT_EQ(Reading("{'a':" + objects + "}"), kMemoryExhausted);
}

TEST(JsonParser, ParsesTheDeepestTextInASmallStack) {
  TestThread thread([] {
    const JsonValue arrays = ParseJson(Repeated("[", kDeepestArray) + Repeated("]", kDeepestArray));
    int depth = 0;
    for (const JsonValue* value = &arrays; value->size() == 1; value = &value->At(0))
      ++depth;
    EXPECT_EQ(depth, kDeepestArray - 1);
    const JsonValue objects =
        ParseJson(Repeated("{'a':", kDeepestObject) + "{}" + Repeated("}", kDeepestObject));
    EXPECT_EQ(objects.kind(), JsonKind::kObject);
    EXPECT_THROW(ParseJson(Repeated("[[1],", 3000) + "'\\u'"), std::invalid_argument);
  });
}

TEST(JsonParser, ParsesOnManyThreadsAtOnce) {
  std::vector<TestThread> threads;
  threads.reserve(4);
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([number = std::to_string(i)] {
      const std::string text = R"({"\u0061": [)" + number + R"(, '\n"', "\q true, 1.5, {}]})";
      const std::string expected = "{\"a\": [" + number + ",\"\n\"\",true,1.5,{}]}";
      for (int round = 0; round < 300; ++round)
        ASSERT_EQ(Written(ParseJson(text)), expected);
    });
  }
}

TEST(JsonParser, ParsesInTheCallersBuffer) {
  std::string text = R"({"a": "b\n"})";
  EXPECT_EQ(Written(ParseJsonInPlace(text)), "{\"a\": \"b\n\"}");
  std::string cut("[2]\0,3]", 7);
  EXPECT_EQ(Written(ParseJsonInPlace(cut)), "[2]");
  std::string empty;
  EXPECT_EQ(ParseJsonInPlace(empty).kind(), JsonKind::kNull);
}

// The line comes when lines may be written; others have used up the burst perhaps.
TEST(JsonParser, TellsStandardErrorOfAnError) {
  std::string said;
  EXPECT_TRUE(Eventually([&] {
    CaptureStderr();
    EXPECT_EQ(ParseJson("[1").kind(), JsonKind::kNull);
    said = GetCapturedStderr();
    return !said.empty();
  }));
  EXPECT_NE(said.find("error: syntax error\n"), std::string::npos) << said;
}

TEST(JsonParser, LeavesOutWhatAFloodOfErrorsWouldSay) {
  CaptureStderr();
  for (int i = 0; i < 1000; ++i)
    ParseJson("[1");
  const std::string said = GetCapturedStderr();
  EXPECT_LT(std::count(said.begin(), said.end(), '\n'), 500);
}

TEST(JsonParser, GivesBackWhatWasEscapedAndWritten) {
  std::string bytes;
  for (int byte = 255; byte >= 0; --byte)
    bytes += static_cast<char>(byte);
  JsonValue object = JsonValue::Object();
  object[EscapeJson("key \"1\"")] = JsonValue(EscapeJson(bytes));
  const JsonValue parsed = ParseJson(Written(object));
  EXPECT_EQ(parsed.Find("key \"1\"")->text(), bytes);
}

}  // namespace
}  // namespace valmere::test
