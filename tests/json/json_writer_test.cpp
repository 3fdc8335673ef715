#include "json/json_writer.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <sstream>
#include <string>
#include <vector>

#include "json/json_escape.h"
#include "json/json_value.h"
#include "tests/json/written.h"

namespace valmere::test {
namespace {

std::string Streamed(double value) {
  std::ostringstream stream;
  stream << value;
  return stream.str();
}

TEST(JsonWriter, WritesIntegersInFull) {
  EXPECT_EQ(Written(JsonValue(0)), "0");
  EXPECT_EQ(Written(JsonValue(-5)), "-5");
  EXPECT_EQ(Written(JsonValue(std::numeric_limits<std::int64_t>::min())), "-9223372036854775808");
  EXPECT_EQ(Written(JsonValue(std::numeric_limits<std::int64_t>::max())), "9223372036854775807");
}

TEST(JsonWriter, WritesFloatsWithSixSignificantDigits) {
  EXPECT_EQ(Written(JsonValue(3.0)), "3");
  EXPECT_EQ(Written(JsonValue(0.1)), "0.1");
  EXPECT_EQ(Written(JsonValue(1e20)), "1e+20");
  EXPECT_EQ(Written(JsonValue(1234567.0)), "1.23457e+06");
  EXPECT_EQ(Written(JsonValue(123456.5)), "123456");
  EXPECT_EQ(Written(JsonValue(0.0001)), "0.0001");
  EXPECT_EQ(Written(JsonValue(0.00001)), "1e-05");
  EXPECT_EQ(Written(JsonValue(-0.0)), "-0");
}

TEST(JsonWriter, WritesEveryFloatAsAStreamDoes) {
  using Limits = std::numeric_limits<double>;
  std::vector<double> values = {0.0,           999999.5,           9999995.0, 1e100,
                                1.0 / 3,       Limits::max(),      5e-324,    1e-310,
                                Limits::min(), Limits::infinity(), 100000.0,  1e-4};
  std::uint64_t bits = 1;
  for (int i = 0; i < 2000; ++i) {
    bits = bits * 6364136223846793005U + 1442695040888963407U;
    values.push_back(static_cast<double>(bits >> 11) * 1e-9);
    values.push_back(static_cast<double>(bits >> 44) / 64);
  }
  for (const double value : values) {
    EXPECT_EQ(Written(JsonValue(value)), Streamed(value));
    EXPECT_EQ(Written(JsonValue(-value)), Streamed(-value));
  }
}

// A stream's text for it is the C library's own.
TEST(JsonWriter, WritesWhatIsNoNumberWithItsSign) {
  constexpr double kNoNumber = std::numeric_limits<double>::quiet_NaN();
  EXPECT_EQ(Written(JsonValue(kNoNumber)), "nan");
  EXPECT_EQ(Written(JsonValue(-kNoNumber)), "-nan");
}

TEST(JsonWriter, WritesTheOtherScalars) {
  EXPECT_EQ(Written(JsonValue(true)), "true");
  EXPECT_EQ(Written(JsonValue(false)), "false");
  EXPECT_EQ(Written(JsonValue()), "null");
  EXPECT_EQ(Written(JsonValue("text")), "\"text\"");
  EXPECT_EQ(Written(JsonValue("")), "\"\"");
}

TEST(JsonWriter, WritesTextAndKeysUnchanged) {
  EXPECT_EQ(Written(JsonValue("a\"b\n\xff\\")), "\"a\"b\n\xff\\\"");
  EXPECT_EQ(Written(JsonValue(EscapeJson("a\"b"))), "\"a\\\"b\"");
  JsonValue object = JsonValue::Object();
  object["k\"\t"];
  EXPECT_EQ(Written(object), "{\"k\"\t\": null}");
}

TEST(JsonWriter, WritesEmptyContainers) {
  EXPECT_EQ(Written(JsonValue::Object()), "{}");
  EXPECT_EQ(Written(JsonValue::Array()), "[]");
}

TEST(JsonWriter, WritesOneSpaceAfterEachColonAndNoOther) {
  JsonValue object = JsonValue::Object();
  object["b"] = JsonValue(1.5);
  object["a"] = JsonValue::Array();
  object["a"].Append(JsonValue(true));
  object["a"].Append(JsonValue());
  EXPECT_EQ(Written(object), "{\"a\": [true,null],\"b\": 1.5}");
}

TEST(JsonWriter, WritesMembersInTheOrderOfTheirKeys) {
  JsonValue object = JsonValue::Object();
  for (const char* key : {"Value", "GUID", "Component"})
    object[key] = JsonValue(key);
  EXPECT_EQ(Written(object),
            "{\"Component\": \"Component\",\"GUID\": \"GUID\",\"Value\": \"Value\"}");
}

TEST(JsonWriter, WritesOnlyThePayloadOfTheKind) {
  JsonValue text("t");
  text["member"] = JsonValue(1);
  text.Append(JsonValue(2));
  EXPECT_EQ(Written(text), "\"t\"");
}

TEST(JsonWriter, AppendsToWhatIsThere) {
  std::string text = "before";
  WriteJson(JsonValue(1), text);
  EXPECT_EQ(text, "before1");
}

}  // namespace
}  // namespace valmere::test
