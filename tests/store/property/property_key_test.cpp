#include "store/property/property_key.h"

#include <gtest/gtest.h>

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
                                         {"a;", "b"},
                                         {"a;b", "c"},
                                         {"a:b", "c", "d"},
                                         {"a9", "b", "c"},
                                         {"a", "bb", "c"},
                                         {"a", "b", "cd"}};
  for (const PropertyKey& a : keys) {
    for (const PropertyKey& b : keys) {
      EXPECT_EQ(Sign(a.Compare(b)), Sign(a.Text().compare(b.Text())))
          << a.Text() << " and " << b.Text();
      EXPECT_EQ(a == b, a.Text() == b.Text());
      EXPECT_EQ(a < b, a.Text() < b.Text());
    }
  }
}

TEST(PropertyKey, DoesNotGuardAgainstAColonWithinAPiece) {
  EXPECT_EQ(PropertyKey("a:b", "c"), PropertyKey("a", "b:c"));
  EXPECT_EQ(PropertyKey("a:b", "c"), PropertyKey("a", "b", "c"));
  EXPECT_EQ(PropertyKey("a:", "b", "c"), PropertyKey("a", "", "b:c"));
}

}  // namespace
}  // namespace valmere::test
