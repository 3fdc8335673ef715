// What a client makes the service keep is charged to it, and ends its session when it is too much.
#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

#include "net/client_account.h"
#include "store/property/component_property.h"
#include "tests/store/engine/engine_fixture.h"
#include "tests/support/allocations.h"

namespace valmere::test {
namespace {

constexpr std::size_t kMost = 10'000;

class Accounts : public EngineTest {
 protected:
  // A client whose connection has an account, as one over a socket.
  struct Limited : Client {
    explicit Limited(std::size_t most = kMost) { stream->SetMostMemory(most); }
    std::size_t used() const { return stream->account()->used(); }
  };

  // As when its stream ends: first that, then the thread that served it says so.
  void Leave(Client& leaving) {
    leaving.stream->Close();
    engine->ConnectionEnded(*leaving.connection);
  }
  // The bytes of a property that has all of EntryText's texts.
  static std::size_t BytesOf(const EntryText& entry) {
    return ComponentProperty::kBytesBesideTexts + entry.component.size() +
           entry.component_string.size() + entry.group_guid.size() + entry.group_string.size() +
           entry.guid.size() + entry.name_string.size() + entry.value.size();
  }
  static std::string SubscribeTo(std::size_t first, std::size_t end) {
    std::string text = R"({"PropertySubscribeRequests": [)";
    for (std::size_t i = first; i < end; ++i) {
      text += std::string(i == first ? "" : ",") + R"({"Component": "C","GUID": "G:)" +
              std::to_string(i) + R"("})";
    }
    return text + "]}";
  }
  void ExpectEnded(const Client& ended, std::string_view cause) {
    EXPECT_EQ((std::vector<std::string>{"it " + std::string(cause)}), ended.stream->causes());
    EXPECT_EQ(
        (std::vector<std::string>{"Client " + std::to_string(ended.connection->instance_number()) +
                                  " " + std::string(cause) + ": its session ends"}),
        log->TakeLines());
  }

  static constexpr std::string_view kTooMuch = "has more than 10000 bytes kept for it";

  Limited client;
};

TEST_F(Accounts, HaveWhatAClientPublishesUntilItGoes) {
  const EntryText entry;
  Publish(client, entry);
  EXPECT_EQ(BytesOf(entry), client.used());
  Publish(client, entry);
  EXPECT_EQ(BytesOf(entry), client.used()) << "it is the same one";
  const EntryText other{.group_guid = "H", .guid = "Q", .value = ""};
  Publish(client, other);
  EXPECT_EQ(BytesOf(entry) + BytesOf(other), client.used());
  Leave(client);
  EXPECT_EQ(0u, client.used());
}

TEST_F(Accounts, FollowAValue) {
  Publish(client, {.value = "V"});
  const std::string longer(1'000, 'x');
  const EntryText grown{.value = longer};
  Publish(client, grown);
  EXPECT_EQ(BytesOf(grown), client.used());
  const EntryText emptied{.value = ""};
  Publish(client, emptied);
  EXPECT_EQ(BytesOf(emptied), client.used());
}

TEST_F(Accounts, LetAValueGrowToTheLastByte) {
  const std::size_t beside = BytesOf({.value = ""});
  const std::string most(kMost - beside, 'x');
  Publish(client, {.value = most});
  EXPECT_EQ(kMost, client.used());
  EXPECT_FALSE(Send(client, Responses({{.value = most + "x"}})));
  ExpectEnded(client, kTooMuch);
  Leave(client);
  EXPECT_EQ(0u, client.used());
}

TEST_F(Accounts, EndTheSessionOfOnePropertyTooMany) {
  const std::size_t each = BytesOf({.guid = "00"});
  const std::size_t fit = kMost / each;
  for (std::size_t i = 0; i < fit; ++i)
    Publish(client, {.guid = std::to_string(10 + i)});
  EXPECT_EQ(fit * each, client.used());
  EXPECT_TRUE(client.stream->causes().empty());
  EXPECT_FALSE(Send(client, Responses({{.guid = "99"}})));
  ExpectEnded(client, kTooMuch);
  Leave(client);
  EXPECT_EQ(0u, client.used());
  EXPECT_NE(std::string::npos, Get("C", "G:10").find("Property Not Found"));
}

TEST_F(Accounts, StopALongMessageInItsMiddle) {
  std::string text = R"({"PropertyGetResponses": [)";
  for (int i = 0; i < 20'000; ++i)
    text += (i == 0 ? "" : ",") + EntryText{.guid = std::to_string(i)}.Text();
  EXPECT_FALSE(Send(client, text + "]}"));
  EXPECT_GT(kMost + 1'000, client.used());
  ExpectEnded(client, kTooMuch);
}

TEST_F(Accounts, GetBackWhatIsWithdrawn) {
  for (int i = 0; i < 1'000; ++i)
    EXPECT_TRUE(Send(client, Responses({EntryText{}, {.status = kGone}})));
  EXPECT_EQ(0u, client.used());
}

TEST_F(Accounts, GoToAnHeirWithTheProperty) {
  Limited heir;
  const EntryText entry{.value = "W"};
  Publish(client, EntryText{});
  Publish(heir, entry);
  EXPECT_EQ(0u, heir.used()) << "it is no owner yet";
  Leave(client);
  EXPECT_EQ(0u, client.used());
  EXPECT_EQ(BytesOf(entry), heir.used());
  Leave(heir);
  EXPECT_EQ(0u, heir.used());
}

TEST_F(Accounts, GoToTheClientThatComesBack) {
  Limited again;
  Publish(client, EntryText{});
  client.stream->Close();
  Publish(again, EntryText{});
  EXPECT_EQ(0u, client.used());
  EXPECT_EQ(BytesOf(EntryText{}), again.used());
  engine->ConnectionEnded(*client.connection);
  EXPECT_EQ(BytesOf(EntryText{}), again.used());
}

TEST_F(Accounts, AreNotUsedUpByOthers) {
  Limited other(100'000), third;
  const std::string longer(2 * kMost, 'x');
  Publish(client, EntryText{});
  const std::size_t before = client.used();
  const std::size_t foreign = ComponentProperty::ForeignBytes();
  Publish(other, {.value = longer});
  EXPECT_GE(before, client.used());
  EXPECT_EQ(foreign + longer.size(), ComponentProperty::ForeignBytes());
  EXPECT_TRUE(Send(third, R"({"PropertySetRequests": [{"Component": "C","GUID": "G:P","Value": ")" +
                              longer + R"("}]})"));
  EXPECT_EQ(1u, client.TakeTexts().size()) << "it is asked to set the value";
  EXPECT_TRUE(Send(client, "{}"));
  Leave(other);
  EXPECT_TRUE(Send(client, "{}"));
  EXPECT_EQ(foreign + longer.size(), ComponentProperty::ForeignBytes()) << "the value is there";
  Publish(client, EntryText{});
  EXPECT_EQ(before, client.used());
  EXPECT_EQ(foreign, ComponentProperty::ForeignBytes());
}

TEST_F(Accounts, CountTheOwnersValueAsItsOwnAlsoWhenAnotherPublishedItFirst) {
  Limited other;
  const EntryText entry{.value = "other value"};
  Publish(client, EntryText{});
  Publish(other, entry);
  EXPECT_EQ(BytesOf(entry) - entry.value.size(), client.used());
  Publish(client, entry);
  EXPECT_EQ(BytesOf(entry), client.used());
  Publish(other, entry);
  EXPECT_EQ(BytesOf(entry), client.used()) << "it has changed nothing";
}

TEST_F(Accounts, EndTheSessionThatPutsTooMuchOnThePropertiesOfOthers) {
  Limited owner(1'000'000), other;
  const std::string value(kMost / 2, 'x');
  const std::size_t foreign = ComponentProperty::ForeignBytes();
  for (const char* guid : {"1", "2", "3"})
    Publish(owner, {.guid = guid});
  Publish(client, {.guid = "1", .value = value});
  Publish(other, {.guid = "2", .value = value});
  EXPECT_FALSE(Send(client, Responses({{.guid = "3", .value = value}})));
  ExpectEnded(client,
              "published over a property of another client, and there are more than 10000 bytes of "
              "such values");
  EXPECT_TRUE(Send(other, "{}")) << "others go on";
  EXPECT_TRUE(Send(owner, "{}"));
  Leave(client);
  Leave(other);
  Leave(owner);
  EXPECT_EQ(foreign, ComponentProperty::ForeignBytes());
  EXPECT_EQ(0u, owner.used());
}

TEST_F(Accounts, HaveTheKeysOfASubscription) {
  EXPECT_TRUE(Send(client, SubscribeTo(0, 10)));
  const std::size_t ten = client.used();
  EXPECT_LT(10 * 5u, ten);
  EXPECT_TRUE(Send(client, SubscribeTo(0, 10)));
  EXPECT_EQ(ten, client.used()) << "they are the same ones";
  EXPECT_TRUE(Send(client, SubscribeTo(5, 20)));
  EXPECT_EQ(2 * ten + 10, client.used()) << "ten more, of one character more";
  Leave(client);
  EXPECT_EQ(0u, client.used());
}

TEST_F(Accounts, GetBackTheKeysOfWhatHasGone) {
  Client owner;
  Publish(owner, {.guid = "1"});
  EXPECT_TRUE(Send(client, SubscribeTo(0, 2)));
  const std::size_t two = client.used();
  Leave(owner);
  engine->PublishPass();
  engine->PublishPass();
  EXPECT_EQ(1u, client.TakeTexts().size());
  EXPECT_EQ(two / 2, client.used());
  EXPECT_FALSE(Send(client, R"({"Disconnect": true})"));
  EXPECT_EQ(0u, client.used());
}

TEST_F(Accounts, EndTheSessionOfTooManyKeys) {
  EXPECT_TRUE(Send(client, SubscribeTo(0, 10)));
  EXPECT_FALSE(Send(client, SubscribeTo(0, 50'000)));
  EXPECT_GT(kMost, client.used()) << "those of the message are given back";
  ExpectEnded(client, kTooMuch);
  Leave(client);
  EXPECT_EQ(0u, client.used());
}

TEST_F(Accounts, GetBackTheKeysForWhichThereWasNoMemory) {
  ScriptedConnection frame({FrameOf(SubscribeTo(0, 3))});
  PropertyMessage message;
  ASSERT_TRUE(message.Read(frame));
  FailEachAllocation([&] { engine->HandleMessage(message, client.connection, client.reply); },
                     [&] { EXPECT_GE(3 * 101u, client.used()); });
  Leave(client);
  EXPECT_EQ(0u, client.used());
}

TEST_F(Accounts, GiveNoAnswerToAClientThatHasTooMuch) {
  client.stream->account()->Charge(kMost + 1);
  EXPECT_FALSE(Send(client, kGetAllText));
  EXPECT_TRUE(client.TakeTexts().empty());
  ExpectEnded(client, kTooMuch);
}

TEST_F(Accounts, GetBackWhatAnEngineTakesAlongAtItsEnd) {
  Publish(client, EntryText{});
  {
    const auto others_persistence = MakeTestPersistence();
    const auto other = MakeTestEngine(*others_persistence);
    ScriptedConnection frame({FrameOf(Responses({EntryText{}}))});
    PropertyMessage message;
    ASSERT_TRUE(message.Read(frame));
    EXPECT_TRUE(other->HandleMessage(message, client.connection, client.reply));
    EXPECT_EQ(2 * BytesOf(EntryText{}), client.used());
  }
  EXPECT_EQ(BytesOf(EntryText{}), client.used()) << "that engine has gone";
}

TEST_F(Accounts, AreNoneForADriverSession) {
  Client session;
  const std::string longer(100 * kMost, 'x');
  Publish(session, {.value = longer});
  EXPECT_TRUE(Send(session, SubscribeTo(0, 1'000)));
  EXPECT_TRUE(session.stream->causes().empty());
}

}  // namespace
}  // namespace valmere::test
