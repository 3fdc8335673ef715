#include "store/property/bool_property.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "tests/store/engine/start_gate.h"
#include "tests/store/property/change_counter.h"
#include "tests/support/test_thread.h"

namespace valmere::test {
namespace {

std::shared_ptr<BoolProperty> MakeFlag(bool value) {
  return BoolProperty::Make(value, "GUID", "Name", "GROUP", "Group");
}

TEST(ParseBool, IsFalseForFalseInAnyMixOfCases) {
  for (std::string text : {"False", "false", "FALSE", "fAlSe"})
    EXPECT_FALSE(ParseBool(text));
}

TEST(ParseBool, IsTrueForEveryOtherText) {
  for (std::string text :
       {"True", "true", "", "0", "yes", "no", "off", "false ", " false", "falsy", "fals", "null"})
    EXPECT_TRUE(ParseBool(text)) << text;
  std::string with_nul("fals\0", 5);
  EXPECT_TRUE(ParseBool(with_nul));
}

TEST(ParseBool, LowerCasesTheTextOfFourOrFiveCharactersThatItIsGiven) {
  std::string text = "FALSE";
  EXPECT_FALSE(ParseBool(text));
  EXPECT_EQ(text, "false");
  text = "TRue";
  EXPECT_TRUE(ParseBool(text));
  EXPECT_EQ(text, "true");
  text = "Z[@A\xC4";
  ParseBool(text);
  EXPECT_EQ(text, "z[@a\xC4");
}

TEST(ParseBool, LeavesTextsOfOtherLengthsAsTheyAre) {
  for (const char* given : {"YES", "FALSE ", "A"}) {
    std::string text = given;
    EXPECT_TRUE(ParseBool(text));
    EXPECT_EQ(text, given);
  }
}

TEST(BoolProperty, IsWrittenWithACapital) {
  EXPECT_EQ(MakeFlag(true)->ToString(), "True");
  EXPECT_EQ(MakeFlag(false)->ToString(), "False");
  EXPECT_EQ(MakeFlag(false)->GetValueString(), "False");
}

TEST(BoolProperty, StaysTrueAndSilentWhenSetFromYes) {
  const auto flag = MakeFlag(true);
  const ChangeCounter changes(*flag);
  flag->SetFromString("yes");
  EXPECT_TRUE(flag->GetValue());
  EXPECT_EQ(changes.count(), 0);
}

TEST(BoolProperty, AnnouncesOnceWhenSetFromFalseInCapitals) {
  const auto flag = MakeFlag(true);
  const ChangeCounter changes(*flag);
  flag->SetFromString("FALSE");
  EXPECT_FALSE(flag->GetValue());
  EXPECT_EQ(changes.count(), 1);
}

TEST(BoolProperty, AnnouncesChangesOnly) {
  const auto flag = MakeFlag(false);
  const ChangeCounter changes(*flag);
  flag->SetValue(false);
  flag->SetFromString("false");
  EXPECT_EQ(changes.count(), 0);
  flag->SetValue(true);
  EXPECT_EQ(changes.count(), 1);
  flag->SetFromString("false");
  EXPECT_EQ(changes.count(), 2);
}

TEST(BoolProperty, ChangesSilently) {
  const auto flag = MakeFlag(false);
  const ChangeCounter changes(*flag);
  flag->SetValueSilently(true);
  EXPECT_TRUE(flag->GetValue());
  flag->SetFromStringSilently("FALSE");
  EXPECT_FALSE(flag->GetValue());
  EXPECT_EQ(changes.count(), 0);
}

TEST(BoolProperty, AnnouncesOnceWhatSeveralThreadsSetAtOnce) {
  for (int round = 0; round < 100; ++round) {
    const auto flag = MakeFlag(false);
    const ChangeCounter changes(*flag);
    {
      StartGate gate(2);
      std::vector<TestThread> setters;
      for (int i = 0; i < 2; ++i) {
        setters.emplace_back([&] {
          gate.Pass();
          flag->SetValue(true);
        });
      }
    }
    ASSERT_EQ(changes.count(), 1);
  }
}

}  // namespace
}  // namespace valmere::test
