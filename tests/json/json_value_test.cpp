#include "json/json_value.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/test_thread.h"

namespace valmere::test {
namespace {

std::vector<std::string> Keys(const JsonMembers& members) {
  std::vector<std::string> keys;
  for (const JsonMember& member : members)
    keys.emplace_back(member.key.view());
  return keys;
}

JsonMembers MembersOf(const std::vector<std::string>& keys) {
  std::vector<JsonMember> members;
  for (std::size_t i = 0; i < keys.size(); ++i)
    members.emplace_back(JsonText(keys[i]), JsonValue(static_cast<std::int64_t>(i)));
  return JsonMembers(std::move(members));
}

JsonValue NestedArrays(int depth) {
  JsonValue value;
  for (int i = 0; i < depth; ++i) {
    JsonValue outer = JsonValue::Array();
    outer.Append(std::move(value));
    value = std::move(outer);
  }
  return value;
}

TEST(JsonValue, KindsHaveTheirNumbers) {
  EXPECT_EQ(static_cast<unsigned>(JsonKind::kInteger), 0U);
  EXPECT_EQ(static_cast<unsigned>(JsonKind::kFloat), 1U);
  EXPECT_EQ(static_cast<unsigned>(JsonKind::kBoolean), 2U);
  EXPECT_EQ(static_cast<unsigned>(JsonKind::kString), 3U);
  EXPECT_EQ(static_cast<unsigned>(JsonKind::kObject), 4U);
  EXPECT_EQ(static_cast<unsigned>(JsonKind::kArray), 5U);
  EXPECT_EQ(static_cast<unsigned>(JsonKind::kNull), 6U);
}

TEST(JsonValue, IsNullByDefaultWithAllPayloadsEmpty) {
  const JsonValue value;
  EXPECT_EQ(value.kind(), JsonKind::kNull);
  EXPECT_EQ(value.integer(), 0);
  EXPECT_EQ(value.real(), 0.0);
  EXPECT_FALSE(value.boolean());
  EXPECT_EQ(value.text(), "");
  EXPECT_TRUE(value.members().empty());
  EXPECT_TRUE(value.elements().empty());
}

TEST(JsonValue, EachConstructorSetsItsKindAndOnlyItsPayload) {
  const JsonValue boolean(true);
  EXPECT_EQ(boolean.kind(), JsonKind::kBoolean);
  EXPECT_TRUE(boolean.boolean());
  EXPECT_EQ(boolean.integer(), 0);
  EXPECT_EQ(boolean.real(), 0.0);

  const JsonValue real(1.5);
  EXPECT_EQ(real.kind(), JsonKind::kFloat);
  EXPECT_EQ(real.real(), 1.5);
  EXPECT_EQ(real.integer(), 0);
  EXPECT_FALSE(real.boolean());

  const JsonValue integer(std::numeric_limits<std::int64_t>::min());
  EXPECT_EQ(integer.kind(), JsonKind::kInteger);
  EXPECT_EQ(integer.integer(), std::numeric_limits<std::int64_t>::min());
  EXPECT_EQ(integer.real(), 0.0);
  EXPECT_FALSE(integer.boolean());

  const JsonValue text(std::string("text"));
  EXPECT_EQ(text.kind(), JsonKind::kString);
  EXPECT_EQ(text.text(), "text");

  EXPECT_EQ(JsonValue::Object().kind(), JsonKind::kObject);
  EXPECT_TRUE(JsonValue::Object().members().empty());
  EXPECT_EQ(JsonValue::Array().kind(), JsonKind::kArray);
  EXPECT_EQ(JsonValue::Array().size(), 0U);
}

TEST(JsonValue, TakesALiteralAsTextAndAnIntAsInteger) {
  EXPECT_EQ(JsonValue("x").kind(), JsonKind::kString);
  EXPECT_EQ(JsonValue("x").text(), "x");
  EXPECT_EQ(JsonValue(-7).kind(), JsonKind::kInteger);
  EXPECT_EQ(JsonValue(-7).integer(), -7);
}

TEST(JsonMembers, AreFoundAmongFewAndAmongMany) {
  for (const int count : {1, 16, 17, 1000}) {
    std::vector<std::string> keys;
    for (int i = 0; i < count; ++i)
      keys.push_back("key " + std::to_string(i));
    const JsonMembers members = MembersOf(keys);
    for (int i = 0; i < count; ++i) {
      const JsonValue* const found = members.Find(keys[static_cast<std::size_t>(i)]);
      ASSERT_NE(found, nullptr) << i << " of " << count;
      EXPECT_EQ(found->integer(), i);
    }
    for (const char* missing : {"", "key", "key 0 ", "key x", "z"})
      EXPECT_EQ(members.Find(missing), nullptr) << missing << " of " << count;
  }
}

TEST(JsonValue, IsMadeFromMembersAndFromElements) {
  const JsonValue object(MembersOf({"a", "b"}));
  EXPECT_EQ(object.kind(), JsonKind::kObject);
  EXPECT_EQ(Keys(object.members()), (std::vector<std::string>{"a", "b"}));

  const JsonValue array(std::vector<JsonValue>(3, JsonValue(true)));
  EXPECT_EQ(array.kind(), JsonKind::kArray);
  EXPECT_EQ(array.size(), 3U);
  EXPECT_TRUE(array.At(2).boolean());
}

TEST(JsonValue, IndexingInsertsANullMemberAndKeepsTheKind) {
  JsonValue object = JsonValue::Object();
  EXPECT_EQ(object["missing"].kind(), JsonKind::kNull);
  EXPECT_NE(object.Find("missing"), nullptr);
  object["missing"] = JsonValue(5);
  EXPECT_EQ(object["missing"].integer(), 5);
  EXPECT_EQ(object.members().size(), 1U);

  JsonValue text("t");
  text["key"] = JsonValue(1);
  EXPECT_EQ(text.kind(), JsonKind::kString);
  EXPECT_EQ(text.text(), "t");
  EXPECT_EQ(text.Find("key")->integer(), 1);
}

TEST(JsonValue, FindTellsAMissingMember) {
  JsonValue object(MembersOf({"a", "c"}));
  EXPECT_EQ(object.Find("b"), nullptr);
  EXPECT_EQ(std::as_const(object).Find(""), nullptr);
  EXPECT_EQ(std::as_const(object).Find("c")->integer(), 1);
  *object.Find("a") = JsonValue("changed");
  EXPECT_EQ(object["a"].text(), "changed");
  EXPECT_EQ(object.members().size(), 2U);
  EXPECT_EQ(JsonValue(1).Find("a"), nullptr);
}

TEST(JsonValue, ReplacesAndGivesAwayItsMembers) {
  JsonValue object(MembersOf({"a", "b"}));
  object.ReplaceMembers(MembersOf({"c"}));
  EXPECT_EQ(Keys(object.members()), std::vector<std::string>{"c"});
  const JsonMembers taken = object.TakeMembers();
  EXPECT_EQ(Keys(taken), std::vector<std::string>{"c"});
  EXPECT_TRUE(object.members().empty());
  EXPECT_EQ(object.kind(), JsonKind::kObject);
  EXPECT_TRUE(JsonValue(1).TakeMembers().empty());
}

TEST(JsonValue, RefusesAnIndexAtTheSizeOrBeyond) {
  JsonValue array = JsonValue::Array();
  array.Append(JsonValue(1));
  EXPECT_EQ(array.At(0).integer(), 1);
  array.At(0) = JsonValue(2);
  EXPECT_EQ(std::as_const(array).At(0).integer(), 2);
  for (const std::size_t index : {std::size_t{1}, std::size_t{2}, ~std::size_t{0}}) {
    try {
      array.At(index);
      FAIL();
    } catch (const std::out_of_range& error) {
      EXPECT_STREQ(error.what(), "invalid vector<T> subscript");
    }
    EXPECT_THROW(std::as_const(array).At(index), std::out_of_range);
  }
  EXPECT_THROW(JsonValue("scalar").At(0), std::out_of_range);
}

TEST(JsonValue, AppendsAtTheEnd) {
  JsonValue array = JsonValue::Array();
  const JsonValue element("e");
  array.Append(element);
  array.Append(JsonValue(2));
  EXPECT_EQ(array.size(), 2U);
  EXPECT_EQ(array.At(0), element);
  EXPECT_EQ(array.At(1).integer(), 2);
}

TEST(JsonValue, CopiesDeeply) {
  JsonValue original = JsonValue::Object();
  original["list"] = JsonValue::Array();
  original["list"].Append(JsonValue("first"));
  const JsonValue copy(original);
  JsonValue assigned(3);
  assigned = original;
  original["list"].At(0) = JsonValue("changed");
  EXPECT_EQ(copy.Find("list")->At(0).text(), "first");
  EXPECT_EQ(assigned["list"].At(0).text(), "first");
  EXPECT_NE(copy, original);
  EXPECT_EQ(copy, assigned);
}

TEST(JsonValue, CanBeAssignedFromItsOwnDescendant) {
  const std::string long_text(100, 'x');
  JsonValue value = JsonValue::Object();
  value["inner"] = JsonValue::Object();
  value["inner"]["text"] = JsonValue(long_text);
  value = std::move(value["inner"]);
  EXPECT_EQ(value.kind(), JsonKind::kObject);
  EXPECT_EQ(value["text"].text(), long_text);
  const JsonValue& text = value["text"];
  value = text;
  EXPECT_EQ(value.text(), long_text);
  EXPECT_TRUE(value.members().empty());
  const JsonValue& self = value;
  value = self;
  EXPECT_EQ(value.text(), long_text);
}

TEST(JsonValue, ComparesKindAndEveryPayload) {
  EXPECT_EQ(JsonValue(), JsonValue());
  EXPECT_NE(JsonValue(1), JsonValue(2));
  EXPECT_NE(JsonValue(1), JsonValue(1.0));
  EXPECT_NE(JsonValue(1.0), JsonValue(2.0));
  EXPECT_NE(JsonValue(true), JsonValue(false));
  EXPECT_NE(JsonValue("a"), JsonValue("b"));
  EXPECT_NE(JsonValue::Array(), JsonValue::Object());
  EXPECT_NE(JsonValue(MembersOf({"a"})), JsonValue(MembersOf({"b"})));
  EXPECT_NE(JsonValue(MembersOf({"a"})), JsonValue(MembersOf({"a", "b"})));
  JsonValue other(MembersOf({"a"}));
  other["a"] = JsonValue("not 0");
  EXPECT_NE(JsonValue(MembersOf({"a"})), other);
  EXPECT_NE(NestedArrays(3), NestedArrays(4));
  EXPECT_EQ(NestedArrays(3), NestedArrays(3));
}

TEST(JsonValue, IsDestroyedInASmallStackHoweverDeep) {
  TestThread thread([] {
    JsonValue arrays = NestedArrays(100'000);
    EXPECT_EQ(arrays.size(), 1U);
    JsonValue objects;
    for (int i = 0; i < 100'000; ++i) {
      JsonValue outer = JsonValue::Object();
      outer["first"] = NestedArrays(2);
      outer["second"] = std::move(objects);
      objects = std::move(outer);
    }
    arrays = std::move(objects);
    EXPECT_EQ(arrays.members().size(), 2U);
  });
}

TEST(JsonMembers, StandInAscendingByteOrderWithPrefixesFirst) {
  JsonValue object = JsonValue::Object();
  for (const char* key : {"b", "ab", "\xff", "", "a", "B", "\x7f"})
    object[key];
  EXPECT_EQ(Keys(object.members()),
            (std::vector<std::string>{"", "B", "a", "ab", "b", "\x7f", "\xff"}));
}

TEST(JsonMembers, OfEqualKeysKeepTheFirst) {
  const JsonMembers few = MembersOf({"b", "a", "b", "a", "c"});
  EXPECT_EQ(Keys(few), (std::vector<std::string>{"a", "b", "c"}));
  EXPECT_EQ(few.Find("a")->integer(), 1);
  EXPECT_EQ(few.Find("b")->integer(), 0);
  EXPECT_EQ(few.Find("c")->integer(), 4);

  const JsonMembers adjacent = MembersOf({"a", "b", "b"});
  EXPECT_EQ(adjacent.size(), 2U);
  EXPECT_EQ(adjacent.Find("b")->integer(), 1);
}

TEST(JsonMembers, OfManyEqualKeysKeepTheFirst) {
  std::vector<std::string> keys;
  keys.reserve(1000);
  for (int i = 0; i < 1000; ++i)
    keys.push_back(std::to_string(i * 7 % 100));
  const JsonMembers members = MembersOf(keys);
  EXPECT_EQ(members.size(), 100U);
  for (int i = 0; i < 100; ++i)
    EXPECT_EQ(members.Find(keys[static_cast<std::size_t>(i)])->integer(), i);
}

TEST(JsonMembers, FindAndIndexAsAnObjectDoes) {
  JsonMembers members;
  members["b"] = JsonValue(2);
  members["a"] = JsonValue(1);
  EXPECT_EQ(Keys(members), (std::vector<std::string>{"a", "b"}));
  EXPECT_EQ(members.Find("c"), nullptr);
  members.Find("a")->Append(JsonValue(3));
  EXPECT_EQ(members["a"].size(), 1U);
  EXPECT_EQ(members.size(), 2U);
}

}  // namespace
}  // namespace valmere::test
