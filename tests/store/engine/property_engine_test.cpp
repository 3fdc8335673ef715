// The handling of one message: which keys, in which order, with which result.
#include "store/engine/property_engine.h"

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "driver/sync/live_counters.h"
#include "protocol/message/parser_lock.h"
#include "store/property/uint_property.h"
#include "tests/store/engine/engine_fixture.h"
#include "tests/support/parser_lock_probe.h"
#include "tests/support/test_thread.h"

namespace valmere {
namespace {

using test::Client;
using test::EntryText;
using test::NotFound;
using test::Responses;
using test::TestThread;

using Texts = std::vector<std::string>;

class MessageHandling : public test::EngineTest {
 protected:
  Client client;
};

constexpr const char* kGetAllText = R"({"GetAllProperties": true})";
constexpr const char* kSetOwn = R"("PropertySetRequests": [{"Component": "OWN","GUID": "G:P",)"
                                R"("Value": "new"}])";
constexpr const char* kGetOwn = R"("PropertyGetRequests": [{"Component": "OWN","GUID": "G:P"}])";
constexpr const char* kSubscribe =
    R"("PropertySubscribeRequests": [{"Component": "OWN","GUID": "G:P"}])";
constexpr const char* kSubscribeAll = R"("SubscribeAllCurrentAndNewProperties": true)";

std::string Message(std::initializer_list<std::string> members) {
  std::string text = "{";
  for (const std::string& member : members) {
    if (text.size() > 1) text += ",";
    text += member;
  }
  return text + "}";
}

TEST_F(MessageHandling, KeepsTheSessionWhenThereIsNothingToDo) {
  for (const char* text : {"{}", R"({"Unknown": [{"GUID": "G:P"}]})", R"({"getallproperties": 1})"})
    EXPECT_TRUE(Send(client, text)) << text;
  EXPECT_TRUE(client.stream->writes().empty());
}

TEST_F(MessageHandling, AnswersWithOneWrite) {
  AddOwn("P", "value");
  EXPECT_TRUE(Send(client, Message({kGetOwn})));
  EXPECT_EQ((Texts{test::FrameOf(Responses({OwnEntry("P", "value")}))}), client.stream->writes());
}

TEST_F(MessageHandling, EndsTheSessionWhenTheReplyCannotBeWritten) {
  AddOwn("P", "value");
  for (const int result : {0, 1, Connection::kGone, Connection::kFailed}) {
    client.stream->GiveToWrites(result);
    EXPECT_FALSE(Send(client, Message({kGetOwn}))) << result;
    EXPECT_EQ(1u, client.stream->TakeWrites().size());
    EXPECT_TRUE(Send(client, Message({kSetOwn}))) << "nothing to write, nothing to fail";
  }
}

TEST_F(MessageHandling, AnswersAGetWithWhatASetOfTheSameMessageMadeOfIt) {
  AddOwn("P", "old");
  EXPECT_EQ(Responses({OwnEntry("P", "new")}), Ask(client, Message({kGetOwn, kSetOwn})));
}

TEST_F(MessageHandling, AnswersAGetWithWhatWasThereBeforeAPublicationOfTheSameMessage) {
  const std::string get = R"("PropertyGetRequests": [{"Component": "C","GUID": "G:P"}])";
  const std::string publish = R"("PropertyGetResponses": [)" + EntryText{}.Text() + "]";
  EXPECT_EQ(R"({"PropertyGetResponses": [)" + NotFound("C", "G:P") + "]}",
            Ask(client, Message({publish, get})));
  EXPECT_EQ(Responses({EntryText{}}), Ask(client, Message({get})));
}

TEST_F(MessageHandling, PassesASetOnBeforeItTakesAPublicationOfTheSameMessage) {
  const std::string set = R"("PropertySetRequests": [{"Component": "C","GUID": "G:P",)"
                          R"("Value": "x"}])";
  const std::string publish = R"("PropertyGetResponses": [)" + EntryText{}.Text() + "]";
  EXPECT_TRUE(Send(client, Message({publish, set})));
  EXPECT_TRUE(client.TakeTexts().empty()) << "nobody owned it when the set was handled";
  EXPECT_TRUE(Send(client, Message({publish, set})));
  EXPECT_EQ((Texts{Message({set})}), client.TakeTexts());
}

TEST_F(MessageHandling, WritesForwardedSetsBeforeTheReply) {
  Publish(client, EntryText{});
  const std::string set = R"("PropertySetRequests": [{"Component": "C","GUID": "G:P",)"
                          R"("Value": "x"}])";
  const std::string get = R"("PropertyGetRequests": [{"Component": "C","GUID": "G:P"}])";
  EXPECT_TRUE(Send(client, Message({get, set})));
  EXPECT_EQ((Texts{Message({set}), Responses({EntryText{}})}), client.TakeTexts());
}

TEST_F(MessageHandling, DoesAllThatAMessageAsksForWithADisconnectButAnswersNothing) {
  const auto property = AddOwn("P", "old");
  const std::string publish = R"("PropertyGetResponses": [)" + EntryText{}.Text() + "]";
  EXPECT_FALSE(Send(client, Message({R"("Disconnect": true)", kGetOwn, kSetOwn, kSubscribe, publish,
                                     R"("GetAllProperties": true)"})));
  EXPECT_TRUE(client.stream->writes().empty());
  EXPECT_EQ("new", property->GetValue());
  EXPECT_EQ(Responses({EntryText{}}), Get("C", "G:P"));
}

TEST_F(MessageHandling, LeavesTheSetsThatAreLeftWhenTheServiceEndsTheSession) {
  const auto property = AddOwn("P", "old");
  const auto other = AddOwn("Q", "old");
  property->AddListener([&](const std::shared_ptr<Property>&) { client.connection->Close(); });
  const std::string sets = R"("PropertySetRequests": [{"Component": "OWN","GUID": "G:P",)"
                           R"("Value": "new"},{"Component": "OWN","GUID": "G:Q","Value": "new"}])";
  Send(client, Message({sets}));
  EXPECT_EQ("new", property->GetValue());
  EXPECT_EQ("old", other->GetValue());
}

TEST_F(MessageHandling, EndsTheSessionAtADisconnectOfAnyValue) {
  for (const char* value : {"true", "false", "null", "0", R"("")", "[]"})
    EXPECT_FALSE(Send(client, std::string(R"({"Disconnect": )") + value + "}")) << value;
}

TEST_F(MessageHandling, AnswersAMessageThatAlsoSubscribes) {
  AddOwn("P", "value");
  EXPECT_EQ(Responses({OwnEntry("P", "value")}),
            Ask(client, Message({kGetOwn, kSubscribe, kSubscribeAll})));
  EXPECT_EQ(Responses({OwnEntry("P", "value")}), Ask(client, Message({kGetOwn})));
}

TEST_F(MessageHandling, AnswersEachMessageAfresh) {
  const auto property = AddOwn("P", std::string(100, 'x'));
  EXPECT_EQ(Responses({OwnEntry("P", std::string(100, 'x'))}), Ask(client, Message({kGetOwn})));
  property->SetValue("y");
  EXPECT_EQ(Responses({OwnEntry("P", "y")}), Ask(client, Message({kGetOwn})));
}

TEST_F(MessageHandling, KeepsNoLargeReply) {
  const auto property = AddOwn("P", std::string(1'000'000, 'x'));
  Ask(client, Message({kGetOwn}));
  EXPECT_GT(20'000u, client.reply.capacity());
  property->SetValue("y");
  Ask(client, Message({kGetOwn}));
  const char* const kept = client.reply.data();
  Ask(client, Message({kGetOwn}));
  EXPECT_EQ(kept, client.reply.data()) << "a small one is kept for the next";
}

TEST_F(MessageHandling, LeavesNoPropertyBehind) {
  const std::uint32_t before = LiveProperties::Live();
  {
    const auto own_engine = test::MakeTestEngine();
    own_engine->AddProperty(StringProperty::Make("v", "P", "Name", "G", "Group"));
    PropertyMessage publication;
    publication.GetResponses(std::vector<PropertyResponseRecord>{
        {"G", "Group", "Q", "Name", "v", kStatusSuccessful, "C", "Client"}});
    own_engine->HandleMessage(publication, client.connection, client.reply);
    EXPECT_EQ(before + 4, LiveProperties::Live()) << "with its component and its period";
  }
  EXPECT_EQ(before, LiveProperties::Live());
  EXPECT_EQ(1, client.connection.use_count());
}

TEST_F(MessageHandling, RefusesASecondPropertyOfTheSameKey) {
  AddOwn("P", "first");
  EXPECT_FALSE(engine->AddProperty(StringProperty::Make("second", "P", "Name", "G", "Group")));
  EXPECT_EQ(Responses({OwnEntry("P", "first")}), Get("OWN", "G:P"));
}

// Runs a function within each write.
class ProbedConnection final : public Connection {
 public:
  explicit ProbedConnection(std::function<void()> probe) : probe_(std::move(probe)) {}
  int Read(void*, int) override { return kFailed; }
  int Write(const void*, int length) override {
    probe_();
    return length;
  }
  void Close() override {}
  bool IsOpen() const override { return true; }

 private:
  const std::function<void()> probe_;
};

TEST_F(MessageHandling, MakesTheReplyWhileOthersParse) {
  for (const std::string& text : {std::string(kGetAllText), Message({kGetOwn})}) {
    test::ScriptedConnection frame({test::FrameOf(text)});
    PropertyMessage message;
    ASSERT_TRUE(message.Read(frame));
    platform::Semaphore done;
    ParserLock().Enter();
    TestThread asking([&] {
      EXPECT_TRUE(engine->HandleMessage(message, client.connection, client.reply));
      done.Release();
    });
    EXPECT_TRUE(done.WaitUntil(platform::MonotonicNow() + 10'000 * platform::kTicksPerMillisecond));
    ParserLock().Leave();
    asking.Join();
    EXPECT_EQ(1u, client.TakeTexts().size());
  }
}

TEST_F(MessageHandling, PassesSetsOnWhileOthersParse) {
  Publish(client, EntryText{});
  test::ScriptedConnection frame({test::FrameOf(
      R"({"PropertySetRequests": [{"Component": "C","GUID": "G:P","Value": "x"}]})")});
  PropertyMessage message;
  ASSERT_TRUE(message.Read(frame));
  platform::Semaphore done;
  ParserLock().Enter();
  TestThread setting([&] {
    EXPECT_TRUE(engine->HandleMessage(message, reader.connection, reader.reply));
    done.Release();
  });
  EXPECT_TRUE(done.WaitUntil(platform::MonotonicNow() + 10'000 * platform::kTicksPerMillisecond));
  ParserLock().Leave();
  setting.Join();
  EXPECT_EQ(1u, client.TakeTexts().size());
}

TEST_F(MessageHandling, MakesNoReplyForAClientThatIsGone) {
  for (const std::string& text : {std::string(kGetAllText), Message({kGetOwn})}) {
    Client leaving;
    leaving.stream->Close();
    EXPECT_TRUE(Send(leaving, text));
    EXPECT_EQ("", leaving.reply);
    EXPECT_TRUE(leaving.stream->writes().empty());
  }
}

TEST_F(MessageHandling, DoesWhatAClientAskedForBeforeItWent) {
  const auto property = AddOwn("P", "old");
  client.stream->Close();
  EXPECT_TRUE(Send(client, Message({kGetOwn, kSetOwn}))) << "more of its messages may be queued";
  EXPECT_EQ("", client.reply);
  EXPECT_EQ("new", property->GetValue());
}

TEST_F(MessageHandling, WritesTheReplyWithoutTheParserLock) {
  bool lock_was_free = false;
  Client probed(
      std::make_shared<ProbedConnection>([&] { lock_was_free = test::ParserLockIsFree(); }));
  EXPECT_TRUE(Send(probed, kGetAllText));
  EXPECT_TRUE(lock_was_free);
}

TEST_F(MessageHandling, LetsNobodySubscribeWhileItWritesTheReply) {
  std::unique_ptr<TestThread> subscribing;
  platform::Semaphore subscribed;
  bool subscribed_within_write = false;
  Client probed(std::make_shared<ProbedConnection>([&] {
    subscribing = std::make_unique<TestThread>([&] {
      Send(client, Message({kSubscribe}));
      subscribed.Release();
    });
    subscribed_within_write =
        subscribed.WaitUntil(platform::MonotonicNow() + 20 * platform::kTicksPerMillisecond);
  }));
  EXPECT_TRUE(Send(probed, kGetAllText));
  EXPECT_FALSE(subscribed_within_write);
  subscribing->Join();
  EXPECT_EQ(2, client.connection.use_count());
}

TEST_F(MessageHandling, AnswersOthersWhileItWritesALongReply) {
  AddOwn("P", std::string(2'000'000, 'x'));
  AddOwn("Q", "V");
  std::unique_ptr<TestThread> asking;
  platform::Semaphore answered;
  bool answered_within_write = false;
  Client probed(std::make_shared<ProbedConnection>([&] {
    asking = std::make_unique<TestThread>([&] {
      Send(client, R"({"PropertyGetRequests": [{"Component": "OWN","GUID": "G:Q"}]})");
      answered.Release();
    });
    answered_within_write =
        answered.WaitUntil(platform::MonotonicNow() + 10'000 * platform::kTicksPerMillisecond);
  }));
  EXPECT_TRUE(Send(probed, Message({kGetOwn})));
  EXPECT_TRUE(answered_within_write);
  asking->Join();
}

class EngineEnd : public test::EngineTest {};

TEST_F(EngineEnd, IsTheEndOfPublishing) {
  const std::uint32_t workers = LiveWorkerThreads::Live();
  ASSERT_TRUE(engine->Start(249));
  EXPECT_EQ(workers + 1, LiveWorkerThreads::Live());
  Client subscriber;
  EXPECT_TRUE(Send(subscriber, Message({kSubscribeAll})));
  const auto property = AddOwn("P", "V");
  property->SetValue("W");
  EXPECT_TRUE(test::Eventually([&] { return !subscriber.stream->writes().empty(); }));
  engine->End();
  EXPECT_EQ(workers, LiveWorkerThreads::Live());
  subscriber.TakeTexts();
  property->SetValue("X");
  for (int pass = 0; pass < 4; ++pass)
    engine->PublishPass();
  EXPECT_TRUE(subscriber.TakeTexts().empty());
  EXPECT_EQ(Responses({OwnEntry("P", "X")}), Get("OWN", "G:P")) << "requests are answered still";
  engine->End();
}

TEST_F(EngineEnd, NeedsNoStart) {
  engine->End();
  engine->End();
}

// A stream thread that is left behind holds the engine; the publishing thread does not.
TEST_F(EngineEnd, LeavesTheEngineToWhoHoldsIt) {
  ASSERT_TRUE(engine->Start(249));
  EXPECT_EQ(1, engine.use_count());
  const std::weak_ptr<PropertyEngine> gone = [] {
    const auto started = test::MakeTestEngine();
    started->Start(249);
    return std::weak_ptr<PropertyEngine>(started);
  }();
  EXPECT_TRUE(gone.expired());
}

class Subscriptions : public test::EngineTest {
 protected:
  // A subscriber's entry is one more handle on its connection.
  bool IsSubscribed() const { return client.connection.use_count() == 2; }

  Client client;
};

TEST_F(Subscriptions, AreRegisteredByEitherKey) {
  EXPECT_FALSE(IsSubscribed());
  EXPECT_TRUE(Send(client, Message({kSubscribe})));
  EXPECT_TRUE(IsSubscribed());
  Client other;
  EXPECT_TRUE(Send(other, Message({kSubscribeAll})));
  EXPECT_EQ(2, other.connection.use_count());
  EXPECT_TRUE(client.stream->writes().empty()) << "a subscription is not answered";
}

TEST_F(Subscriptions, CountSubscribeAllByItsPresenceAlone) {
  EXPECT_TRUE(Send(client, R"({"SubscribeAllCurrentAndNewProperties": false})"));
  EXPECT_TRUE(IsSubscribed());
}

TEST_F(Subscriptions, AreRegisteredOncePerClient) {
  for (int i = 0; i < 3; ++i) {
    EXPECT_TRUE(Send(client, Message({kSubscribe, kSubscribeAll})));
    EXPECT_TRUE(Send(client, Message({kSubscribeAll})));
    EXPECT_TRUE(Send(client, Message({kSubscribe})));
  }
  EXPECT_TRUE(IsSubscribed());
}

TEST_F(Subscriptions, TakeRequestsThatAreNoArrayAsAnEmptyList) {
  EXPECT_TRUE(Send(client, R"({"PropertySubscribeRequests": 7})"));
  EXPECT_TRUE(IsSubscribed());
}

TEST_F(Subscriptions, EndWithADisconnectAlsoOfTheSameMessage) {
  Send(client, Message({kSubscribe}));
  EXPECT_FALSE(Send(client, R"({"Disconnect": true})"));
  EXPECT_FALSE(IsSubscribed());
  EXPECT_FALSE(Send(client, Message({kSubscribe, R"("Disconnect": true)"})));
  EXPECT_FALSE(IsSubscribed());
}

TEST_F(Subscriptions, EndWithTheConnection) {
  Client other;
  Send(client, Message({kSubscribe}));
  Send(other, Message({kSubscribeAll}));
  engine->ConnectionEnded(*client.connection);
  EXPECT_FALSE(IsSubscribed());
  EXPECT_EQ(2, other.connection.use_count());
  engine->ConnectionEnded(*client.connection);
}

// Counts how many threads are inside a write at once, and checks each frame.
class WatchedConnection final : public Connection {
 public:
  int Read(void*, int) override { return kFailed; }
  int Write(const void* buffer, int length) override {
    if (inside_.fetch_add(1) != 0) overlapped = true;
    const std::string frame(static_cast<const char*>(buffer), static_cast<std::size_t>(length));
    if (test::FrameOf(frame.substr(20)) != frame) broken = true;
    ++frames;
    inside_.fetch_sub(1);
    return length;
  }
  void Close() override { open_ = false; }
  bool IsOpen() const override { return open_; }

  std::atomic<bool> overlapped{false};
  std::atomic<bool> broken{false};
  std::atomic<int> frames{0};

 private:
  std::atomic<int> inside_{0};
  std::atomic<bool> open_{true};
};

TEST(PropertyEngine, ServesManyClientsAtOnce) {
  constexpr int kClients = 4;
  constexpr int kRounds = 100;
  const auto engine = test::MakeTestEngine();
  engine->Start(249);
  engine->AddProperty(StringProperty::Make("v", "P", "Name", "G", "Group"));
  std::vector<std::shared_ptr<WatchedConnection>> streams;
  std::atomic<int> failures{0};
  {
    std::vector<TestThread> threads;
    for (int i = 0; i < kClients; ++i) {
      streams.push_back(std::make_shared<WatchedConnection>());
      threads.emplace_back([&, i, stream = streams.back()] {
        const auto connection = std::make_shared<ClientConnection>(stream);
        const std::string component(1, static_cast<char>('A' + i));
        const std::string next(1, static_cast<char>('A' + (i + 1) % kClients));
        const auto send = [&](const std::string& text) {
          test::ScriptedConnection frame({test::FrameOf(text)});
          PropertyMessage message;
          ReplyBuffer reply;
          if (!message.Read(frame) || !engine->HandleMessage(message, connection, reply))
            ++failures;
        };
        for (int round = 0; round < kRounds; ++round) {
          send(Message({kSubscribe, kSubscribeAll, kSetOwn}));
          send(Responses({{.component = component, .value = std::to_string(round)}}));
          send(R"({"PropertySetRequests": [{"Component": ")" + next +
               R"(","GUID": "G:P","Value": "x"}]})");
          send(kGetAllText);
          engine->ConnectionEnded(*connection);
        }
      });
    }
  }
  EXPECT_EQ(0, failures);
  for (const auto& stream : streams) {
    EXPECT_FALSE(stream->overlapped);
    EXPECT_FALSE(stream->broken);
    EXPECT_LE(kRounds, stream->frames);
  }
}

}  // namespace
}  // namespace valmere
