// What is published, and what is remembered, when memory or room runs out.
#include <gtest/gtest.h>

#include <cstddef>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "store/engine/announcements.h"
#include "store/engine/update_entries.h"
#include "tests/store/engine/publishing_fixture.h"
#include "tests/support/allocations.h"

namespace valmere::test {
namespace {

TEST_F(Publishing, LosesOnlyTheEntryThatThereIsNoMemoryFor) {
  Subscribe(client);
  const auto broken = std::make_shared<AskedProperty>();
  broken->out_of_memory = true;
  pending->periodic.Add(broken);
  pending->PushChange(Own("1"));
  pending->PushChange(broken);
  pending->announcements.AddNew(Own("2"));
  EndPeriod();
  EXPECT_EQ((Texts{Responses({OwnEntry("1"), OwnEntry("2")})}), client.TakeTexts());
  EXPECT_EQ(2, PassesUntilWritten(client, 10)) << "and periods go on ending";
}

TEST_F(Publishing, KeepsWhatComesAndGoesForAPassWithMoreMemory) {
  Subscribe(client);
  pending->announcements.AddVanished(Published("1"));
  pending->announcements.AddNew(Published("1", "W"));
  pending->announcements.AddNew(Own("2"));
  {
    const LimitedAllocations none(0);
    publisher.Pass();
  }
  publisher.Pass();
  EXPECT_EQ((Texts{Responses({OwnEntry("2"), {.guid = "1", .status = kGone}})}),
            client.TakeTexts());
  EndPeriod();
  EXPECT_EQ((Texts{Responses({{.guid = "1", .value = "W"}})}), client.TakeTexts());
}

TEST_F(Publishing, GivesTheMemoryOfABurstBack) {
  Client to_all;
  Subscribe(to_all);
  Subscribe(client, {{"OWN", "G", "P"}});
  property->SetFromString(std::string(1'000'000, 'x'));
  EndPeriod();
  const std::size_t before = BytesInUse();
  pending->PushChange(property);
  EndPeriod();
  for (Client* const each : {&client, &to_all})
    EXPECT_EQ(1u, each->TakeTexts().size());
  EXPECT_GT(before + 100'000, BytesInUse());
}

class ThrowingConnection final : public Connection {
 public:
  int Read(void*, int) override { return kFailed; }
  int Write(const void*, int) override { throw std::bad_alloc(); }
  void Close() override {}
  bool IsOpen() const override { return true; }
};

TEST_F(Publishing, TellsThoseBehindASubscriberForWhomThereIsNoMemory) {
  const Client throwing(std::make_shared<ThrowingConnection>());
  Subscribe(throwing);
  Subscribe(client);
  for (int i = 0; i < 3; ++i)
    EXPECT_EQ(2, PassesUntilWritten(client, 10));
  EXPECT_EQ(2u, CountSubscribers());
}

TEST_F(Publishing, TellsThatAPropertyIsGoneHoweverMuchElseThePeriodHas) {
  Subscribe(client, {{"C", "G", "1"}});
  property->SetFromString(std::string(UpdateEntries::kMostBytes - 200, 'x'));
  pending->PushChange(property);
  pending->announcements.AddVanished(Published("1"));
  EndPeriod();
  EXPECT_EQ((Texts{Responses({{.guid = "1", .status = kGone}})}), client.TakeTexts());
  EXPECT_EQ(0u, RegisteredKeys(client).size());
}

TEST_F(Publishing, SaysOnceAPeriodThatItHasNoRoomForMore) {
  Subscribe(client);
  property->SetFromString(std::string(UpdateEntries::kMostBytes / 2, 'x'));
  for (int period_number = 0; period_number < 2; ++period_number) {
    for (int i = 0; i < 3; ++i)
      pending->PushChange(property);
    publisher.Pass();
    pending->PushChange(property);
    publisher.Pass();
    EXPECT_EQ((Texts{"More happens in a publishing period than subscribers can be told of"}),
              log->TakeLines());
  }
  pending->PushChange(property);
  EndPeriod();
  EXPECT_TRUE(log->TakeLines().empty());
}

// What is not told anew by a change must not be kept for it either.
TEST_F(Publishing, RemembersNothingThatItHadNoRoomFor) {
  Subscribe(client, {{"C", "G", "other"}});
  property->SetFromString(std::string(UpdateEntries::kMostBytes - 1000, 'x'));
  pending->PushChange(property);
  const auto refused = Published("1", std::string(10'000, 'x'));
  pending->announcements.AddNew(refused);
  publisher.Pass();
  EXPECT_EQ(1, refused.use_count());
}

TEST_F(Publishing, KeepsNothingThatHasGoneThoughThereIsNoRoomToTell) {
  period->SetValue(0);
  EndPeriod();
  Subscribe(client, {{"C", "G", "other"}});
  const auto told = Published("1");
  pending->announcements.AddNew(told);
  publisher.Pass();
  EXPECT_EQ(2, told.use_count()) << "its value may be overtaken";
  property->SetFromString(std::string(UpdateEntries::kMostBytes - 1000, 'x'));
  pending->PushChange(property);
  for (int i = 0; i < 6; ++i)
    pending->announcements.AddVanished(Published("2", std::string(1'000'000, 'x')));
  pending->announcements.AddVanished(told);
  told->SetFromString(std::string(1'000'000, 'x'));
  publisher.Pass();
  EXPECT_EQ(1, told.use_count());
}

TEST_F(Publishing, KeepsNothingThatHasGoneThoughTheAnnouncementWasLost) {
  period->SetValue(0);
  EndPeriod();
  Subscribe(client, {{"C", "G", "other"}});
  const auto told = Published("1");
  pending->announcements.AddNew(told);
  publisher.Pass();
  EXPECT_EQ(2, told.use_count());
  const auto other = Published("2");
  for (std::size_t i = 0; i < Announcements::kMostWaiting; ++i)
    pending->announcements.AddVanished(other);
  pending->announcements.AddVanished(told);
  publisher.Pass();
  EXPECT_EQ(1, told.use_count());
}

}  // namespace
}  // namespace valmere::test
