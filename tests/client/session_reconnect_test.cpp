// A session that lost its connection brings everything back.
#include <algorithm>
#include <atomic>

#include "tests/client/session_fixture.h"

namespace valmere::test {
using namespace client;
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;

class SessionReconnectTest : public SessionTest {
 protected:
  // The service is back: takes the connection and answers that these properties are all there are.
  void ComeBack(const Changes& all) {
    requests_.emplace(service_.Accept());
    EXPECT_EQ(requests_->Receive(), kGetAllText);
    Answer(*requests_, all);
  }

  const PropertyAddress speed_ = kSpeed.address();
  const PropertyAddress colour_ = kColour.address();
};

TEST_F(SessionReconnectTest, BringsEverythingBackAndSaysSoOnce) {
  Open();
  Box<SetRequest> sets;
  Box<Changes> changes;
  const std::vector<Property> both{kSpeed, kColour};
  ASSERT_TRUE(session_->Publish(both, [&](const SetRequest& set) { sets.Put(set); }));
  const std::string published = requests_->Receive();
  const Subscription subscription = Subscribe({speed_}, changes);
  Lose();

  requests_.emplace(service_.Accept());
  changes_.emplace(service_.Accept());
  EXPECT_EQ(changes_->Receive(), subscription_text_);
  Confirm(*changes_);
  EXPECT_EQ(requests_->Receive(), published);
  EXPECT_EQ(requests_->Receive(), kGetAllText);
  EXPECT_EQ(session_->GetAll().error().kind, ErrorKind::kConnectionLost);
  Answer(*requests_, {WithValue(kSpeed, "newer"), kColour});
  EXPECT_THAT(TakeReconnected(), ElementsAre(WithValue(kSpeed, "newer"), kColour));

  Answer(*changes_, {kSpeed});
  EXPECT_THAT(changes.Take(), ElementsAre(kSpeed));
  SendSet(*requests_, "43");
  EXPECT_EQ(sets.Take().value, "43");
  auto call = Meanwhile([&] { return session_->Get(speed_); });
  requests_->Receive();
  Answer(*requests_, {kSpeed});
  EXPECT_TRUE(call.get());
  EXPECT_TRUE(events_.empty());
}

TEST_F(SessionReconnectTest, SubscribesToAllAgain) {
  Open();
  Box<Changes> some;
  Box<Changes> all;
  const Subscription first = SubscribeAll(all);
  const auto second = session_->Subscribe({&speed_, 1}, PutInto(some));
  Lose();
  requests_.emplace(service_.Accept());
  changes_.emplace(service_.Accept());
  EXPECT_EQ(changes_->Receive(), subscription_text_);
  Confirm(*changes_);
  requests_->Receive();
  Answer(*requests_, {});
  TakeReconnected();
  Answer(*changes_, {kSpeed});
  EXPECT_THAT(some.Take(), ElementsAre(kSpeed));
  EXPECT_THAT(all.Take(), ElementsAre(kSpeed));
}

TEST_F(SessionReconnectTest, SubscribesToNoMoreThanWhatRemains) {
  Open();
  Box<Changes> changes;
  Subscription speed = Subscribe({speed_}, changes);
  auto call = Meanwhile([&] { return session_->Subscribe({&colour_, 1}, PutInto(changes)); });
  changes_->Receive();
  Confirm(*changes_);
  const auto colour = call.get();
  speed.End();
  Lose();
  requests_.emplace(service_.Accept());
  changes_.emplace(service_.Accept());
  EXPECT_THAT(changes_->Receive(), AllOf(HasSubstr("G2:P2"), Not(HasSubstr("G1:P1"))));
}

TEST_F(SessionReconnectTest, NeedsNoSecondConnectionWithoutASubscription) {
  Open();
  Box<Changes> changes;
  SubscribeAll(changes).End();
  EXPECT_EQ(changes_->Receive(), "");
  Lose();
  ComeBack({kSpeed});
  EXPECT_THAT(TakeReconnected(), ElementsAre(kSpeed));
}

TEST_F(SessionReconnectTest, TriesUntilTheServiceIsThereAgain) {
  std::atomic<int> attempts{0};
  auto connector = [&, connect = SocketConnector(service_.path())](Deadline deadline) {
    ++attempts;
    attempts.notify_all();
    return connect(deadline);
  };
  session_.emplace(std::move(*Session::Open(connector, options_, Soon())));
  requests_.emplace(service_.Accept());
  service_.StopListening();
  Lose();
  for (int seen = attempts; seen < 4; seen = attempts) {
    attempts.wait(seen);
  }
  EXPECT_EQ(session_->GetAll(Deadline::Never()).error().kind, ErrorKind::kConnectionLost);
  service_.Listen();
  ComeBack({kColour});
  EXPECT_THAT(TakeReconnected(), ElementsAre(kColour));
  EXPECT_TRUE(events_.empty());
}

TEST_F(SessionReconnectTest, SaysNothingOfALossWhileItComesBack) {
  Open();
  Lose();
  requests_.emplace(service_.Accept());
  requests_->Receive();
  requests_->End();
  ComeBack({kSpeed});
  EXPECT_THAT(TakeReconnected(), ElementsAre(kSpeed));
  EXPECT_TRUE(events_.empty());
}

TEST_F(SessionReconnectTest, TellsOfEveryLossAndReturnInTurns) {
  Open();
  for (int i = 0; i < 3; ++i) {
    Lose();
    ComeBack({});
    TakeReconnected();
  }
  EXPECT_TRUE(events_.empty());
}

TEST_F(SessionReconnectTest, PublishesAgainWhatWasSaidWhileTheConnectionWasLost) {
  Open();
  const std::vector<Property> both{kSpeed, kColour};
  ASSERT_TRUE(session_->Publish(both));
  service_.StopListening();
  Lose();
  EXPECT_EQ(session_->Update({speed_, "while lost"}).error().kind, ErrorKind::kConnectionLost);
  EXPECT_EQ(session_->Withdraw({&colour_, 1}).error().kind, ErrorKind::kConnectionLost);
  Property third = kSpeed;
  third.guid = "P3";
  EXPECT_EQ(session_->Publish({&third, 1}).error().kind, ErrorKind::kConnectionLost);
  service_.Listen();
  requests_.emplace(service_.Accept());
  const std::string text = requests_->Receive();
  EXPECT_THAT(text, AllOf(HasSubstr("while lost"), HasSubstr("G1:P3"), Not(HasSubstr("G2:P2"))));
  EXPECT_EQ(requests_->Receive(), kGetAllText);
}

TEST_F(SessionReconnectTest, TellsWhatWasSaidWhileEverythingCameBack) {
  Open();
  const std::vector<Property> both{kSpeed, kColour};
  ASSERT_TRUE(session_->Publish(both));
  Lose();
  requests_.emplace(service_.Accept());
  EXPECT_THAT(requests_->Receive(), HasSubstr(R"("Value": "42")"));
  EXPECT_EQ(requests_->Receive(), kGetAllText);
  EXPECT_EQ(session_->Update({speed_, "in time"}).error().kind, ErrorKind::kConnectionLost);
  EXPECT_EQ(session_->Withdraw({&colour_, 1}).error().kind, ErrorKind::kConnectionLost);
  Answer(*requests_, {});
  EXPECT_THAT(requests_->Receive(), AllOf(HasSubstr(kNoLongerAvailable), HasSubstr("G2:P2")));
  EXPECT_THAT(requests_->Receive(), AllOf(HasSubstr(kSuccessful), HasSubstr("in time")));
  TakeReconnected();
}

TEST_F(SessionReconnectTest, HoldsChangesAndSetsBackUntilItSaysThatItIsBack) {
  Box<std::string> order;
  options_.on_event = [&](const SessionEvent& event) {
    order.Put(std::holds_alternative<Lost>(event) ? "lost" : "back");
  };
  Open();
  ASSERT_TRUE(session_->Publish({&kSpeed, 1}, [&](const SetRequest& set) {
    order.Put("set " + set.value);
    EXPECT_TRUE(session_->Update(set));
  }));
  requests_->Receive();
  auto call = Meanwhile([&] {
    return session_->SubscribeAll(
        [&](std::span<const Property> properties) { order.Put("change " + properties[0].value); });
  });
  const Subscription subscription = Confirmed(std::move(call));
  requests_->End();
  EXPECT_EQ(order.Take(), "lost");
  requests_.emplace(service_.Accept());
  changes_.emplace(service_.Accept());
  changes_->Receive();
  Answer(*changes_, {WithValue(kSpeed, "early")});
  Confirm(*changes_);
  requests_->Receive();
  requests_->Receive();
  SendSet(*requests_, "43");
  Answer(*requests_, {});
  EXPECT_EQ(order.Take(), "back");
  EXPECT_EQ(order.Take(), "change early");
  EXPECT_EQ(order.Take(), "set 43");
  EXPECT_THAT(requests_->Receive(), HasSubstr("43"));
}

TEST_F(SessionReconnectTest, LetsTheEventAsk) {
  Box<bool> opened;
  Box<bool> refused;
  Box<Property> answers;
  options_.on_event = [&](const SessionEvent& event) {
    if (std::holds_alternative<Lost>(event)) {
      opened.Take();
      refused.Put(!session_->Get(speed_, Deadline::Never()));
    } else {
      answers.Put(session_->Get(speed_).value());
    }
  };
  Open();
  requests_->End();
  opened.Put(true);
  EXPECT_TRUE(refused.Take());
  ComeBack({});
  requests_->Receive();
  Answer(*requests_, {kSpeed});
  EXPECT_EQ(answers.Take(), kSpeed);
}

TEST_F(SessionReconnectTest, PublishesInSeveralMessagesWhatIsTooLongForOne) {
  Open();
  for (const char* guid : {"P1", "P2", "P3"}) {
    Property property = WithValue(kSpeed, std::string(2000000, 'x'));
    property.guid = guid;
    auto call = Meanwhile([&] { return session_->Publish({&property, 1}); });
    EXPECT_THAT(requests_->Receive(), HasSubstr(guid));
    ASSERT_TRUE(call.get());
  }
  Lose();
  requests_.emplace(service_.Accept());
  std::vector<std::string> found;
  for (std::string text = requests_->Receive(); text != kGetAllText; text = requests_->Receive()) {
    ASSERT_NE(text, "");
    EXPECT_LE(text.size(), 4194304U);
    for (const char* guid : {"P1", "P2", "P3"}) {
      if (text.find(std::string("G1:") + guid) != std::string::npos) found.emplace_back(guid);
    }
  }
  EXPECT_THAT(found, ElementsAre("P1", "P2", "P3"));
}

TEST_F(SessionReconnectTest, StaysLostWhenItIsToldNotToReconnect) {
  options_.reconnect = false;
  Open();
  Lose();
  const auto got = session_->GetAll(Deadline::Never());
  EXPECT_EQ(got.error().kind, ErrorKind::kConnectionLost);
  EXPECT_EQ(got.error().text, "reading all properties: connection lost: the service ended it");
  Box<Changes> changes;
  EXPECT_EQ(session_->SubscribeAll(PutInto(changes)).error().kind, ErrorKind::kConnectionLost);
}

}  // namespace
}  // namespace valmere::test
