// Which client owns a property that several publish, and what each is told of it.
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tests/store/engine/engine_fixture.h"
#include "tests/store/engine/start_gate.h"
#include "tests/support/test_thread.h"

namespace valmere::test {
namespace {

class Handover : public EngineTest {
 protected:
  static std::string Set(std::string_view guid = "P") {
    return R"({"PropertySetRequests": [{"Component": "C","GUID": "G:)" + std::string(guid) +
           R"(","Value": "set"}]})";
  }
  // Sets the property and tells whether the client was asked to.
  bool IsOwner(Client& client, std::string_view guid = "P") {
    Client setter;
    EXPECT_TRUE(Send(setter, Set(guid)));
    return client.TakeTexts() == Texts{Set(guid)};
  }
  bool IsThere(std::string_view guid = "P") {
    return Get("C", "G:" + std::string(guid)).find("Property Not Found") == std::string::npos;
  }
  Texts EndPeriod(Client& subscriber) {
    engine->PublishPass();
    engine->PublishPass();
    return subscriber.TakeTexts();
  }
  // As when its stream ends: first that, then the thread that served it says so.
  void Leave(Client& client) {
    client.stream->Close();
    engine->ConnectionEnded(*client.connection);
  }

  Client owner, second, third;
};

TEST_F(Handover, MakesALivingClientThatPublishedSinceTheOwner) {
  Client subscriber;
  Publish(owner, EntryText{});
  Publish(second, {.value = "W"});
  EXPECT_TRUE(Send(subscriber, R"({"SubscribeAllCurrentAndNewProperties": true})"));
  EndPeriod(subscriber);
  Leave(owner);
  EXPECT_EQ(Responses({{.value = "W"}}), Get("C", "G:P"));
  EXPECT_TRUE(EndPeriod(subscriber).empty()) << "nothing has gone";
  EXPECT_TRUE(IsOwner(second));
  Leave(second);
  EXPECT_FALSE(IsThere());
  EXPECT_EQ((Texts{Responses({{.status = kGone, .value = "W"}})}), EndPeriod(subscriber));
}

TEST_F(Handover, PrefersTheClientThatPublishedLast) {
  Publish(owner, EntryText{});
  Publish(second, EntryText{});
  Publish(third, EntryText{});
  Publish(second, EntryText{});
  Leave(owner);
  EXPECT_TRUE(IsOwner(second));
  Leave(second);
  EXPECT_TRUE(IsOwner(third));
  Leave(third);
  EXPECT_FALSE(IsThere());
}

TEST_F(Handover, PassesOverClientsThatHaveGone) {
  Publish(owner, EntryText{});
  Publish(second, EntryText{});
  Publish(third, EntryText{});
  third.stream->Close();
  Leave(owner);
  EXPECT_TRUE(IsOwner(second));
  engine->ConnectionEnded(*third.connection);
  EXPECT_TRUE(IsOwner(second));
}

TEST_F(Handover, KeepsNoConnectionThatHasEnded) {
  Publish(owner, EntryText{});
  Publish(second, EntryText{});
  EXPECT_EQ(2, second.connection.use_count());
  Leave(second);
  EXPECT_EQ(1, second.connection.use_count());
  EXPECT_TRUE(IsOwner(owner));
}

TEST_F(Handover, KeepsOneEntryForAClientHoweverOftenItPublishes) {
  Publish(owner, EntryText{});
  for (int i = 0; i < 100; ++i)
    Publish(second, {.value = std::to_string(i)});
  EXPECT_EQ(2, second.connection.use_count());
  Leave(owner);
  EXPECT_TRUE(IsOwner(second));
  EXPECT_EQ(2, second.connection.use_count());
}

TEST_F(Handover, IsOnlyForClientsThatPublished) {
  Publish(owner, EntryText{});
  Publish(second, {.status = "Property Not Found"});
  Publish(second, {.status = "whatever"});
  EXPECT_EQ(1, second.connection.use_count());
  Leave(owner);
  EXPECT_FALSE(IsThere());
}

TEST_F(Handover, IsForEachPropertyByItself) {
  Publish(owner, {.guid = "1"});
  Publish(owner, {.guid = "2"});
  Publish(owner, {.guid = "3"});
  Publish(second, {.guid = "1"});
  Publish(third, {.guid = "3"});
  Leave(owner);
  EXPECT_TRUE(IsOwner(second, "1"));
  EXPECT_FALSE(IsThere("2"));
  EXPECT_TRUE(IsOwner(third, "3"));
}

TEST_F(Handover, LeavesAWithdrawalByMessageAsItIs) {
  Publish(owner, EntryText{});
  Publish(second, EntryText{});
  Publish(owner, {.status = kGone});
  EXPECT_FALSE(IsThere());
  EXPECT_EQ(1, second.connection.use_count());
  Publish(third, EntryText{});
  Leave(third);
  EXPECT_FALSE(IsThere()) << "a client that published before the withdrawal has no claim";
}

TEST_F(Handover, TakesPlaceAtTheFirstSetAfterTheOwnersEnd) {
  Publish(owner, EntryText{});
  Publish(second, EntryText{});
  owner.stream->Close();  // its thread has not noticed yet
  EXPECT_TRUE(IsOwner(second));
  engine->ConnectionEnded(*owner.connection);
  EXPECT_TRUE(IsOwner(second));
}

TEST_F(Handover, PrefersAPublisherAfterTheOwnersEndToEarlierHeirs) {
  Publish(owner, EntryText{});
  Publish(second, EntryText{});
  owner.stream->Close();
  Publish(third, EntryText{});
  engine->ConnectionEnded(*owner.connection);
  EXPECT_TRUE(IsOwner(third));
  Leave(third);
  EXPECT_TRUE(IsOwner(second));
}

// The client takes its leave by a message, so its stream stays open when its thread ends.
TEST_F(Handover, NeverGoesToOneThatHasLeft) {
  Publish(owner, EntryText{});
  Publish(second, EntryText{});
  engine->ConnectionEnded(*second.connection);
  Leave(owner);
  EXPECT_FALSE(IsThere());
  EXPECT_EQ(1, second.connection.use_count());
}

TEST_F(Handover, LeavesNoDeadOwnerWhenTwoEndAtOnce) {
  constexpr int kRounds = 100;
  constexpr int kProperties = 20;
  for (int round = 0; round < kRounds; ++round) {
    Client first, other;
    for (int i = 0; i < kProperties; ++i) {
      const std::string guid = std::to_string(i);
      Publish(i % 2 != 0 ? first : other, {.guid = guid});
      Publish(i % 2 != 0 ? other : first, {.guid = guid});
    }
    StartGate gate(2);
    TestThread ending([&] {
      gate.Pass();
      engine->ConnectionEnded(*first.connection);
    });
    gate.Pass();
    engine->ConnectionEnded(*other.connection);
    ending.Join();
    ASSERT_EQ(R"({"PropertyGetResponses": []})", Ask(reader, R"({"GetAllProperties": true})"));
    ASSERT_EQ(1, first.connection.use_count());
    ASSERT_EQ(1, other.connection.use_count());
  }
}

// Runs a function when it is asked whether it is open.
class AskedConnection final : public Connection {
 public:
  explicit AskedConnection(std::function<void()> on_asked) : on_asked_(std::move(on_asked)) {}
  int Read(void*, int) override { return kFailed; }
  int Write(const void*, int length) override { return length; }
  void Close() override {}
  bool IsOpen() const override {
    on_asked_();
    return true;
  }

 private:
  const std::function<void()> on_asked_;
};

// Thousands of properties go when their owner does, and then the service ends.
TEST_F(Handover, LeavesOffWhenTheServiceEndsTheSession) {
  constexpr std::size_t kStep = PropertyIndex<Property>::kStep;
  Client heir(std::make_shared<AskedConnection>([&] { owner.connection->Close(); }));
  for (std::size_t i = 0; i < 3 * kStep; ++i)
    Publish(owner, {.guid = std::to_string(i)});
  EXPECT_TRUE(Send(heir, Responses({{.guid = "0"}})));
  engine->ConnectionEnded(*owner.connection);
  EXPECT_FALSE(IsThere("1"));
  EXPECT_TRUE(IsThere(std::to_string(kStep)));
}

// Publications and ends of two clients in every order: the one that is there in the end owns it.
TEST_F(Handover, LosesNoPublicationAmidTheEndOfTheOwner) {
  constexpr int kRounds = 200;
  for (int round = 0; round < kRounds; ++round) {
    Client leaving, staying;
    Publish(leaving, EntryText{});
    StartGate gate(2);
    TestThread ending([&] {
      gate.Pass();
      engine->ConnectionEnded(*leaving.connection);  // its stream is open: it said goodbye
    });
    gate.Pass();
    Publish(staying, {.value = "W"});
    ending.Join();
    ASSERT_EQ(Responses({{.value = "W"}}), Get("C", "G:P"));
    ASSERT_TRUE(IsOwner(staying));
    engine->ConnectionEnded(*staying.connection);
  }
}

class OwnComponent : public Handover {
 protected:
  void PublishAsService(Client& client, const EntryText& entry = {}) {
    EntryText as_service = entry;
    as_service.component = "OWN";
    Publish(client, as_service);
  }
  static std::string Subscription() {
    return R"({"PropertySubscribeRequests": [{"Component": "OWN","GUID": "G:P"}]})";
  }
  Client subscriber;
};

TEST_F(OwnComponent, OfAPublicationIsAnnouncedToSubscribersToAll) {
  EXPECT_TRUE(Send(subscriber, R"({"SubscribeAllCurrentAndNewProperties": true})"));
  PublishAsService(owner);
  EXPECT_EQ((Texts{Responses({{.component = "OWN"}})}), EndPeriod(subscriber));
  PublishAsService(owner, {.value = "W"});
  EXPECT_EQ((Texts{Responses({{.component = "OWN", .value = "W"}})}), EndPeriod(subscriber));
  Leave(owner);
  EXPECT_EQ((Texts{Responses({{.component = "OWN", .status = kGone, .value = "W"}})}),
            EndPeriod(subscriber));
}

TEST_F(OwnComponent, OfAPublicationIsAnnouncedToAClientThatNamedItBefore) {
  EXPECT_TRUE(Send(subscriber, Subscription()));
  PublishAsService(owner);
  EXPECT_EQ((Texts{Responses({{.component = "OWN"}})}), EndPeriod(subscriber));
  PublishAsService(owner, {.value = "W"});
  EXPECT_EQ((Texts{Responses({{.component = "OWN", .value = "W"}})}), EndPeriod(subscriber));
}

TEST_F(OwnComponent, OfAPublicationCanBeNamedAfterIt) {
  PublishAsService(owner);
  EndPeriod(subscriber);
  EXPECT_TRUE(Send(subscriber, Subscription()));
  PublishAsService(owner, {.value = "W"});
  EXPECT_EQ((Texts{Responses({{.component = "OWN", .value = "W"}})}), EndPeriod(subscriber));
}

TEST_F(OwnComponent, OfAPublicationIsNamedBesideTheServicesPropertyOfThatKey) {
  const auto property = AddOwn("P", "V");
  PublishAsService(owner);
  EndPeriod(subscriber);
  EXPECT_TRUE(Send(subscriber, Subscription()));
  property->SetValue("own");
  PublishAsService(owner, {.value = "W"});
  EXPECT_EQ((Texts{Responses({OwnEntry("P", "own"), {.component = "OWN", .value = "W"}})}),
            EndPeriod(subscriber));
}

TEST_F(OwnComponent, OfAQuietPublicationIsPublishedAtEveryPeriodsEnd) {
  engine->DeclareQuiet("OWN", "G", "P");
  EXPECT_TRUE(Send(subscriber, R"({"SubscribeAllCurrentAndNewProperties": true})"));
  PublishAsService(owner);
  EndPeriod(subscriber);
  EXPECT_EQ((Texts{Responses({{.component = "OWN"}})}), EndPeriod(subscriber));
}

TEST_F(OwnComponent, IsNotLookedForAmongPublications) {
  PublishAsService(owner);
  EXPECT_EQ(R"({"PropertyGetResponses": [)" + NotFound("OWN", "G:P") + "]}", Get("OWN", "G:P"));
  EXPECT_TRUE(Send(subscriber, R"({"PropertySetRequests": [{"Component": "OWN",)"
                               R"("GUID": "G:P","Value": "x"}]})"));
  EXPECT_TRUE(owner.TakeTexts().empty());
}

}  // namespace
}  // namespace valmere::test
