// What a pass publishes, and in which order.
#include "store/engine/change_publisher.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "store/engine/change_stack.h"
#include "store/engine/pending_updates.h"
#include "store/property/string_property.h"
#include "tests/store/engine/publishing_fixture.h"

namespace valmere::test {
namespace {

TEST_F(Publishing, TellsTheWholePeriodAtItsEndOnly) {
  Subscribe(client);
  pending->PushChange(Own("1"));
  publisher.Pass();
  EXPECT_TRUE(client.TakeTexts().empty());
  pending->PushChange(Own("2"));
  publisher.Pass();
  EXPECT_EQ((Texts{Responses({OwnEntry("1"), OwnEntry("2")})}), client.TakeTexts());
  EndPeriod();
  EXPECT_TRUE(client.TakeTexts().empty()) << "it is told once";
}

TEST_F(Publishing, TellsTheNewestOfAPassFirst) {
  Subscribe(client);
  for (const char* guid : {"1", "2", "3"})
    pending->PushChange(Own(guid));
  publisher.Pass();
  for (const char* guid : {"4", "5"})
    pending->PushChange(Own(guid));
  publisher.Pass();
  EXPECT_EQ((Texts{Responses(
                {OwnEntry("3"), OwnEntry("2"), OwnEntry("1"), OwnEntry("5"), OwnEntry("4")})}),
            client.TakeTexts());
}

TEST_F(Publishing, DoesNotMergeTheChangesOfAProperty) {
  Subscribe(client);
  for (int i = 0; i < 3; ++i)
    pending->PushChange(property);
  property->SetFromString("last");
  EndPeriod();
  EXPECT_EQ(
      (Texts{Responses({OwnEntry("P", "last"), OwnEntry("P", "last"), OwnEntry("P", "last")})}),
      client.TakeTexts());
}

TEST_F(Publishing, TellsOwnChangesThenComponentsThenNewThenVanished) {
  Subscribe(client);
  pending->announcements.AddVanished(Published("1"));
  pending->announcements.AddVanished(Published("2"));
  pending->announcements.AddNew(Published("3"));
  pending->announcements.AddNew(Own("4"));
  pending->PushChange(Published("5"));
  pending->PushChange(Published("6"));
  pending->PushChange(Own("7"));
  pending->PushChange(Own("8"));
  pending->periodic.Add(Own("9"));
  EndPeriod();
  EXPECT_EQ((Texts{Responses({OwnEntry("8"),
                              OwnEntry("7"),
                              {.guid = "6"},
                              {.guid = "5"},
                              {.guid = "3"},
                              OwnEntry("4"),
                              {.guid = "1", .status = kGone},
                              {.guid = "2", .status = kGone},
                              OwnEntry("9")})}),
            client.TakeTexts());
}

// A change that the pass no longer takes, and the going right after it.
TEST_F(Publishing, TellsThatAPropertyIsGoneAfterTheChangesBeforeIt) {
  Subscribe(client);
  const auto leaving = Published("1");
  const auto busy = WatchedProperty::Make();
  std::uint32_t reads = 0;
  busy->on_read = [&] {
    if (++reads < ChangeStack::kSlots) pending->PushChange(busy);
    if (reads != ChangeStack::kSlots) return;
    pending->PushChange(leaving);
    pending->announcements.AddVanished(leaving);
  };
  pending->PushChange(busy);
  EndPeriod();
  EndPeriod();
  std::string told;
  for (const std::string& text : client.TakeTexts())
    told += text;
  const std::size_t change = told.rfind(EntryText{.guid = "1"}.Text());
  const std::size_t going = told.rfind(EntryText{.guid = "1", .status = kGone}.Text());
  ASSERT_NE(std::string::npos, change);
  ASSERT_NE(std::string::npos, going);
  EXPECT_LT(change, going);
}

TEST_F(Publishing, TakesChangesAgainAfterThePassThatEmptiedTheStack) {
  Subscribe(client);
  const auto published = Published("1");
  EXPECT_FALSE(pending->changes.HasChanges());
  for (int i = 0; i < 499; ++i) {
    EXPECT_TRUE(pending->PushChange(property));
    EXPECT_TRUE(pending->PushChange(published));
  }
  EXPECT_FALSE(pending->PushChange(property));
  EXPECT_FALSE(pending->PushChange(published));
  EXPECT_TRUE(pending->changes.HasChanges());
  publisher.Pass();
  EXPECT_FALSE(pending->changes.HasChanges());
  EXPECT_TRUE(pending->PushChange(property));
  EXPECT_TRUE(pending->PushChange(published));
}

TEST_F(Publishing, TellsPeriodicPropertiesAtEveryEndUntilTheyGo) {
  Subscribe(client);
  pending->periodic.Add(property);
  publisher.Pass();
  property->SetFromString("W");
  publisher.Pass();
  EndPeriod();
  EXPECT_EQ((Texts{Responses({OwnEntry("P", "W")}), Responses({OwnEntry("P", "W")})}),
            client.TakeTexts());
  pending->periodic.Remove(property);
  EndPeriod();
  EXPECT_TRUE(client.TakeTexts().empty());
}

TEST_F(Publishing, TellsNoSubscriberWhatChangedBeforeItCame) {
  pending->PushChange(property);
  pending->announcements.AddNew(property);
  pending->announcements.AddVanished(property);
  publisher.Pass();
  EXPECT_EQ(1, property.use_count()) << "it is let go all the same";
  Subscribe(client);
  publisher.Pass();
  EXPECT_TRUE(client.TakeTexts().empty());
}

TEST_F(Publishing, RendersNothingForNoSubscriberAndOnceForMany) {
  const auto asked = std::make_shared<AskedProperty>();
  pending->PushChange(asked);
  pending->periodic.Add(asked);
  EndPeriod();
  EXPECT_EQ(0, asked->asked);
  pending->periodic.Remove(asked);
  std::vector<Client> clients(3);
  for (const Client& each : clients)
    Subscribe(each);
  pending->PushChange(asked);
  EndPeriod();
  EXPECT_EQ(1, asked->asked);
}

// Changes again each time that it is asked for its value.
class RestlessProperty final : public StringProperty {
 public:
  explicit RestlessProperty(PendingUpdates& pending)
      : StringProperty(MakeToken(), "V", PropertyIdentity("P", "Name", "G", "Group")),
        pending_(pending) {}
  std::string GetValueString() const override {
    if (++asked < 10'000)
      pending_.PushChange(std::const_pointer_cast<Property>(shared_from_this()));
    return StringProperty::GetValueString();
  }
  mutable std::uint32_t asked = 0;

 private:
  PendingUpdates& pending_;
};

TEST_F(Publishing, EndsAPassThoughChangesComeAsFastAsTheyAreTaken) {
  Subscribe(client);
  const auto restless = std::make_shared<RestlessProperty>(*pending);
  pending->PushChange(restless);
  publisher.Pass();
  EXPECT_EQ(ChangeStack::kSlots, restless->asked);
  EXPECT_TRUE(pending->changes.HasChanges());
}

}  // namespace
}  // namespace valmere::test
