// Which properties a subscriber hears of, asked and told as clients are.
#include <gtest/gtest.h>

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "persist/log/debug_switches.h"
#include "protocol/message/property_message.h"
#include "store/property/string_property.h"
#include "store/property/trigger_property.h"
#include "tests/store/engine/start_gate.h"
#include "tests/store/engine/subscriber_fixture.h"
#include "tests/support/test_engine.h"
#include "tests/support/test_thread.h"

namespace valmere::test {
namespace {

class Observing : public SubscriberTest {};

TEST_F(Observing, TellsAClientOfChangesOfWhatItNamed) {
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

TEST_F(Observing, TellsOnlyOfChanges) {
  Publish(owner, EntryText{});
  Subscribe(client, "C", "G:P");
  EndPeriod(client);
  Publish(owner, EntryText{});
  EXPECT_TRUE(EndPeriod(client).empty());
}

TEST_F(Observing, TellsOfAChangeBetweenTheAnnouncementAndTheSubscription) {
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

TEST_F(Observing, TellsAnAnnouncedValueOnceIfItHasNotChanged) {
  Client other;
  Subscribe(other, "C", "G:Q");
  Publish(owner, EntryText{});
  engine->PublishPass();
  Subscribe(client, "C", "G:P");
  engine->PublishPass();
  EXPECT_EQ((Texts{Responses({EntryText{}})}), client.TakeTexts());
}

TEST_F(Observing, PassesOverWhatDoesNotExistInASubscription) {
  const auto property = AddOwn("P", "V");
  EXPECT_TRUE(Send(client, R"({"PropertySubscribeRequests": [{"Component": "OWN","GUID": "G:Q"},)"
                           R"({"Component": "OWN","GUID": "G:P"}]})"));
  property->SetValue("W");
  EXPECT_EQ((Texts{Responses({OwnEntry("P", "W")})}), EndPeriod(client));
}

TEST_F(Observing, ListensOnlyToWhatAClientNamed) {
  const auto before = AddOwn("1", "V");
  Subscribe(client, "OWN", "G:2");
  const auto named = AddOwn("2", "V");
  const auto after = AddOwn("3", "V");
  EXPECT_FALSE(before->observed());
  EXPECT_TRUE(named->observed());
  EXPECT_FALSE(after->observed());
}

TEST_F(Observing, AttachesOneListenerHoweverManySubscribe) {
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

TEST_F(Observing, AttachesOneListenerWhenTwoSubscribeAtOnce) {
  constexpr int kRounds = 60;
  constexpr std::size_t kProperties = 400;
  PropertyMessage subscription;
  subscription.SubscribeAll();
  for (int round = 0; round < kRounds; ++round) {
    const auto shared = MakeTestEngine();
    std::vector<std::shared_ptr<StringProperty>> properties;
    for (std::size_t i = 0; i < kProperties; ++i) {
      properties.push_back(StringProperty::Make("V", std::to_string(i), "Name", "G", "Group"));
      EXPECT_TRUE(shared->AddProperty(properties.back()));
    }
    Client first, second;
    StartGate gate(2);
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

TEST_F(Observing, TellsACommandEachTimeItFires) {
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

TEST_F(Observing, CollectsNothingWithoutASubscriber) {
  const auto property = AddOwn("P", "V");
  property->SetValue("W");
  SubscribeToAll(client);
  EXPECT_TRUE(EndPeriod(client).empty());
  EXPECT_FALSE(Send(client, R"({"Disconnect": true})"));
  const long handles = property.use_count();
  property->SetValue("X");
  EXPECT_EQ(handles, property.use_count()) << "nothing waits for a pass";
}

TEST_F(Observing, ObservesEverythingForAClientWhoseLastPropertyHasGone) {
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

TEST_F(Observing, DropsAClientThatCantBeWrittenTo) {
  const auto property = AddOwn("P", "V");
  SubscribeToAll(client);
  client.stream->GiveToWrites(Connection::kGone);
  property->SetValue("W");
  EndPeriod(client);
  EXPECT_EQ(1, client.connection.use_count());
  SubscribeToAll(client);
  EXPECT_EQ(2, client.connection.use_count()) << "it may subscribe again";
}

TEST_F(Observing, PublishesAPropertyThatAnnouncesNothingAtEveryPeriodsEnd) {
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

TEST_F(Observing, LetsClientsSetThePeriod) {
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

TEST_F(Observing, LogsSubscriptionsAndChangesInTheirZones) {
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

TEST_F(Observing, ReportsNothingOnceTheEngineIsGone) {
  const auto property = StringProperty::Make("V", "P", "Name", "G", "Group");
  {
    const auto gone = MakeTestEngine();
    gone->AddProperty(property);
    PropertyMessage subscription;
    subscription.SubscribeAll();
    gone->HandleMessage(subscription, client.connection, client.reply);
  }
  property->SetValue("W");
  EXPECT_EQ(1, property.use_count());
}

TEST_F(Observing, TellsOnceOfAChangeThatComesAfterTheSubscription) {
  Client other;
  Subscribe(other, "C", "G:Q");
  Publish(owner, EntryText{});
  engine->PublishPass();
  Subscribe(client, "C", "G:P");
  Publish(owner, {.value = "W"});
  engine->PublishPass();
  EXPECT_EQ((Texts{Responses({EntryText{}, {.value = "W"}})}), client.TakeTexts());
}

TEST_F(Observing, LogsAChangeOfAPropertyThatIsStoredOnce) {
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
}  // namespace valmere::test
