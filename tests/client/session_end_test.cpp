// A session ends quickly whatever it is doing. Where something waits, it waits without end, so that
// a session which waits for it never gets through its test.
#include "tests/client/session_fixture.h"

namespace valmere::test {
using namespace client;
namespace {

class SessionEndTest : public SessionTest {
 protected:
  SessionEndTest() { options_.timeout = std::chrono::hours(1); }
};

TEST_F(SessionEndTest, EndsWhileItIsIdle) {
  Open();
  session_.reset();
  EXPECT_EQ(requests_->Receive(), "");
}

TEST_F(SessionEndTest, EndsWithASubscription) {
  Open();
  Box<Changes> changes;
  const Subscription subscription = SubscribeAll(changes);
  session_.reset();
  EXPECT_EQ(requests_->Receive(), "");
  EXPECT_EQ(changes_->Receive(), "");
}

TEST_F(SessionEndTest, EndsBetweenTwoAttemptsToConnect) {
  options_.first_pause = options_.longest_pause = std::chrono::hours(1);
  Open();
  Lose();
  session_.reset();
}

TEST_F(SessionEndTest, EndsWhileTheServiceIsSilentAsEverythingComesBack) {
  Open();
  Lose();
  requests_.emplace(service_.Accept());
  EXPECT_EQ(requests_->Receive(), kGetAllText);
  session_.reset();
  EXPECT_TRUE(events_.empty());
}

TEST_F(SessionEndTest, EndsWhileASubscriptionComesBack) {
  Open();
  Box<Changes> changes;
  const Subscription subscription = SubscribeAll(changes);
  Lose();
  requests_.emplace(service_.Accept());
  changes_.emplace(service_.Accept());
  changes_->Receive();
  session_.reset();
}

TEST_F(SessionEndTest, EndsWhileItPublishesAgainToAServiceThatDoesNotRead) {
  Open();
  for (const char* guid : {"P1", "P2"}) {
    Property property = WithValue(kSpeed, std::string(4000000, 'x'));
    property.guid = guid;
    auto call = Meanwhile([&] { return session_->Publish({&property, 1}); });
    requests_->Receive();
    ASSERT_TRUE(call.get());
  }
  Lose();
  requests_.emplace(service_.Accept());
  session_.reset();
}

TEST_F(SessionEndTest, EndsWhenItStaysLost) {
  options_.reconnect = false;
  Open();
  Lose();
  session_.reset();
}

TEST_F(SessionEndTest, EndsWhileACallbackWaitsForTheService) {
  Open();
  Box<ErrorKind> errors;
  ASSERT_TRUE(session_->Publish({&kSpeed, 1}, [&](const SetRequest&) {
    errors.Put(session_->GetAll(Deadline::Never()).error().kind);
  }));
  requests_->Receive();
  SendSet(*requests_, "43");
  EXPECT_EQ(requests_->Receive(), kGetAllText);
  session_.reset();
  EXPECT_EQ(errors.Take(), ErrorKind::kConnectionLost);
}

TEST_F(SessionEndTest, EndsWhileACallbackSubscribes) {
  Open();
  Box<ErrorKind> errors;
  ASSERT_TRUE(session_->Publish({&kSpeed, 1}, [&](const SetRequest&) {
    const auto none = session_->SubscribeAll([](auto) {}, Deadline::Never());
    errors.Put(none.error().kind);
  }));
  SendSet(*requests_, "43");
  changes_.emplace(service_.Accept());
  changes_->Receive();
  session_.reset();
  EXPECT_EQ(errors.Take(), ErrorKind::kConnectionLost);
}

TEST_F(SessionEndTest, RunsNoCallbackAfterTheEnd) {
  Open();
  Box<bool> begun;
  Box<bool> go_on;
  int calls = 0;
  auto call = Meanwhile([&] {
    return session_->SubscribeAll([&](std::span<const Property>) {
      ++calls;
      begun.Put(true);
      go_on.Take();
    });
  });
  const Subscription subscription = Confirmed(std::move(call));
  Answer(*changes_, {kSpeed});
  Answer(*changes_, {kColour});
  begun.Take();
  auto ended = Meanwhile([&] { session_.reset(); });
  EXPECT_EQ(requests_->Receive(), "");
  go_on.Put(true);
  ended.get();
  EXPECT_EQ(calls, 1);
}

TEST_F(SessionEndTest, SaysGoodbyeAndFailsFromThenOn) {
  Open();
  Box<Changes> changes;
  const Subscription subscription = SubscribeAll(changes);
  EXPECT_TRUE(session_->Disconnect());
  EXPECT_EQ(requests_->Receive(), R"({"Disconnect": true})");
  EXPECT_EQ(requests_->Receive(), "");
  EXPECT_EQ(changes_->Receive(), "");
  const auto late = session_->GetAll();
  EXPECT_EQ(late.error().kind, ErrorKind::kConnectionLost);
  EXPECT_EQ(late.error().text, "reading all properties: connection lost: the session was ended");
  EXPECT_EQ(session_->Disconnect().error().kind, ErrorKind::kConnectionLost);
  EXPECT_TRUE(events_.empty());
}

TEST_F(SessionEndTest, DisconnectsInACallback) {
  Open();
  Box<bool> done;
  ASSERT_TRUE(session_->Publish({&kSpeed, 1},
                                [&](const SetRequest&) { done.Put(session_->Disconnect().ok()); }));
  requests_->Receive();
  SendSet(*requests_, "43");
  EXPECT_EQ(requests_->Receive(), R"({"Disconnect": true})");
  EXPECT_TRUE(done.Take());
}

TEST_F(SessionEndTest, EndsTheOneThatAnotherTakesThePlaceOf) {
  Open();
  test::PlayedConnection former = std::move(*requests_);
  Result<Session> other = Session::Open(SocketConnector(service_.path()), options_, Soon());
  requests_.emplace(service_.Accept());
  *session_ = std::move(*other);
  EXPECT_EQ(former.Receive(), "");
  EXPECT_TRUE(session_->Set({kSpeed.address(), "43"}));
  EXPECT_NE(requests_->Receive(), "");
}

}  // namespace
}  // namespace valmere::test
