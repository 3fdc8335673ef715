#include "store/property/trigger_property.h"

#include <gtest/gtest.h>

#include <memory>

#include "tests/store/property/change_counter.h"

namespace valmere::test {
namespace {

std::shared_ptr<TriggerProperty> MakeTrigger(bool value) {
  return TriggerProperty::Make(value, "GUID", "Name", "GROUP", "Group");
}

TEST(TriggerProperty, FiresEveryTimeThatTrueIsWritten) {
  const auto trigger = MakeTrigger(false);
  const ChangeCounter commands(*trigger);
  trigger->SetValue(true);
  trigger->SetValue(true);
  EXPECT_EQ(commands.count(), 2);
}

TEST(TriggerProperty, FiresThroughItsBaseAndFromTexts) {
  const auto trigger = MakeTrigger(true);
  const ChangeCounter commands(*trigger);
  static_cast<BoolProperty&>(*trigger).SetValue(true);
  trigger->SetFromString("True");
  trigger->SetFromString("");
  EXPECT_EQ(commands.count(), 3);
}

TEST(TriggerProperty, DoesNothingWhenFalseIsWritten) {
  const auto trigger = MakeTrigger(true);
  trigger->Arm();
  const ChangeCounter commands(*trigger);
  trigger->SetValue(false);
  trigger->SetFromString("FALSE");
  EXPECT_EQ(commands.count(), 0);
  EXPECT_TRUE(trigger->GetValue());
  EXPECT_TRUE(trigger->armed());
}

TEST(TriggerProperty, KeepsItsStoredValueThroughACommand) {
  const auto trigger = MakeTrigger(false);
  trigger->SetValue(true);
  EXPECT_FALSE(trigger->GetValue());
  EXPECT_EQ(trigger->ToString(), "False");
}

TEST(TriggerProperty, ChangesItsStoredValueSilentlyOnly) {
  const auto trigger = MakeTrigger(false);
  const ChangeCounter commands(*trigger);
  trigger->SetValueSilently(true);
  EXPECT_EQ(trigger->ToString(), "True");
  trigger->SetFromStringSilently("false");
  EXPECT_EQ(trigger->ToString(), "False");
  EXPECT_EQ(commands.count(), 0);
}

TEST(TriggerProperty, IsDisarmedBeforeItsListenersHearOfTheCommand) {
  const auto trigger = MakeTrigger(false);
  EXPECT_FALSE(trigger->armed());
  trigger->Arm();
  bool armed_at_command = true;
  trigger->AddListener(
      [&](const std::shared_ptr<Property>&) { armed_at_command = trigger->armed(); });
  trigger->SetValue(true);
  EXPECT_FALSE(armed_at_command);
}

}  // namespace
}  // namespace valmere::test
