// Who hears of what, asked and told as clients are.
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "persist/log/debug_switches.h"
#include "store/property/trigger_property.h"
#include "tests/store/engine/engine_fixture.h"
#include "tests/store/engine/start_gate.h"
#include "tests/support/test_thread.h"

namespace valmere {
namespace {

using test::Client;
using test::EntryText;
using test::Responses;
using test::TestThread;

using Texts = std::vector<std::string>;

using test::kGone;
constexpr const char* kSubscribeToAll = R"({"SubscribeAllCurrentAndNewProperties": true})";

std::string Subscription(std::string_view component, std::string_view joined_guid) {
  return R"({"PropertySubscribeRequests": [{"Component": ")" + std::string(component) +
         R"(","GUID": ")" + std::string(joined_guid) + R"("}]})";
}

class Observation : public test::EngineTest {
 protected:
  // What it is told at the end of a period that has just begun.
  Texts EndPeriod(Client& receiver) {
    engine->PublishPass();
    engine->PublishPass();
    return receiver.TakeTexts();
  }
  void SubscribeToAll(Client& subscriber) { EXPECT_TRUE(Send(subscriber, kSubscribeToAll)); }
  void Subscribe(Client& subscriber, std::string_view component, std::string_view joined_guid) {
    EXPECT_TRUE(Send(subscriber, Subscription(component, joined_guid)));
  }

  // Sets the property "C", "G" of this GUID and tells whether the owner was asked to. For use while
  // subscribers are told, when answers wait.
  bool ReachesOwner(std::string_view guid) {
    EXPECT_TRUE(Send(reader, R"({"PropertySetRequests": [{"Component": "C","GUID": "G:)" +
                                 std::string(guid) + R"(","Value": "set"}]})"));
    return !owner.TakeTexts().empty();
  }

  Client owner;
  Client client;
};

TEST_F(Observation, TellsAClientOfChangesOfWhatItNamed) {
  const auto property = AddOwn("P", "V");
  const auto other = AddOwn("Q", "V");
  Publish(owner, EntryText{});
  EndPeriod(client);
  Subscribe(client, "OWN", "G:P");
  Subscribe(client, "C", "G:P");
  EXPECT_TRUE(EndPeriod(client).empty()) << "what was there is no news";
  property->SetValue("W");
  other->SetValue("W");
  Publish(owner, {.value = "W"});
  EXPECT_EQ((Texts{Responses({OwnEntry("P", "W"), {.value = "W"}})}), EndPeriod(client));
}

TEST_F(Observation, TellsOnlyOfChanges) {
  Publish(owner, EntryText{});
  Subscribe(client, "C", "G:P");
  EndPeriod(client);
  Publish(owner, EntryText{});
  EXPECT_TRUE(EndPeriod(client).empty());
}

TEST_F(Observation, TellsOfAChangeBetweenTheAnnouncementAndTheSubscription) {
  Client other;
  Subscribe(other, "C", "G:Q");
  Publish(owner, EntryText{});
  engine->PublishPass();
  Publish(owner, {.value = "W"});
  Subscribe(client, "C", "G:P");
  engine->PublishPass();
  EXPECT_EQ((Texts{Responses({EntryText{}, {.value = "W"}})}), client.TakeTexts())
      << "the last that it is told is not older than what it may have read";
  EXPECT_TRUE(EndPeriod(client).empty());
}

TEST_F(Observation, TellsAnAnnouncedValueOnceIfItHasNotChanged) {
  Client other;
  Subscribe(other, "C", "G:Q");
  Publish(owner, EntryText{});
  engine->PublishPass();
  Subscribe(client, "C", "G:P");
  engine->PublishPass();
  EXPECT_EQ((Texts{Responses({EntryText{}})}), client.TakeTexts());
}

TEST_F(Observation, TellsNothingOfAPropertyAfterItsGoing) {
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

TEST_F(Observation, TellsASubscriberToAllOfWhatIsThereAndWhatComes) {
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

TEST_F(Observation, TellsWhoNamedAPropertyBeforeItExisted) {
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

TEST_F(Observation, PassesOverWhatDoesNotExistInASubscription) {
  const auto property = AddOwn("P", "V");
  EXPECT_TRUE(Send(client, R"({"PropertySubscribeRequests": [{"Component": "OWN","GUID": "G:Q"},)"
                           R"({"Component": "OWN","GUID": "G:P"}]})"));
  property->SetValue("W");
  EXPECT_EQ((Texts{Responses({OwnEntry("P", "W")})}), EndPeriod(client));
}

TEST_F(Observation, ListensToNothingThatNobodyNamed) {
  const auto before = AddOwn("1", "V");
  Subscribe(client, "OWN", "G:2");
  const auto named = AddOwn("2", "V");
  const auto after = AddOwn("3", "V");
  EXPECT_FALSE(before->observed());
  EXPECT_TRUE(named->observed());
  EXPECT_FALSE(after->observed());
}

TEST_F(Observation, AnnouncesNothingOfTheServiceUntilItIsToldTo) {
  SubscribeToAll(client);
  const auto property = AddOwn("1", "V");
  EXPECT_TRUE(EndPeriod(client).empty());
  property->SetValue("W");
  EXPECT_EQ((Texts{Responses({OwnEntry("1", "W")})}), EndPeriod(client)) << "but its changes";
  engine->AnnounceFromNow();
  AddOwn("2", "V");
  EXPECT_EQ((Texts{Responses({OwnEntry("2", "V")})}), EndPeriod(client));
}

TEST_F(Observation, AnnouncesAPropertyOnceAndNoneThatIsRefused) {
  SubscribeToAll(client);
  engine->AnnounceFromNow();
  Publish(owner, EntryText{});
  AddOwn("P", "V");
  EXPECT_FALSE(engine->AddProperty(StringProperty::Make("W", "P", "Name", "G", "Group")));
  EXPECT_EQ((Texts{Responses({EntryText{}, OwnEntry("P", "V")})}), EndPeriod(client));
  EXPECT_TRUE(EndPeriod(client).empty());
}

TEST_F(Observation, AttachesOneListenerHoweverManySubscribe) {
  const auto property = AddOwn("P", "V");
  std::vector<Client> clients(3);
  for (Client& each : clients) {
    Subscribe(each, "OWN", "G:P");
    Subscribe(each, "OWN", "G:P");
    Subscribe(each, "OWN", "G:Q");
  }
  SubscribeToAll(client);
  property->SetValue("W");
  EXPECT_EQ((Texts{Responses({OwnEntry("P", "W")})}), EndPeriod(client));
  for (Client& each : clients)
    EXPECT_EQ((Texts{Responses({OwnEntry("P", "W")})}), each.TakeTexts());
}

TEST_F(Observation, AttachesOneListenerWhenTwoSubscribeAtOnce) {
  constexpr int kRounds = 60;
  constexpr std::size_t kProperties = 400;
  PropertyMessage subscription;
  subscription.SubscribeAll();
  for (int round = 0; round < kRounds; ++round) {
    const auto shared = test::MakeTestEngine();
    std::vector<std::shared_ptr<StringProperty>> properties;
    for (std::size_t i = 0; i < kProperties; ++i) {
      properties.push_back(StringProperty::Make("V", std::to_string(i), "Name", "G", "Group"));
      EXPECT_TRUE(shared->AddProperty(properties.back()));
    }
    Client first, second;
    test::StartGate gate(2);
    const auto subscribe = [&](Client& subscriber) {
      gate.Pass();
      shared->HandleMessage(subscription, subscriber.connection, subscriber.reply);
    };
    TestThread thread([&] { subscribe(first); });
    subscribe(second);
    thread.Join();
    for (const auto& property : properties)
      property->SetValue("W");
    shared->PublishPass();
    shared->PublishPass();
    const Texts texts = first.TakeTexts();
    ASSERT_EQ(1u, texts.size());
    std::size_t told = 0;
    for (std::size_t at = 0; (at = texts[0].find("NameString", at)) != std::string::npos; ++at)
      ++told;
    ASSERT_EQ(kProperties, told);
  }
}

TEST_F(Observation, TellsACommandEachTimeItFires) {
  const auto command = TriggerProperty::Make(false, "P", "Name", "G", "Group");
  engine->AddProperty(command);
  Subscribe(client, "OWN", "G:P");
  command->SetFromString("True");
  command->SetFromString("True");
  const Texts texts = EndPeriod(client);
  ASSERT_EQ(1u, texts.size());
  const std::string value(command->GetValueString());
  EXPECT_EQ(Responses({OwnEntry("P", value), OwnEntry("P", value)}), texts[0]);
}

TEST_F(Observation, CollectsNothingWhenNobodySubscribes) {
  const auto property = AddOwn("P", "V");
  property->SetValue("W");
  SubscribeToAll(client);
  EXPECT_TRUE(EndPeriod(client).empty());
  EXPECT_FALSE(Send(client, R"({"Disconnect": true})"));
  const long handles = property.use_count();
  property->SetValue("X");
  EXPECT_EQ(handles, property.use_count()) << "nothing waits for a pass";
}

TEST_F(Observation, TellsAWithdrawnPropertyOnceWithItsLastIdentity) {
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

TEST_F(Observation, TellsTheLastChangeOfAWithdrawnPropertyFirst) {
  Publish(owner, EntryText{});
  SubscribeToAll(client);
  EndPeriod(client);
  Publish(owner, {.status = kGone, .value = "last"});
  EXPECT_EQ((Texts{Responses({{.value = "last"}, {.status = kGone, .value = "last"}})}),
            EndPeriod(client));
}

TEST_F(Observation, TellsThatAPropertyIsGoneThatNobodyKnew) {
  Subscribe(client, "C", "G:P");
  Publish(owner, {.status = kGone, .value = "text"});
  EXPECT_EQ((Texts{Responses({{.status = kGone, .value = "text"}})}), EndPeriod(client));
  EXPECT_EQ(1, owner.connection.use_count());
}

TEST_F(Observation, TellsOfAllThatGoesWithItsConnection) {
  Publish(owner, {.guid = "1"});
  Publish(owner, {.guid = "2"});
  SubscribeToAll(client);
  EndPeriod(client);
  engine->ConnectionEnded(*owner.connection);
  EXPECT_EQ((Texts{Responses({{.guid = "1", .status = kGone}, {.guid = "2", .status = kGone}})}),
            EndPeriod(client));
}

TEST_F(Observation, LeavesAComponentThatCameBackAtOnceInPlace) {
  Publish(owner, EntryText{});
  SubscribeToAll(client);
  EndPeriod(client);
  engine->ConnectionEnded(*owner.connection);
  Client again;
  Publish(again, {.value = "W"});
  EXPECT_EQ((Texts{Responses({{.status = kGone}, {.value = "W"}})}), EndPeriod(client))
      << "what is told last is what is true";
}

TEST_F(Observation, ObservesEverythingForAClientWhoseLastPropertyHasGone) {
  const auto property = AddOwn("1", "V");
  Publish(owner, EntryText{});
  Publish(owner, {.guid = "2"});
  Subscribe(client, "C", "G:P");
  EndPeriod(client);
  Publish(owner, {.status = kGone});
  property->SetValue("not yet");
  EXPECT_EQ((Texts{Responses({{.status = kGone}})}), EndPeriod(client));
  property->SetValue("W");
  Publish(owner, {.guid = "2", .value = "W"});
  EXPECT_EQ((Texts{Responses({OwnEntry("1", "W"), {.guid = "2", .value = "W"}})}),
            EndPeriod(client));
}

TEST_F(Observation, DropsAClientThatCannotBeWrittenTo) {
  const auto property = AddOwn("P", "V");
  SubscribeToAll(client);
  client.stream->GiveToWrites(Connection::kGone);
  property->SetValue("W");
  EndPeriod(client);
  EXPECT_EQ(1, client.connection.use_count());
  SubscribeToAll(client);
  EXPECT_EQ(2, client.connection.use_count()) << "it may subscribe again";
}

TEST_F(Observation, PublishesAPropertyThatAnnouncesNothingAtEveryPeriodsEnd) {
  engine->DeclareQuiet("OWN", "G", "P");
  engine->DeclareQuiet("C", "G", "P");
  const auto property = AddOwn("P", "V");
  Publish(owner, EntryText{});
  EndPeriod(client);
  Client second;
  Subscribe(client, "OWN", "G:P");
  Subscribe(second, "OWN", "G:P");
  EXPECT_EQ((Texts{Responses({OwnEntry("P", "V")})}), EndPeriod(client));
  property->SetFromStringSilently("W");
  EXPECT_EQ((Texts{Responses({OwnEntry("P", "W")})}), EndPeriod(client));
  property->SetValue("X");
  EXPECT_EQ((Texts{Responses({OwnEntry("P", "X")})}), EndPeriod(client)) << "it has no listener";
}

TEST_F(Observation, EndsPublishingAQuietPropertyWhenItGoes) {
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

TEST_F(Observation, LetsClientsSetThePeriod) {
  persistence->AttachEngine(engine);
  const auto property = AddOwn("P", "0");
  SubscribeToAll(client);
  EXPECT_TRUE(Send(client, R"({"PropertySetRequests": [{"Component": "OWN","Value": "1000",)"
                           R"("GUID": "99A61D40-20CE-41EA-A579-EB92C6ED94C6:)"
                           R"(DA821DC5-948D-4659-9B52-177E4C102129"}]})"));
  const Texts texts = EndPeriod(client);
  ASSERT_EQ(1u, texts.size());
  EXPECT_NE(std::string::npos,
            texts[0].find(R"("GroupString": "General","NameString": "Property Publishing Period )"
                          R"(in ms","Status": "Successful","Value": "1000")"));
  property->SetValue("1");
  EXPECT_TRUE(EndPeriod(client).empty());
  EXPECT_EQ((Texts{Responses({OwnEntry("P", "1")})}), EndPeriod(client));
}

TEST_F(Observation, LogsSubscriptionsAndChangesInTheirZones) {
  const auto property = AddOwn("P", "V");
  Publish(owner, EntryText{});
  SubscribeToAll(client);
  property->SetValue("W");
  Publish(owner, {.value = "W"});
  EXPECT_TRUE(log->TakeLines().empty());
  SwitchOf(DebugZone::kProperty) = true;
  property->SetValue("X\n");
  Publish(owner, {.value = "W"});
  Publish(owner, {.value = "X"});
  SwitchOf(DebugZone::kProperty) = false;
  EXPECT_EQ((Texts{R"(Property "Name" changes to "X\n")",
                   R"(Property "Name" of "Client" changes to "X")"}),
            log->TakeLines());
  SwitchOf(DebugZone::kInfo) = true;
  Subscribe(reader, "C", "G:P");
  engine->ConnectionEnded(*reader.connection);
  SubscribeToAll(reader);
  SwitchOf(DebugZone::kInfo) = false;
  const std::string name = "Client " + std::to_string(reader.connection->instance_number());
  EXPECT_EQ((Texts{name + " subscribes to 1 more", name + " is no subscriber any more",
                   name + " subscribes to all properties"}),
            log->TakeLines());
}

TEST_F(Observation, ListensForNobodyOnceTheEngineIsGone) {
  const auto property = StringProperty::Make("V", "P", "Name", "G", "Group");
  {
    const auto gone = test::MakeTestEngine();
    gone->AddProperty(property);
    PropertyMessage subscription;
    subscription.SubscribeAll();
    gone->HandleMessage(subscription, client.connection, client.reply);
  }
  property->SetValue("W");
  EXPECT_EQ(1, property.use_count());
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

// A property is withdrawn while the thread that publishes it still asks who wants it.
TEST_F(Observation, TellsOnlyTheGoingOfWhatWentBeforeItWasAnnounced) {
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
    EXPECT_TRUE(test::Eventually([&] { return ReachesOwner(guid); }));
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

TEST_F(Observation, SurvivesSubscribersAndPublishersThatComeAndGoWhileItPublishes) {
  constexpr int kRounds = 150;
  engine->AnnounceFromNow();
  engine->DeclareQuiet("C", "G", "quiet");
  const auto property = AddOwn("P", "V");
  test::StartGate gate(4);
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

TEST_F(Observation, TellsOnceOfAChangeThatComesAfterTheSubscription) {
  Client other;
  Subscribe(other, "C", "G:Q");
  Publish(owner, EntryText{});
  engine->PublishPass();
  Subscribe(client, "C", "G:P");
  Publish(owner, {.value = "W"});
  engine->PublishPass();
  EXPECT_EQ((Texts{Responses({EntryText{}, {.value = "W"}})}), client.TakeTexts());
}

TEST_F(Observation, LogsAChangeOfAPropertyThatIsStoredOnce) {
  persistence->AttachEngine(engine);
  persistence->AttachLog(log);
  const auto property = StringProperty::Make("V", "P", "Name", "G", "Group");
  persistence->RegisterProperty(property);
  log->TakeLines();
  SwitchOf(DebugZone::kProperty) = true;
  property->SetValue("W");
  SwitchOf(DebugZone::kProperty) = false;
  EXPECT_EQ((std::vector<std::string>{R"(Property "Name" changes to "W")"}), log->TakeLines());
}

}  // namespace
}  // namespace valmere
