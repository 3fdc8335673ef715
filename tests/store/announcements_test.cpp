#include "store/announcements.h"

#include <memory>
#include <string_view>

#include <gtest/gtest.h>

#include "store/component_property.h"
#include "store/string_property.h"
#include "tests/support/allocations.h"

namespace valmere {
namespace {

using Handles = Announcements::Handles;

std::shared_ptr<Property> Make(std::string_view guid) {
  return ComponentProperty::Make("", guid, "", "G", "", "C", "", nullptr);
}

TEST(Announcements, KeepsTheOrderOfEachKind) {
  Announcements announcements;
  const auto a = Make("A"), b = Make("B"), c = Make("C"), d = Make("D");
  announcements.AddVanished(c);
  announcements.AddNew(b);
  announcements.AddNew(a);
  announcements.AddVanished(d);
  const auto taken = announcements.Take();
  EXPECT_EQ((Handles{b, a}), taken.added);
  EXPECT_EQ((Handles{c, d}), taken.vanished);
}

TEST(Announcements, GivesEverythingOnce) {
  Announcements announcements;
  announcements.AddNew(Make("A"));
  announcements.AddVanished(Make("B"));
  announcements.Take();
  const auto taken = announcements.Take();
  EXPECT_TRUE(taken.added.empty());
  EXPECT_TRUE(taken.vanished.empty());
}

TEST(Announcements, LetWhatCameAndWentGoInOnePass) {
  Announcements announcements;
  const auto property = Make("A");
  announcements.AddNew(property);
  announcements.AddVanished(property);
  const auto taken = announcements.Take();
  EXPECT_EQ((Handles{property}), taken.added);
  EXPECT_EQ((Handles{property}), taken.vanished);
}

TEST(Announcements, LetWhatWentAndCameBackWaitForTheNextPass) {
  Announcements announcements;
  const auto old = Make("A"), back = Make("A"), other = Make("B");
  announcements.AddNew(old);
  announcements.AddVanished(old);
  announcements.AddNew(back);
  announcements.AddNew(other);
  const auto taken = announcements.Take();
  EXPECT_EQ((Handles{old, other}), taken.added);
  EXPECT_EQ((Handles{old}), taken.vanished);
  const auto next = announcements.Take();
  EXPECT_EQ((Handles{back}), next.added);
  EXPECT_TRUE(next.vanished.empty());
}

TEST(Announcements, LetWhatCameBackAndWentAgainGoWithTheRest) {
  Announcements announcements;
  const auto old = Make("A"), back = Make("A");
  announcements.AddVanished(old);
  announcements.AddNew(back);
  announcements.AddVanished(back);
  const auto taken = announcements.Take();
  EXPECT_EQ((Handles{back}), taken.added);
  EXPECT_EQ((Handles{old, back}), taken.vanished);
  EXPECT_TRUE(announcements.Take().added.empty());
}

TEST(Announcements, LoseNothingWhenThereIsNoMemoryToTakeThem) {
  Announcements announcements;
  const auto a = Make("A"), b = Make("B"), other = Make("C");
  const auto a_back = Make("A"), b_back = Make("B");
  for (const auto& property : {a, b})
    announcements.AddVanished(property);
  for (const auto& property : {a_back, other, b_back})
    announcements.AddNew(property);
  Announcements::Taken taken;
  testing::FailEachAllocation([&] { taken = announcements.Take(); },
                              [&] { EXPECT_TRUE(taken.added.empty()); });
  EXPECT_EQ((Handles{other}), taken.added);
  EXPECT_EQ((Handles{a, b}), taken.vanished);
  EXPECT_EQ((Handles{a_back, b_back}), announcements.Take().added);
}

TEST(Announcements, NeverLetAPropertyOfTheServiceWait) {
  Announcements announcements;
  const auto own = StringProperty::Make("", "G:A", "", "C", "");
  announcements.AddVanished(Make("A"));
  announcements.AddNew(own);
  EXPECT_EQ((Handles{own}), announcements.Take().added);
}

}  // namespace
}  // namespace valmere
