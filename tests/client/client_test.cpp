// What a client sends, byte for byte, and what it makes of what comes back.
#include "client/client.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <deque>

#include "tests/client/deadlines.h"
#include "tests/client/fake_service.h"

namespace valmere::test {
using namespace client;
namespace {

using test::FrameOf;
using test::ResponseText;
using ::testing::ElementsAre;

const Property kSpeed{"G1", "Motion", "P1", "Speed", "42", kSuccessful, "C1", "Print Head"};
const Property kColour{"G2", "Look", "P2", "Colour", "red", kSuccessful, "C1", "Print Head"};

// Takes down what is sent and hands out what a test has put there.
class ScriptedTransport final : public Transport {
 public:
  struct State {
    std::vector<std::string> sent;
    std::deque<Result<std::string>> incoming;
    bool closed = false;
  };
  explicit ScriptedTransport(State& state) : state_(state) {}

  Result<void> Send(std::string_view frame, Deadline) override {
    state_.sent.emplace_back(frame);
    return {};
  }
  Result<void> Receive(std::string& text, Deadline) override {
    if (state_.incoming.empty()) return Error{ErrorKind::kTimeout, "nothing comes"};
    const Result<std::string> next = std::move(state_.incoming.front());
    state_.incoming.pop_front();
    if (!next) return next.error();
    text = *next;
    return {};
  }
  void Interrupt() noexcept override {}
  void Close() override { state_.closed = true; }

 private:
  State& state_;
};

class ClientTest : public ::testing::Test {
 protected:
  void Comes(const std::string& text) { state_.incoming.emplace_back(text); }

  ScriptedTransport::State state_;
  Client client_{std::make_unique<ScriptedTransport>(state_)};
};

TEST_F(ClientTest, GetsEverything) {
  Comes(ResponseText({kSpeed, kColour}));
  const auto properties = client_.GetAll(Soon());
  ASSERT_TRUE(properties);
  EXPECT_THAT(*properties, ElementsAre(kSpeed, kColour));
  EXPECT_THAT(state_.sent, ElementsAre(FrameOf(R"({"GetAllProperties": true})")));
}

TEST_F(ClientTest, GetsByAddress) {
  Property missing;
  missing.status = kNotFound;
  Comes(ResponseText({kSpeed, missing}));
  const std::vector<PropertyAddress> addresses{kSpeed.address(), {"C9", "G9", "P9"}};
  const auto properties = client_.Get(addresses, Soon());
  ASSERT_TRUE(properties);
  EXPECT_TRUE(properties->at(0).found());
  EXPECT_FALSE(properties->at(1).found());
  EXPECT_THAT(state_.sent,
              ElementsAre(FrameOf(R"({"PropertyGetRequests": [{"Component": "C1","GUID": "G1:P1"},)"
                                  R"({"Component": "C9","GUID": "G9:P9"}]})")));
}

TEST_F(ClientTest, AsksNobodyForNoAddresses) {
  const auto properties = client_.Get({}, Soon());
  ASSERT_TRUE(properties);
  EXPECT_TRUE(properties->empty());
  EXPECT_TRUE(state_.sent.empty());
}

TEST_F(ClientTest, GetsAGroup) {
  Comes(ResponseText({kSpeed}));
  EXPECT_TRUE(client_.GetGroup("G1", Soon()));
  EXPECT_THAT(
      state_.sent,
      ElementsAre(FrameOf(R"({"PropertyGetRequests": [{"Component": "","GUID": "G1:"}]})")));
}

TEST_F(ClientTest, SetsWithoutWaitingForAnAnswer) {
  const SetRequest request{kSpeed.address(), "say \"when\"\n"};
  EXPECT_TRUE(client_.Set({&request, 1}, Soon()));
  EXPECT_THAT(state_.sent, ElementsAre(FrameOf(R"({"PropertySetRequests": [{"Component": "C1",)"
                                               R"("GUID": "G1:P1","Value": "say \"when\"\n"}]})")));
}

TEST_F(ClientTest, PublishesAndWithdraws) {
  EXPECT_TRUE(client_.Publish({&kSpeed, 1}, Soon()));
  EXPECT_TRUE(client_.Withdraw({&kSpeed, 1}, Soon()));
  const auto entry = [](const std::string& status) {
    return FrameOf(
        R"({"PropertyGetResponses": [{"Component": "C1","ComponentString": "Print Head",)"
        R"("GUID": "G1:P1","GroupString": "Motion","NameString": "Speed","Status": ")" +
        status + R"(","Value": "42"}]})");
  };
  EXPECT_THAT(state_.sent, ElementsAre(entry("Successful"), entry("Property No Longer Available")));
}

TEST_F(ClientTest, ReceivesSets) {
  Comes(R"({"PropertySetRequests": [{"GUID": "G1:P1", "Component": "C1", "Value": "7"},
                                    {"GUID": "G2:P2", "Component": "C1", "Value": ""}]})");
  const auto sets = client_.ReceiveSets(Soon());
  ASSERT_TRUE(sets);
  EXPECT_THAT(*sets,
              ElementsAre(SetRequest{kSpeed.address(), "7"}, SetRequest{kColour.address(), ""}));
}

TEST_F(ClientTest, KeepsSetsThatComeBeforeAnAnswer) {
  Comes(R"({"PropertySetRequests": [{"GUID": "G1:P1", "Component": "C1", "Value": "7"}]})");
  Comes(R"({"PropertySetRequests": [{"GUID": "G1:P1", "Component": "C1", "Value": "8"}]})");
  Comes(ResponseText({kSpeed}));
  ASSERT_TRUE(client_.GetAll(Soon()));
  const auto sets = client_.ReceiveSets(Soon());
  ASSERT_TRUE(sets);
  EXPECT_THAT(*sets,
              ElementsAre(SetRequest{kSpeed.address(), "7"}, SetRequest{kSpeed.address(), "8"}));
  EXPECT_EQ(client_.ReceiveSets(Soon()).error().kind, ErrorKind::kTimeout);
}

TEST_F(ClientTest, DoesNotTakeALateAnswerForTheNextOne) {
  EXPECT_EQ(client_.GetAll(Soon()).error().kind, ErrorKind::kTimeout);
  Comes(ResponseText({kColour}));
  Comes(ResponseText({kSpeed}));
  const auto properties = client_.GetAll(Soon());
  ASSERT_TRUE(properties);
  EXPECT_THAT(*properties, ElementsAre(kSpeed));
}

TEST_F(ClientTest, PassesALateAnswerOverWhileItWaitsForSets) {
  EXPECT_FALSE(client_.GetAll(Soon()));
  Comes(ResponseText({kColour}));
  Comes(R"({"PropertySetRequests": [{"GUID": "G1:P1", "Component": "C1", "Value": "7"}]})");
  ASSERT_TRUE(client_.ReceiveSets(Soon()));
  Comes(ResponseText({kSpeed}));
  const auto properties = client_.GetAll(Soon());
  ASSERT_TRUE(properties);
  EXPECT_THAT(*properties, ElementsAre(kSpeed));
}

TEST_F(ClientTest, ReadsWhatIsMissingAsEmpty) {
  Comes(R"({"PropertyGetResponses": [{"GUID": "no colon", "Value": 7}, 3]})");
  const auto properties = client_.GetAll(Soon());
  ASSERT_TRUE(properties);
  Property first;
  first.group_guid = first.guid = "no colon";
  first.status = "";
  Property second;
  second.status = "";
  EXPECT_THAT(*properties, ElementsAre(first, second));
}

TEST_F(ClientTest, SplitsAGuidAtItsFirstColon) {
  Comes(R"({"PropertyGetResponses": [{"GUID": "g1:p1:x"}]})");
  const auto properties = client_.GetAll(Soon());
  ASSERT_TRUE(properties);
  EXPECT_EQ(properties->at(0).group_guid, "g1");
  EXPECT_EQ(properties->at(0).guid, "p1:x");
}

TEST_F(ClientTest, RefusesWhatIsNoMessage) {
  for (const char* text : {"", "[1]", "{", R"({'a': '\u'})"}) {
    Comes(text);
    const auto properties = client_.GetAll(Soon());
    ASSERT_FALSE(properties) << text;
    EXPECT_EQ(properties.error().kind, ErrorKind::kProtocol) << text;
  }
}

TEST_F(ClientTest, RefusesARequestThatIsTooLongBeforeItIsSent) {
  constexpr std::size_t kLimit = 4194304;
  Property property = kSpeed;
  ASSERT_TRUE(client_.Publish({&property, 1}, Soon()));
  property.value.assign(kLimit - (state_.sent[0].size() - 20 - kSpeed.value.size()), 'x');
  EXPECT_TRUE(client_.Publish({&property, 1}, Soon()));
  EXPECT_EQ(state_.sent[1].size(), kLimit + 20);
  property.value += 'x';
  const auto refused = client_.Publish({&property, 1}, Soon());
  ASSERT_FALSE(refused);
  EXPECT_EQ(refused.error().kind, ErrorKind::kInvalid);
  EXPECT_EQ(refused.error().text,
            "a request of 4194305 bytes is longer than the service takes (4194304)");
  EXPECT_EQ(state_.sent.size(), 2U);
}

// The answer is known by a property that does not exist; a notification may come before it.
TEST_F(ClientTest, SubscribesToEverythingAndKeepsWhatComesBeforeTheAnswer) {
  Property missing;
  missing.status = kNotFound;
  Comes(ResponseText({kSpeed}));
  Comes(ResponseText({missing}));
  Comes(ResponseText({kColour}));
  ASSERT_TRUE(client_.SubscribeAll(Soon()));
  EXPECT_THAT(
      state_.sent,
      ElementsAre(FrameOf(R"({"PropertyGetRequests": [{"Component": "none","GUID": "none:none"}],)"
                          R"("SubscribeAllCurrentAndNewProperties": true})")));
  const auto early = client_.ReceiveChanges(Soon());
  ASSERT_TRUE(early);
  EXPECT_THAT(*early, ElementsAre(kSpeed));
  const auto late = client_.ReceiveChanges(Soon());
  ASSERT_TRUE(late);
  EXPECT_THAT(*late, ElementsAre(kColour));
  EXPECT_EQ(client_.ReceiveChanges(Soon()).error().kind, ErrorKind::kTimeout);
}

TEST_F(ClientTest, AsksNothingOnceItIsSubscribed) {
  Property missing;
  missing.status = kNotFound;
  Comes(ResponseText({missing}));
  ASSERT_TRUE(client_.SubscribeAll(Soon()));
  Comes(ResponseText({kSpeed}));
  EXPECT_EQ(client_.GetAll(Soon()).error().kind, ErrorKind::kInvalid);
  EXPECT_EQ(state_.sent.size(), 1u);
}

TEST_F(ClientTest, SubscribesToSomeTimeAfterTime) {
  Property missing;
  missing.status = kNotFound;
  const std::vector<PropertyAddress> speed{kSpeed.address()};
  const std::vector<PropertyAddress> colour{kColour.address()};
  Comes(ResponseText({missing}));
  ASSERT_TRUE(client_.Subscribe(speed, Soon()));
  Comes(ResponseText({kSpeed}));
  Comes(ResponseText({missing}));
  ASSERT_TRUE(client_.Subscribe(colour, Soon()));
  EXPECT_THAT(
      state_.sent,
      ElementsAre(
          FrameOf(R"({"PropertyGetRequests": [{"Component": "none","GUID": "none:none"}],)"
                  R"("PropertySubscribeRequests": [{"Component": "C1","GUID": "G1:P1"}]})"),
          FrameOf(R"({"PropertyGetRequests": [{"Component": "none","GUID": "none:none"}],)"
                  R"("PropertySubscribeRequests": [{"Component": "C1","GUID": "G2:P2"}]})")));
  const auto changes = client_.ReceiveChanges(Soon());
  ASSERT_TRUE(changes);
  EXPECT_THAT(*changes, ElementsAre(kSpeed));
}

// To the service, no address means all, and addresses narrow a subscription to all.
TEST_F(ClientTest, SubscribesEitherToAllOrToSome) {
  Property missing;
  missing.status = kNotFound;
  const std::vector<PropertyAddress> speed{kSpeed.address()};
  EXPECT_EQ(client_.Subscribe({}, Soon()).error().kind, ErrorKind::kInvalid);
  Comes(ResponseText({missing}));
  ASSERT_TRUE(client_.Subscribe(speed, Soon()));
  EXPECT_EQ(client_.SubscribeAll(Soon()).error().kind, ErrorKind::kInvalid);
  Client other(std::make_unique<ScriptedTransport>(state_));
  Comes(ResponseText({missing}));
  ASSERT_TRUE(other.SubscribeAll(Soon()));
  EXPECT_EQ(other.Subscribe(speed, Soon()).error().kind, ErrorKind::kInvalid);
  EXPECT_EQ(state_.sent.size(), 2U);
}

TEST_F(ClientTest, PassesLateAnswersOverBeforeAndAfterItSubscribes) {
  Property missing;
  missing.status = kNotFound;
  EXPECT_EQ(client_.GetAll(Soon()).error().kind, ErrorKind::kTimeout);
  EXPECT_EQ(client_.SubscribeAll(Soon()).error().kind, ErrorKind::kTimeout);
  Comes(ResponseText({missing}));
  EXPECT_EQ(client_.ReceiveChanges(Soon()).error().kind, ErrorKind::kTimeout);
  Comes(ResponseText({missing}));
  Comes(ResponseText({missing}));
  EXPECT_TRUE(client_.SubscribeAll(Soon()));
  Comes(ResponseText({kSpeed}));
  const auto changes = client_.ReceiveChanges(Soon());
  ASSERT_TRUE(changes);
  EXPECT_THAT(*changes, ElementsAre(kSpeed));
}

TEST_F(ClientTest, SaysGoodbyeAndCloses) {
  EXPECT_TRUE(client_.Disconnect(Soon()));
  EXPECT_THAT(state_.sent, ElementsAre(FrameOf(R"({"Disconnect": true})")));
  EXPECT_TRUE(state_.closed);
}

TEST(Client, SpeaksOverASocket) {
  test::FakeService service([](const test::FakeConnection& connection) {
    connection.Receive();
    connection.Send(ResponseText({kSpeed}));
    connection.WaitForEnd();
  });
  auto client = Client::Connect(service.path(), Soon());
  ASSERT_TRUE(client);
  const auto properties = client->GetAll(Soon());
  ASSERT_TRUE(properties);
  EXPECT_THAT(*properties, ElementsAre(kSpeed));
}

TEST(Client, SaysWhyItCannotConnect) {
  const auto client = Client::Connect("/nonexistent/PRN1", Soon());
  ASSERT_FALSE(client);
  EXPECT_EQ(client.error().kind, ErrorKind::kCannotConnect);
}

}  // namespace
}  // namespace valmere::test
