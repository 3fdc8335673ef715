#include "store/property/property_key.h"

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

namespace valmere::test {
namespace {

int Sign(int value) {
  return (value > 0) - (value < 0);
}

TEST(PropertyKey, JoinsItsPiecesWithColons) {
  EXPECT_EQ(PropertyKey("group", "guid").Text(), "group:guid");
  EXPECT_EQ(PropertyKey("component", "group", "guid").Text(), "component:group:guid");
  EXPECT_EQ(PropertyKey("", "", "").Text(), "::");
}

TEST(PropertyKey, ComparesAsTheJoinedTextWould) {
  const std::vector<PropertyKey> keys = {{"", ""},
                                         {"a", ""},
                                         {"a", "b"},
                                         {"a", "b", "c"},
                                         {"a:b", "c"},
                                         {"a", "b:c"},
                                         {"", "", ""},
                                         {"ab", "c"},
                                         {"a", "", "b"},
                                         {"\xff", "a"},
                                         {"a",
                                          "\x80"
                                          "b"},
                                         {"a;", "b"}};
  std::vector<std::string> texts = {"", ":", "a", "a:", "a:b:", "a9", "a;b", "a:b:cd", "\xfe"};
  for (const PropertyKey& key : keys)
    texts.push_back(key.Text());
  for (const PropertyKey& key : keys) {
    for (const std::string& text : texts) {
      EXPECT_EQ(Sign(key.Compare(text)), Sign(key.Text().compare(text)))
          << key.Text() << " and " << text;
    }
  }
}

TEST(PropertyKey, DoesNotGuardAgainstAColonWithinAPiece) {
  EXPECT_EQ(PropertyKey("a:b", "c").Compare("a:b:c"), 0);
  EXPECT_EQ(PropertyKey("a", "b:c").Compare("a:b:c"), 0);
  EXPECT_EQ(PropertyKey("a", "b", "c").Compare("a:b:c"), 0);
}

TEST(PropertyKey, FindsJoinedTextsInAnOrderedSet) {
  const std::set<std::string, PropertyKeyLess> texts = {"a:b:c", "a:b:d", "b:b:c"};
  EXPECT_EQ(*texts.find(PropertyKey("a", "b", "d")), "a:b:d");
  EXPECT_EQ(texts.find(PropertyKey("a", "b", "e")), texts.end());
}

}  // namespace
}  // namespace valmere::test
