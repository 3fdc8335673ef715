// Gets and sets by many threads over one connection.
#include "client/session.h"

#include <thread>

#include "tests/client/session_fixture.h"

namespace valmere::test {
using namespace client;
namespace {

using ::testing::ElementsAre;
using ::testing::StartsWith;

TEST_F(SessionTest, SaysWhyItCannotConnect) {
  service_.StopListening();
  const auto session = Session::Open(SocketConnector(service_.path()), options_, Soon());
  ASSERT_FALSE(session);
  EXPECT_EQ(session.error().kind, ErrorKind::kCannotConnect);
  EXPECT_EQ(session.error().text,
            "cannot connect to " + service_.path() + ": No such file or directory");
}

TEST_F(SessionTest, GetsOneManyAGroupAndAll) {
  Open();
  const auto in_return = [&](auto call, const Changes& answer) {
    auto waiting = Meanwhile(call);
    const std::string text = requests_->Receive();
    Answer(*requests_, answer);
    EXPECT_TRUE(waiting.get());
    return text;
  };
  const std::vector<PropertyAddress> both{kSpeed.address(), kColour.address()};
  EXPECT_EQ(in_return([&] { return session_->Get(kSpeed.address()); }, {kSpeed}),
            R"({"PropertyGetRequests": [{"Component": "C1","GUID": "G1:P1"}]})");
  EXPECT_EQ(in_return([&] { return session_->Get(both); }, {kSpeed, kColour}),
            R"({"PropertyGetRequests": [{"Component": "C1","GUID": "G1:P1"},)"
            R"({"Component": "C1","GUID": "G2:P2"}]})");
  EXPECT_EQ(in_return([&] { return session_->GetGroup("G1"); }, {kSpeed}),
            R"({"PropertyGetRequests": [{"Component": "","GUID": "G1:"}]})");
  EXPECT_EQ(in_return([&] { return session_->GetAll(); }, {kSpeed, kColour}), kGetAllText);
}

TEST_F(SessionTest, AnswersThatThereIsNoSuchProperty) {
  Open();
  auto waiting = Meanwhile([&] { return session_->Get(kSpeed.address()); });
  requests_->Receive();
  Answer(*requests_, {WithStatus(kSpeed, kNotFound)});
  const auto property = waiting.get();
  ASSERT_TRUE(property);
  EXPECT_FALSE(property->found());
}

TEST_F(SessionTest, GivesEachOfManyThreadsItsOwnAnswer) {
  Open();
  constexpr int kThreads = 4;
  constexpr int kGets = 50;
  std::vector<std::future<int>> callers;
  for (int i = 0; i < kThreads; ++i) {
    callers.push_back(Meanwhile([&, i] {
      const std::string own = "P" + std::to_string(i);
      int right = 0;
      for (int get = 0; get < kGets; ++get) {
        const auto answer = session_->Get({"C1", "G1", own});
        if (answer && answer->guid == own) ++right;
      }
      return right;
    }));
  }
  for (int get = 0; get < kThreads * kGets; ++get) {
    const std::string text = requests_->Receive();
    Property property = kSpeed;
    property.guid = text.substr(text.find("G1:") + 3, 2);
    Answer(*requests_, {property});
  }
  for (auto& caller : callers) {
    EXPECT_EQ(caller.get(), kGets);
  }
}

TEST_F(SessionTest, AnswersTwoThreadsThatWaitAtOnce) {
  Open();
  auto first = Meanwhile([&] { return session_->Get(kSpeed.address()); });
  EXPECT_THAT(requests_->Receive(), ::testing::HasSubstr("G1:P1"));
  auto second = Meanwhile([&] { return session_->Get(kColour.address()); });
  EXPECT_THAT(requests_->Receive(), ::testing::HasSubstr("G2:P2"));
  Answer(*requests_, {kSpeed});
  Answer(*requests_, {kColour});
  EXPECT_EQ(first.get().value(), kSpeed);
  EXPECT_EQ(second.get().value(), kColour);
}

TEST_F(SessionTest, DoesNotTakeALateAnswerForTheNextOne) {
  Open();
  const auto late = session_->Get(kColour.address(), Past());
  ASSERT_FALSE(late);
  EXPECT_EQ(late.error().kind, ErrorKind::kTimeout);
  EXPECT_EQ(late.error().text, "reading G2:P2 of C1: time-out waiting for the service");
  auto next = Meanwhile([&] { return session_->Get(kSpeed.address()); });
  requests_->Receive();
  requests_->Receive();
  Answer(*requests_, {kColour});
  Answer(*requests_, {kSpeed});
  EXPECT_EQ(next.get().value(), kSpeed);
}

TEST_F(SessionTest, GivesUpAtTheTimeoutOfItsOptions) {
  options_.timeout = std::chrono::milliseconds(1);
  Open();
  EXPECT_EQ(session_->GetAll().error().kind, ErrorKind::kTimeout);
}

TEST_F(SessionTest, ReportsALostConnectionAtOnceToThoseWhoWait) {
  options_.reconnect = false;
  Open();
  auto first = Meanwhile([&] { return session_->GetAll(Deadline::Never()); });
  auto second = Meanwhile([&] { return session_->GetGroup("G1", Deadline::Never()); });
  requests_->Receive();
  requests_->Receive();
  requests_->End();
  for (const auto& error : {first.get().error(), second.get().error()}) {
    EXPECT_EQ(error.kind, ErrorKind::kConnectionLost);
    EXPECT_THAT(error.text, StartsWith("reading "));
    EXPECT_THAT(error.text, ::testing::EndsWith(": connection lost: the service ended it"));
  }
}

TEST_F(SessionTest, TakesNonsenseForTheEndOfTheConnection) {
  options_.reconnect = false;
  Open();
  auto call = Meanwhile([&] { return session_->GetAll(Deadline::Never()); });
  requests_->Receive();
  requests_->Send("[1]");
  EXPECT_EQ(call.get().error().kind, ErrorKind::kProtocol);
  EXPECT_EQ(TakeLost().kind, ErrorKind::kProtocol);
  EXPECT_EQ(session_->GetAll().error().kind, ErrorKind::kConnectionLost);
}

TEST_F(SessionTest, SetsWithoutWaitingForAnAnswer) {
  Open();
  EXPECT_TRUE(session_->Set({kSpeed.address(), "43"}));
  EXPECT_EQ(requests_->Receive(),
            R"({"PropertySetRequests": [{"Component": "C1","GUID": "G1:P1","Value": "43"}]})");
}

TEST_F(SessionTest, RefusesWhatIsTooLongBeforeItIsSent) {
  Open();
  const std::string much(4194304, 'x');
  const PropertyAddress far{"C1", "G1", much};
  Property large = kSpeed;
  ASSERT_TRUE(session_->Publish({&large, 1}));
  requests_->Receive();
  large.value = much;
  Box<Changes> changes;
  const std::vector<Error> errors{
      session_->Get(far).error(),
      session_->Get({&far, 1}).error(),
      session_->GetGroup(much).error(),
      session_->Set({far, ""}).error(),
      session_->Subscribe({&far, 1}, PutInto(changes)).error(),
      session_->Publish({&large, 1}).error(),
      session_->Update({kSpeed.address(), much}).error(),
  };
  for (const Error& error : errors) {
    EXPECT_EQ(error.kind, ErrorKind::kInvalid);
    EXPECT_THAT(error.text, ::testing::HasSubstr("longer than the service takes"));
  }
  ASSERT_TRUE(session_->Set({kSpeed.address(), "next"}));
  EXPECT_THAT(requests_->Receive(), ::testing::HasSubstr("next"));
}

TEST_F(SessionTest, AsksNobodyForNoAddresses) {
  Open();
  const auto properties = session_->Get(std::span<const PropertyAddress>());
  ASSERT_TRUE(properties);
  EXPECT_TRUE(properties->empty());
}

// One that does not read costs the caller no longer than its deadline.
TEST_F(SessionTest, GivesUpSendingToAServiceThatDoesNotRead) {
  options_.reconnect = false;
  Open();
  const SetRequest large{kSpeed.address(), std::string(4000000, 'x')};
  Result<void> sent;
  while (sent) {
    sent = session_->Set(large, Past());
  }
  EXPECT_EQ(sent.error().kind, ErrorKind::kTimeout);
  EXPECT_EQ(TakeLost().text, "connection lost: the service did not take a request to its end");
}

}  // namespace
}  // namespace valmere::test
