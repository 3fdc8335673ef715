// What subscribers are told of properties that come and go.
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "store/property/string_property.h"
#include "tests/store/engine/start_gate.h"
#include "tests/store/engine/subscriber_fixture.h"
#include "tests/support/test_thread.h"

namespace valmere::test {
namespace {

class Presence : public SubscriberTest {};

TEST_F(Presence, TellsNothingOfAPropertyAfterItHasGone) {
  Client other;
  Subscribe(other, "C", "G:Q");
  Publish(owner, EntryText{});
  engine->PublishPass();
  Publish(owner, {.value = "W"});
  SubscribeToAll(client);
  Publish(owner, {.status = kGone, .value = "X"});
  engine->PublishPass();
  const Texts texts = client.TakeTexts();
  ASSERT_EQ(1u, texts.size());
  EXPECT_TRUE(texts[0].ends_with(Responses({{.status = kGone, .value = "X"}}).substr(26)))
      << texts[0];
}

TEST_F(Presence, TellsASubscriberToAllOfWhatIsThereAndWhatComes) {
  const auto first = AddOwn("1", "V");
  Publish(owner, {.guid = "2"});
  EndPeriod(client);
  SubscribeToAll(client);
  engine->AnnounceFromNow();
  const auto third = AddOwn("3", "V");
  Publish(owner, {.guid = "4"});
  EXPECT_EQ((Texts{Responses({OwnEntry("3", "V"), {.guid = "4"}})}), EndPeriod(client));
  first->SetValue("W");
  third->SetValue("W");
  Publish(owner, {.guid = "2", .value = "W"});
  Publish(owner, {.guid = "4", .value = "W"});
  EXPECT_EQ((Texts{Responses({OwnEntry("3", "W"),
                              OwnEntry("1", "W"),
                              {.guid = "4", .value = "W"},
                              {.guid = "2", .value = "W"}})}),
            EndPeriod(client));
}

TEST_F(Presence, AnnouncesAPropertyToAClientThatNamedItBefore) {
  engine->AnnounceFromNow();
  Subscribe(client, "C", "G:P");
  Subscribe(client, "OWN", "G:P");
  Publish(owner, {.guid = "other"});
  Publish(owner, EntryText{});
  const auto property = AddOwn("P", "V");
  EXPECT_EQ((Texts{Responses({EntryText{}, OwnEntry("P", "V")})}), EndPeriod(client));
  Publish(owner, {.value = "W"});
  property->SetValue("W");
  EXPECT_EQ((Texts{Responses({OwnEntry("P", "W"), {.value = "W"}})}), EndPeriod(client));
}

TEST_F(Presence, AnnouncesNothingOfTheServiceBeforeItMay) {
  SubscribeToAll(client);
  const auto property = AddOwn("1", "V");
  EXPECT_TRUE(EndPeriod(client).empty());
  property->SetValue("W");
  EXPECT_EQ((Texts{Responses({OwnEntry("1", "W")})}), EndPeriod(client)) << "but its changes";
  engine->AnnounceFromNow();
  AddOwn("2", "V");
  EXPECT_EQ((Texts{Responses({OwnEntry("2", "V")})}), EndPeriod(client));
}

TEST_F(Presence, AnnouncesAPropertyOnceAndNoneThatIsRefused) {
  SubscribeToAll(client);
  engine->AnnounceFromNow();
  Publish(owner, EntryText{});
  AddOwn("P", "V");
  EXPECT_FALSE(engine->AddProperty(StringProperty::Make("W", "P", "Name", "G", "Group")));
  EXPECT_EQ((Texts{Responses({EntryText{}, OwnEntry("P", "V")})}), EndPeriod(client));
  EXPECT_TRUE(EndPeriod(client).empty());
}

TEST_F(Presence, TellsAWithdrawnPropertyOnceWithItsLastIdentity) {
  Publish(owner, {.component_string = "cs", .group_string = "gs", .name_string = "ns"});
  EndPeriod(client);
  SubscribeToAll(client);
  Publish(owner, {.component_string = "other",
                  .group_string = "other",
                  .name_string = "other",
                  .status = kGone,
                  .value = "V"});
  EXPECT_EQ((Texts{Responses({{.component_string = "cs",
                               .group_string = "gs",
                               .name_string = "ns",
                               .status = kGone}})}),
            EndPeriod(client));
  EXPECT_TRUE(EndPeriod(client).empty());
}

TEST_F(Presence, TellsTheLastChangeOfAWithdrawnPropertyFirst) {
  Publish(owner, EntryText{});
  SubscribeToAll(client);
  EndPeriod(client);
  Publish(owner, {.status = kGone, .value = "last"});
  EXPECT_EQ((Texts{Responses({{.value = "last"}, {.status = kGone, .value = "last"}})}),
            EndPeriod(client));
}

TEST_F(Presence, TellsThatAPropertyIsGoneThatWasNeverRegistered) {
  Subscribe(client, "C", "G:P");
  Publish(owner, {.status = kGone, .value = "text"});
  EXPECT_EQ((Texts{Responses({{.status = kGone, .value = "text"}})}), EndPeriod(client));
  EXPECT_EQ(1, owner.connection.use_count());
}

TEST_F(Presence, TellsOfAllThatGoesWithItsConnection) {
  Publish(owner, {.guid = "1"});
  Publish(owner, {.guid = "2"});
  SubscribeToAll(client);
  EndPeriod(client);
  engine->ConnectionEnded(*owner.connection);
  EXPECT_EQ((Texts{Responses({{.guid = "1", .status = kGone}, {.guid = "2", .status = kGone}})}),
            EndPeriod(client));
}

TEST_F(Presence, LeavesAComponentThatCameBackAtOnceInPlace) {
  Publish(owner, EntryText{});
  SubscribeToAll(client);
  EndPeriod(client);
  engine->ConnectionEnded(*owner.connection);
  Client again;
  Publish(again, {.value = "W"});
  EXPECT_EQ((Texts{Responses({{.status = kGone}, {.value = "W"}})}), EndPeriod(client))
      << "what is told last is what is true";
}

TEST_F(Presence, EndsPublishingAQuietPropertyWhenItGoes) {
  engine->DeclareQuiet("C", "G", "P");
  engine->DeclareQuiet("C", "G", "Q");
  Publish(owner, EntryText{});
  SubscribeToAll(client);
  Publish(owner, {.guid = "Q"});
  EXPECT_EQ((Texts{Responses({{}, {.guid = "Q"}, {}, {.guid = "Q"}})}), EndPeriod(client));
  Publish(owner, {.status = kGone});
  EXPECT_EQ((Texts{Responses({{.status = kGone}, {.guid = "Q"}})}), EndPeriod(client));
  engine->ConnectionEnded(*owner.connection);
  EXPECT_EQ((Texts{Responses({{.guid = "Q", .status = kGone}})}), EndPeriod(client));
  EXPECT_TRUE(EndPeriod(client).empty());
}

// Keeps its writer waiting.
class BlockingConnection final : public Connection {
 public:
  int Read(void*, int) override { return kFailed; }
  int Write(const void*, int length) override {
    writing.Release();
    go_on.Wait();
    return length;
  }
  void Close() override {}
  bool IsOpen() const override { return true; }
  platform::Semaphore writing;
  platform::Semaphore go_on;
};

// A property is withdrawn while the thread that publishes it still asks whether a client wants it.
TEST_F(Presence, TellsOnlyThatAPropertyIsGoneThatWentBeforeItWasAnnounced) {
  engine->DeclareQuiet("C", "G", "quiet");
  const auto slow_stream = std::make_shared<BlockingConnection>();
  Client slow(slow_stream);
  for (const std::string_view guid : {"P", "quiet"}) {
    SubscribeToAll(slow);
    Publish(owner, {.guid = "other", .value = guid});
    engine->PublishPass();
    TestThread passing([&] { engine->PublishPass(); });
    slow_stream->writing.Wait();  // the subscriber list is in use now
    TestThread publishing([&] { EXPECT_TRUE(Send(owner, Responses({{.guid = guid}}))); });
    EXPECT_TRUE(Eventually([&] { return ReachesOwner(guid); }));
    Client second_owner;
    Publish(second_owner, {.guid = guid, .status = kGone});
    slow_stream->go_on.Release();
    passing.Join();
    publishing.Join();
    engine->ConnectionEnded(*slow.connection);
    SubscribeToAll(client);
    EXPECT_EQ((Texts{Responses({{.guid = guid, .status = kGone}})}), EndPeriod(client));
    EXPECT_TRUE(EndPeriod(client).empty());
    engine->ConnectionEnded(*client.connection);
  }
}

// Counts what it takes; refuses the frame of that number and all after it.
class CountingConnection final : public Connection {
 public:
  explicit CountingConnection(int refused) : refused_(refused) {}
  int Read(void*, int) override { return kFailed; }
  int Write(const void*, int length) override { return ++frames >= refused_ ? kGone : length; }
  void Close() override {}
  bool IsOpen() const override { return true; }
  std::atomic<int> frames{0};

 private:
  const int refused_;
};

TEST_F(Presence, SurvivesSubscribersAndPublishersThatComeAndGoWhileItPublishes) {
  constexpr int kRounds = 150;
  engine->AnnounceFromNow();
  engine->DeclareQuiet("C", "G", "quiet");
  const auto property = AddOwn("P", "V");
  StartGate gate(4);
  std::atomic<int> running{3};
  std::vector<TestThread> threads;
  const auto run = [&](auto round) {
    threads.emplace_back([&, round] {
      gate.Pass();
      for (int i = 0; i < kRounds; ++i)
        round(i);
      --running;
    });
  };
  run([&](int i) {
    Client subscriber(std::make_shared<CountingConnection>(i % 3 + 1));
    Send(subscriber, i % 2 == 0 ? std::string(kSubscribeToAll) : Subscription("C", "G:quiet"));
    Send(subscriber, Subscription("C", "G:P"));
    Send(subscriber, R"({"GetAllProperties": true})");
    engine->ConnectionEnded(*subscriber.connection);
  });
  run([&](int i) {
    Client publisher(std::make_shared<CountingConnection>(kRounds));
    Send(publisher, Responses({EntryText{}, {.guid = "quiet"}}));
    Send(publisher, Responses({{.value = std::to_string(i)}}));
    if (i % 2 == 0) Send(publisher, Responses({{.status = kGone}}));
    engine->ConnectionEnded(*publisher.connection);
  });
  run([&](int i) {
    property->SetValue(std::to_string(i));
    Client setter(std::make_shared<CountingConnection>(kRounds));
    Send(setter, R"({"PropertySetRequests": [{"Component": "C","GUID": "G:P","Value": "x"}]})");
  });
  gate.Pass();
  while (running > 0)
    engine->PublishPass();
  threads.clear();
  SubscribeToAll(client);
  EndPeriod(client);
  EXPECT_TRUE(EndPeriod(client).empty()) << "nothing is left that would be published";
}

}  // namespace
}  // namespace valmere::test
