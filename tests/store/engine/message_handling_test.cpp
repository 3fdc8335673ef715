// The handling of one message: which keys, in which order, with which result.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "driver/sync/live_counters.h"
#include "protocol/message/parser_lock.h"
#include "protocol/message/property_message.h"
#include "store/property/string_property.h"
#include "tests/store/engine/engine_fixture.h"
#include "tests/support/frames.h"
#include "tests/support/parser_lock_probe.h"
#include "tests/support/scripted_connection.h"
#include "tests/support/test_engine.h"
#include "tests/support/test_thread.h"

namespace valmere::test {
namespace {

class MessageHandling : public EngineTest {
 protected:
  Client client;
};

TEST_F(MessageHandling, KeepsTheSessionWhenThereIsNothingToDo) {
  for (const char* text : {"{}", R"({"Unknown": [{"GUID": "G:P"}]})", R"({"getallproperties": 1})"})
    EXPECT_TRUE(Send(client, text)) << text;
  EXPECT_TRUE(client.stream->writes().empty());
}

TEST_F(MessageHandling, AnswersWithOneWrite) {
  AddOwn("P", "value");
  EXPECT_TRUE(Send(client, Message({kGetOwn})));
  EXPECT_EQ((Texts{FrameOf(Responses({OwnEntry("P", "value")}))}), client.stream->writes());
}

TEST_F(MessageHandling, EndsTheSessionWhenTheReplyCantBeWritten) {
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
  EXPECT_TRUE(client.TakeTexts().empty()) << "it had no owner when the set was handled";
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
    const auto own_engine = MakeTestEngine();
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
    if (ends_) open_ = false;
    probe_();
    return length;
  }
  void Close() override {}
  bool IsOpen() const override { return open_; }
  // It is closed from the next write on.
  void EndAtTheNextWrite() { ends_ = true; }

 private:
  const std::function<void()> probe_;
  std::atomic<bool> ends_{false};
  std::atomic<bool> open_{true};
};

TEST_F(MessageHandling, MakesTheReplyWhileOthersParse) {
  for (const std::string& text : {std::string(kGetAllText), Message({kGetOwn})}) {
    ScriptedConnection frame({FrameOf(text)});
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
  ScriptedConnection frame(
      {FrameOf(R"({"PropertySetRequests": [{"Component": "C","GUID": "G:P","Value": "x"}]})")});
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
  Client probed(std::make_shared<ProbedConnection>([&] { lock_was_free = ParserLockIsFree(); }));
  EXPECT_TRUE(Send(probed, kGetAllText));
  EXPECT_TRUE(lock_was_free);
}

TEST_F(MessageHandling, LetsOthersSubscribeWhileItWritesTheReply) {
  std::unique_ptr<TestThread> subscribing;
  platform::Semaphore subscribed;
  bool subscribed_within_write = false;
  Client probed(std::make_shared<ProbedConnection>([&] {
    subscribing = std::make_unique<TestThread>([&] {
      Send(client, Message({kSubscribe}));
      subscribed.Release();
    });
    subscribed_within_write =
        subscribed.WaitUntil(platform::MonotonicNow() + 10'000 * platform::kTicksPerMillisecond);
  }));
  EXPECT_TRUE(Send(probed, kGetAllText));
  EXPECT_TRUE(subscribed_within_write);
  subscribing->Join();
  EXPECT_EQ(2, client.connection.use_count());
}

class LongReply : public MessageHandling {
 protected:
  LongReply() { AddOwn("P", std::string(2'000'000, 'x')); }
  // Has a thread run the function within each write; whether it was done before the write ended.
  std::function<void()> Within(std::function<void()> act, std::uint32_t milliseconds) {
    return [this, act, milliseconds] {
      thread = std::make_unique<TestThread>([this, act] {
        act();
        done.Release();
      });
      done_within_write =
          done.WaitUntil(platform::MonotonicNow() + milliseconds * platform::kTicksPerMillisecond);
    };
  }

  const std::shared_ptr<StringProperty> other = AddOwn("Q", "V");
  platform::Semaphore done;
  std::atomic<bool> done_within_write{false};
  std::unique_ptr<TestThread> thread;
};

TEST_F(LongReply, LetsOthersBeAnswered) {
  Client probed(std::make_shared<ProbedConnection>(Within(
      [&] { Send(client, R"({"PropertyGetRequests": [{"Component": "OWN","GUID": "G:Q"}]})"); },
      10'000)));
  EXPECT_TRUE(Send(probed, Message({kGetOwn})));
  EXPECT_TRUE(done_within_write);
  thread->Join();
  EXPECT_TRUE(Send(probed, Message({kSubscribe})));
  done_within_write = false;
  EXPECT_TRUE(Send(probed, Message({kGetOwn}))) << "as a subscriber";
  EXPECT_TRUE(done_within_write);
}

TEST_F(LongReply, LetsNoNotificationOvertakeIt) {
  std::atomic<int> writes{0};
  Client probed(std::make_shared<ProbedConnection>([&] {
    if (++writes != 1) return;
    Within(
        [&] {
          engine->PublishPass();
          engine->PublishPass();
        },
        20)();
  }));
  EXPECT_TRUE(Send(probed, Message({kSubscribeAll})));
  other->SetFromString("W");
  EXPECT_TRUE(Send(probed, Message({kGetOwn})));
  EXPECT_FALSE(done_within_write);
  thread->Join();
  EXPECT_EQ(2, writes);
}

TEST_F(LongReply, OutlivesTheSubscriptionOfItsClient) {
  const auto stream = std::make_shared<ProbedConnection>(Within(
      [&] {
        engine->PublishPass();
        engine->PublishPass();
      },
      10'000));
  Client probed(stream);
  EXPECT_TRUE(Send(probed, Message({kSubscribeAll})));
  other->SetFromString("W");
  stream->EndAtTheNextWrite();
  EXPECT_TRUE(Send(probed, Message({kGetOwn})));
  EXPECT_TRUE(done_within_write) << "a closed client's entry is removed without its lock";
  thread->Join();
  EXPECT_EQ(1, probed.connection.use_count()) << "nothing holds it any more";
}

}  // namespace
}  // namespace valmere::test
