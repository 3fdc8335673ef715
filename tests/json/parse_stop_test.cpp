// A parse that is told to stop lets go wherever it is. The flag is up from the start here, so each
// of these meets it at its first look, which must not come only behind all of the work.
#include "json/parse_stop.h"

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <utility>
#include <vector>

#include "json/json_builder.h"
#include "json/json_long_token.h"
#include "json/json_number.h"
#include "json/json_parser.h"
#include "json/json_unescape.h"
#include "tests/json/written.h"

namespace valmere::test {
namespace {

using ::testing::internal::CaptureStderr;
using ::testing::internal::GetCapturedStderr;

constexpr std::size_t kLong = 2 * ParseStop::kBytesBetweenPauses;
constexpr std::size_t kMany = 2 * ParseStop::kValuesBetweenPauses;

const std::atomic<bool> kRaised{true};
const ParseStop kStop(kRaised);

TEST(ParseStop, IsNeverAskedForByDefault) {
  EXPECT_FALSE(ParseStop().asked());
  EXPECT_NO_THROW(ParseStop().Look());
}

TEST(ParseStop, IsSeenWhenItsFlagIsRaised) {
  std::atomic<bool> flag{false};
  const ParseStop stop(flag);
  EXPECT_NO_THROW(stop.Look());
  flag = true;
  EXPECT_TRUE(stop.asked());
  EXPECT_THROW(stop.Look(), ParseStopped);
}

TEST(ParseStop, GivesNullWithoutAWord) {
  for (std::string text : {R"({"a": [1]})", "nonsense", "'\\u'", ""}) {
    CaptureStderr();
    EXPECT_EQ(ParseJsonInPlace(text, kStop).kind(), JsonKind::kNull);
    EXPECT_EQ(GetCapturedStderr(), "");
  }
}

TEST(ParseStop, LeavesAParseAloneThatIsNotStopped) {
  const std::atomic<bool> flag{false};
  std::string text = R"({"a": [1,"\u0041"]})";
  EXPECT_EQ(Written(ParseJsonInPlace(text, ParseStop(flag))), R"({"a": [1,"A"]})");
}

TEST(ParseStop, EndsALongTokenOfEachKind) {
  std::string escapes = "\"";
  while (escapes.size() < kLong)
    escapes += "\\u0041";
  for (const std::string& text :
       {"\"" + std::string(kLong, 'x'), escapes, std::string(kLong, ' '), std::string(kLong, '\t'),
        std::string(kLong, '7'), "." + std::string(kLong, '7'), "1e" + std::string(kLong, '7'),
        "-" + std::string(kLong, '7')})
    EXPECT_THROW(FindLongToken(text, false, kStop), ParseStopped) << text.substr(0, 8);
}

TEST(ParseStop, EndsTheValueOfALongToken) {
  const std::string digits(kLong, '7');
  EXPECT_THROW(IntegerFromToken(digits, kStop), ParseStopped);
  EXPECT_THROW(FloatFromToken(digits + ".", kStop), ParseStopped);
  EXPECT_THROW(FloatFromToken("." + digits, kStop), ParseStopped);
  EXPECT_THROW(FloatFromToken("1e" + digits, kStop), ParseStopped);
  std::string escapes;
  for (std::size_t i = 0; i < kMany; ++i)
    escapes += "\\n";
  EXPECT_THROW(UnescapeJson(escapes, kStop), ParseStopped);
}

TEST(ParseStop, EndsTheOrderingOfManyMembers) {
  std::vector<JsonMember> members;
  for (std::size_t i = 0; i < kMany; ++i)
    members.emplace_back(JsonText(std::to_string(i)), JsonValue());
  EXPECT_THROW(JsonMembers(std::move(members), kStop), ParseStopped);
}

TEST(ParseStop, EndsTheMovesOfManyValues) {
  std::atomic<bool> flag{false};
  JsonBuilder array{ParseStop(flag)};
  JsonBuilder object{ParseStop(flag)};
  for (std::size_t i = 0; i < kMany; ++i) {
    array.PushNull();
    object.PushText("'k'");
    object.PushNull();
  }
  flag = true;
  EXPECT_FALSE(array.CloseArray(0));
  EXPECT_FALSE(object.CloseObject(0));
  // The next one needs more room for all of them.
  JsonBuilder growing{ParseStop(flag)};
  bool pushed = true;
  for (std::size_t i = 0; i < kMany && pushed; ++i)
    pushed = growing.PushNull();
  EXPECT_FALSE(pushed);
}

}  // namespace
}  // namespace valmere::test
