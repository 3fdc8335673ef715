// Messages of every kind let go when the service ends their session, and only then.
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tests/store/engine/engine_fixture.h"

namespace valmere::test {
namespace {

constexpr int kEntries = 1000;

// Runs a function each time that its value is asked for.
class HookedProperty final : public StringProperty {
 public:
  HookedProperty(std::string_view guid, std::function<void()> on_read)
      : StringProperty(MakeToken(), "V", PropertyIdentity(guid, "Name", "G", "Group")),
        on_read_(std::move(on_read)) {}
  std::string GetValueString() const override {
    ++reads;
    on_read_();
    return StringProperty::GetValueString();
  }
  mutable int reads = 0;

 private:
  const std::function<void()> on_read_;
};

std::string Repeated(std::string_view key, const std::function<std::string(int)>& entry) {
  std::string text = "{\"" + std::string(key) + "\": [";
  for (int i = 0; i < kEntries; ++i)
    text += (i == 0 ? "" : ",") + entry(i);
  return text + "]}";
}

std::string Address(std::string_view guid) {
  return R"({"Component": "OWN","GUID": "G:)" + std::string(guid) + R"("})";
}

class EndedSession : public EngineTest {
 protected:
  // What happens at an unload: the service closes its end.
  void EndSession() { client.connection->Close(); }
  // Some properties of which each ends the session when it is read; how often all were read.
  int ReadsUntilEndOf(std::string_view text) {
    std::vector<std::shared_ptr<HookedProperty>> properties;
    for (int i = 0; i < kEntries; ++i) {
      properties.push_back(
          std::make_shared<HookedProperty>(std::to_string(i), [this] { EndSession(); }));
      engine->AddProperty(properties.back());
    }
    Send(client, text);
    EXPECT_TRUE(client.stream->writes().empty());
    EXPECT_EQ("", client.reply);
    EXPECT_GT(20'000u, client.reply.capacity());
    int reads = 0;
    for (const auto& property : properties)
      reads += property->reads;
    return reads;
  }

  Client client;
};

TEST_F(EndedSession, GetsNoFurtherPropertyOfAList) {
  EXPECT_EQ(1, ReadsUntilEndOf(Repeated("PropertyGetRequests",
                                        [](int i) { return Address(std::to_string(i)); })));
}

TEST_F(EndedSession, GetsNoFurtherPropertyOfAGroup) {
  EXPECT_EQ(1, ReadsUntilEndOf(R"({"PropertyGetRequests": [{"GUID": "G:"}]})"));
}

TEST_F(EndedSession, GetsNoFurtherPropertyOfAll) {
  EXPECT_EQ(1, ReadsUntilEndOf(R"({"GetAllProperties": true})"));
}

TEST_F(EndedSession, PassesNoSetOn) {
  Client owner;
  Publish(owner, EntryText{});
  const auto last = AddOwn("last", "old");
  last->AddListener([&](const std::shared_ptr<Property>&) { EndSession(); });
  Send(client, R"({"PropertySetRequests": [{"Component": "C","GUID": "G:P","Value": "W"},)"
               R"({"Component": "OWN","GUID": "G:last","Value": "new"}]})");
  EXPECT_EQ("new", last->GetValue());
  EXPECT_TRUE(owner.TakeTexts().empty());
}

TEST_F(EndedSession, PassesNoSetOnToFurtherOwners) {
  class EndingConnection final : public Connection {
   public:
    explicit EndingConnection(std::function<void()> on_write) : on_write_(std::move(on_write)) {}
    int Read(void*, int) override { return kFailed; }
    int Write(const void*, int length) override {
      on_write_();
      return length;
    }
    void Close() override {}
    bool IsOpen() const override { return true; }

   private:
    const std::function<void()> on_write_;
  };
  Client ending(std::make_shared<EndingConnection>([this] { EndSession(); }));
  Client other;
  EXPECT_TRUE(Send(ending, Responses({{.component = "A"}})));
  Publish(other, {.component = "B"});
  Send(client, R"({"PropertySetRequests": [{"Component": "A","GUID": "G:P","Value": "W"},)"
               R"({"Component": "B","GUID": "G:P","Value": "W"}]})");
  EXPECT_TRUE(other.TakeTexts().empty());
}

TEST_F(EndedSession, PublishesNoFurtherProperty) {
  Publish(reader, EntryText{});
  EXPECT_TRUE(Send(client, Responses({{.guid = "1"}})));
  EndSession();
  Send(client, Responses({{.guid = "2"}, {.value = "W"}}));
  EXPECT_EQ(Responses({EntryText{}, {.guid = "1"}}), Get("C", "G:"));
}

TEST_F(EndedSession, SubscribesToNothing) {
  EndSession();
  Send(client, R"({"PropertySubscribeRequests": [{"Component": "OWN","GUID": "G:P"}]})");
  EXPECT_EQ(1, client.connection.use_count());
  Send(client, R"({"SubscribeAllCurrentAndNewProperties": true})");
  EXPECT_EQ(1, client.connection.use_count());
}

TEST_F(EndedSession, SetsNothing) {
  const auto property = AddOwn("P", "old");
  EndSession();
  Send(client, R"({"PropertySetRequests": [{"Component": "OWN","GUID": "G:P","Value": "new"}]})");
  EXPECT_EQ("old", property->GetValue());
}

TEST_F(EndedSession, LeavesWhatItPublishedForTheEngineToRelease) {
  Publish(client, EntryText{});
  for (int pass = 0; pass < 2; ++pass)
    engine->PublishPass();
  Client subscriber;
  EXPECT_TRUE(Send(subscriber, R"({"SubscribeAllCurrentAndNewProperties": true})"));
  EXPECT_TRUE(Send(client, R"({"PropertySubscribeRequests": [{"Component": "C","GUID": "G:P"}]})"));
  EndSession();
  const long handles = client.connection.use_count();
  engine->ConnectionEnded(*client.connection);
  EXPECT_EQ(handles, client.connection.use_count());
  for (int pass = 0; pass < 2; ++pass)
    engine->PublishPass();
  EXPECT_TRUE(subscriber.TakeTexts().empty());
  EXPECT_EQ(Responses({EntryText{}}), Get("C", "G:P"));
}

// What a client had sent before it closed its own end is done to the last.
TEST_F(EndedSession, IsNotOneThatTheClientClosedItself) {
  const auto property = AddOwn("P", "old");
  client.stream->Close();
  Send(client, R"({"PropertySetRequests": [{"Component": "OWN","GUID": "G:P","Value": "new"}],)"
               R"("PropertyGetResponses": [)" +
                   EntryText{}.Text() + "]}");
  EXPECT_EQ("new", property->GetValue());
  EXPECT_EQ(Responses({EntryText{}}), Get("C", "G:P"));
}

}  // namespace
}  // namespace valmere::test
