// What one client can take of memory and of the others' time.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "driver/sync/live_counters.h"
#include "tests/store/engine/engine_fixture.h"
#include "tests/support/allocations.h"

namespace valmere::test {
namespace {

constexpr std::size_t kMiB = std::size_t{1} << 20;

class Bounds : public EngineTest {
 protected:
  // A message of so many entries, each as short as can be.
  static std::string Flood(std::string_view key, std::size_t entries) {
    std::string text = "{\"" + std::string(key) + "\": [1";
    for (std::size_t i = 1; i < entries; ++i)
      text += ",1";
    EXPECT_GT(4 * kMiB, text.size());
    return text + "]}";
  }
  static constexpr const char* kSubscription =
      R"({"PropertySubscribeRequests": [{"Component": "other","GUID": "G:P"}]})";

  Client client;
};

TEST_F(Bounds, EndTheSessionOfAReplyThatWouldBeTooLong) {
  for (int i = 0; i < 20; ++i)
    Publish(reader, {.group_guid = "", .guid = std::to_string(i)});
  const std::size_t before = BytesInUse();
  EXPECT_FALSE(Send(client, Flood("PropertyGetRequests", 50'000)));
  EXPECT_TRUE(client.stream->writes().empty());
  EXPECT_GT(before + kMiB, BytesInUse());
  const std::vector<std::string> lines = log->TakeLines();
  ASSERT_EQ(1u, lines.size());
  EXPECT_EQ("Client " + std::to_string(client.connection->instance_number()) +
                " asked for a reply of more than 64 MiB: its session ends",
            lines[0]);
  EXPECT_EQ((Texts{"it asked for a reply of more than 64 MiB"}), client.stream->causes());
}

TEST_F(Bounds, LetAReplyOfNearlyTheMostThrough) {
  AddOwn("P", std::string(kMiB, 'x'));
  std::string text = R"({"PropertyGetRequests": [)";
  for (int i = 0; i < 63; ++i)
    text += std::string(i == 0 ? "" : ",") + R"({"Component": "OWN","GUID": "G:P"})";
  EXPECT_TRUE(Send(client, text + "]}"));
  ASSERT_EQ(1u, client.stream->writes().size());
  EXPECT_LT(63 * kMiB, client.stream->writes()[0].size());
}

TEST_F(Bounds, EndTheSessionOfSetsThatWouldBeTooLongToPassOn) {
  Client owner;
  Publish(owner, {.component = "", .group_guid = "", .guid = ""});
  EXPECT_FALSE(Send(client, Flood("PropertySetRequests", 800'000)));
  EXPECT_TRUE(owner.TakeTexts().empty());
  const std::vector<std::string> lines = log->TakeLines();
  ASSERT_EQ(1u, lines.size());
  EXPECT_EQ("Client " + std::to_string(client.connection->instance_number()) +
                " sent sets of more than 32 MiB to pass on: its session ends",
            lines[0]);
  EXPECT_EQ((Texts{"it sent sets of more than 32 MiB to pass on"}), client.stream->causes());
}

TEST_F(Bounds, PassOnWhatGrowsSixfoldByItsEscapes) {
  Client owner;
  Publish(owner, EntryText{});
  EXPECT_TRUE(
      Send(client, R"({"PropertySetRequests": [{"Component": "C","GUID": "G:P","Value": ")" +
                       std::string(4 * kMiB - 100, '\x01') + R"("}]})"));
  ASSERT_EQ(1u, owner.stream->writes().size());
  EXPECT_LT(23 * kMiB, owner.stream->writes()[0].size());
}

// A period that never ends, and a client that publishes and withdraws for as long.
TEST_F(Bounds, HoldInAPeriodThatNeverEnds) {
  persistence->AttachEngine(engine);
  Client subscriber;
  EXPECT_TRUE(Send(subscriber, R"({"PropertySubscribeRequests": [{"GUID": "x:y"}],)"
                               R"("PropertySetRequests": [{"Component": "OWN","Value": "0",)"
                               R"("GUID": "99A61D40-20CE-41EA-A579-EB92C6ED94C6:)"
                               R"(DA821DC5-948D-4659-9B52-177E4C102129"}]})"));
  for (int i = 0; i < 3; ++i)
    engine->PublishPass();
  const std::string value(10'000, 'x');
  const std::string come_and_go = Responses({{.value = value}, {.status = kGone, .value = value}});
  const std::uint32_t properties = LiveProperties::Live();
  const std::size_t before = BytesInUse();
  for (int round = 0; round < 40; ++round) {
    for (int i = 0; i < 100; ++i)
      Send(client, come_and_go);
    engine->PublishPass();
  }
  EXPECT_GT(before + 50 * kMiB, BytesInUse());
  EXPECT_EQ(properties, LiveProperties::Live());
  EXPECT_EQ(1u, log->TakeLines().size()) << "told once";
}

TEST_F(Bounds, HoldWhileNoPassTakesWhatComesAndGoes) {
  Client subscriber;
  EXPECT_TRUE(Send(subscriber, kSubscription));
  const std::uint32_t properties = LiveProperties::Live();
  std::string text = R"({"PropertyGetResponses": [0)";
  for (int i = 0; i < 70'000; ++i)
    text += R"(,{"Status":"Property No Longer Available"})";
  EXPECT_TRUE(Send(client, text + "]}"));
  EXPECT_EQ(properties + 65'536, LiveProperties::Live());
  engine->PublishPass();
  EXPECT_EQ(properties, LiveProperties::Live());
  EXPECT_EQ(1u, log->TakeLines().size());
}

}  // namespace
}  // namespace valmere::test
