// Subscriptions of a session, and what their callbacks may do.
#include <atomic>

#include "tests/client/session_fixture.h"

namespace valmere::test {
using namespace client;
namespace {

using ::testing::ElementsAre;

const std::string kSubscribeAllText =
    R"({"PropertyGetRequests": [{"Component": "none","GUID": "none:none"}],)"
    R"("SubscribeAllCurrentAndNewProperties": true})";
const std::string kSubscribeSpeedText =
    R"({"PropertyGetRequests": [{"Component": "none","GUID": "none:none"}],)"
    R"("PropertySubscribeRequests": [{"Component": "C1","GUID": "G1:P1"}]})";

class SessionSubscriptionTest : public SessionTest {
 protected:
  SessionSubscriptionTest() { Open(); }

  const std::vector<PropertyAddress> speed_{kSpeed.address()};
  const std::vector<PropertyAddress> colour_{kColour.address()};
  Box<Changes> some_;
  Box<Changes> all_;
};

TEST_F(SessionSubscriptionTest, TellsOfWhatWasAskedFor) {
  const Subscription subscription = Subscribe(speed_, some_);
  EXPECT_EQ(subscription_text_, kSubscribeSpeedText);
  Answer(*changes_, {kSpeed, kColour});
  Answer(*changes_, {kColour});
  Answer(*changes_, {WithStatus(kSpeed, kNoLongerAvailable)});
  EXPECT_THAT(some_.Take(), ElementsAre(kSpeed));
  EXPECT_THAT(some_.Take(), ElementsAre(WithStatus(kSpeed, kNoLongerAvailable)));
}

TEST_F(SessionSubscriptionTest, TellsOfEverything) {
  const Subscription subscription = SubscribeAll(all_);
  EXPECT_EQ(subscription_text_, kSubscribeAllText);
  Answer(*changes_, {kSpeed, kColour});
  EXPECT_THAT(all_.Take(), ElementsAre(kSpeed, kColour));
}

TEST_F(SessionSubscriptionTest, TellsOfWhatComesBeforeTheSubscriptionIsConfirmed) {
  auto call = Meanwhile([&] { return session_->SubscribeAll(PutInto(all_)); });
  changes_.emplace(service_.Accept());
  changes_->Receive();
  Answer(*changes_, {kSpeed});
  EXPECT_THAT(all_.Take(), ElementsAre(kSpeed));
  Confirm(*changes_);
  EXPECT_TRUE(call.get());
}

TEST_F(SessionSubscriptionTest, NeedsAPropertyAndTellsWhichOnesItCouldNotSubscribeTo) {
  const auto none = session_->Subscribe({}, PutInto(some_));
  EXPECT_EQ(none.error().kind, ErrorKind::kInvalid);
  service_.StopListening();
  const auto refused = session_->Subscribe(speed_, PutInto(some_));
  EXPECT_EQ(refused.error().kind, ErrorKind::kCannotConnect);
  EXPECT_EQ(refused.error().text, "subscribing to G1:P1 of C1: cannot connect to " +
                                      service_.path() + ": No such file or directory");
  EXPECT_TRUE(session_->Set({kSpeed.address(), "1"}));
  EXPECT_TRUE(events_.empty());
}

TEST_F(SessionSubscriptionTest, NeedsACallback) {
  EXPECT_EQ(session_->Subscribe(speed_, nullptr).error().kind, ErrorKind::kInvalid);
}

TEST_F(SessionSubscriptionTest, AddsPropertiesOnTheSameConnection) {
  const Subscription first = Subscribe(colour_, all_);
  auto call = Meanwhile([&] { return session_->Subscribe(speed_, PutInto(some_)); });
  EXPECT_EQ(changes_->Receive(), kSubscribeSpeedText);
  Confirm(*changes_);
  const auto second = call.get();
  ASSERT_TRUE(second);
  Answer(*changes_, {kSpeed, kColour});
  EXPECT_THAT(some_.Take(), ElementsAre(kSpeed));
  EXPECT_THAT(all_.Take(), ElementsAre(kColour));
}

TEST_F(SessionSubscriptionTest, NeedsNothingMoreForSomeOnceAllAreSubscribedTo) {
  const Subscription everything = SubscribeAll(all_);
  const auto some = session_->Subscribe(speed_, PutInto(some_));
  ASSERT_TRUE(some);
  Answer(*changes_, {kColour, kSpeed});
  EXPECT_THAT(some_.Take(), ElementsAre(kSpeed));
  EXPECT_THAT(all_.Take(), ElementsAre(kColour, kSpeed));
}

TEST_F(SessionSubscriptionTest, MissesNothingWhileAllFollowsSome) {
  const Subscription some = Subscribe(speed_, some_);
  test::PlayedConnection former = std::move(*changes_);
  auto call = Meanwhile([&] { return session_->SubscribeAll(PutInto(all_)); });
  changes_.emplace(service_.Accept());
  EXPECT_EQ(changes_->Receive(), kSubscribeAllText);
  Confirm(*changes_);
  EXPECT_EQ(former.Receive(),
            R"({"PropertyGetRequests": [{"Component": "none","GUID": "none:none"}]})");
  Answer(former, {kSpeed});
  Confirm(former);
  const auto all = call.get();
  ASSERT_TRUE(all);
  EXPECT_EQ(former.Receive(), "");
  EXPECT_THAT(some_.Take(), ElementsAre(kSpeed));
  Answer(*changes_, {kColour});
  EXPECT_THAT(all_.Take(), ElementsAre(kSpeed));
  EXPECT_THAT(all_.Take(), ElementsAre(kColour));
}

TEST_F(SessionSubscriptionTest, ClosesTheConnectionWithTheLastSubscriptionAndOpensItAnew) {
  Subscription first = Subscribe(speed_, some_);
  {
    auto call = Meanwhile([&] { return session_->Subscribe(colour_, PutInto(some_)); });
    changes_->Receive();
    Confirm(*changes_);
    Subscription second = std::move(*call.get());
    first.End();
  }
  EXPECT_EQ(changes_->Receive(), "");
  const Subscription third = Subscribe(speed_, some_);
  Answer(*changes_, {kSpeed});
  EXPECT_THAT(some_.Take(), ElementsAre(kSpeed));
  EXPECT_TRUE(events_.empty());
}

TEST_F(SessionSubscriptionTest, TellsNoMoreOfWhatHasEnded) {
  Subscription first = Subscribe(speed_, some_);
  auto call = Meanwhile([&] { return session_->Subscribe(speed_, PutInto(all_)); });
  changes_->Receive();
  Confirm(*changes_);
  const auto second = call.get();
  first.End();
  Answer(*changes_, {kSpeed});
  EXPECT_THAT(all_.Take(), ElementsAre(kSpeed));
  EXPECT_TRUE(some_.empty());
}

TEST_F(SessionSubscriptionTest, GivesUpWhenNobodyConfirms) {
  auto call = Meanwhile([&] {
    return session_->SubscribeAll(PutInto(all_), Deadline::After(std::chrono::milliseconds(1)));
  });
  const auto refused = call.get();
  ASSERT_FALSE(refused);
  EXPECT_EQ(refused.error().kind, ErrorKind::kTimeout);
  EXPECT_TRUE(events_.empty());
}

TEST_F(SessionSubscriptionTest, EndsWithTheLossOfItsConnectionToo) {
  const Subscription subscription = SubscribeAll(all_);
  changes_->End();
  EXPECT_EQ(TakeLost().text, "connection lost: the service ended it");
}

TEST_F(SessionSubscriptionTest, LetsACallbackAsk) {
  Box<Property> answers;
  auto call = Meanwhile([&] {
    return session_->SubscribeAll([&](std::span<const Property> properties) {
      answers.Put(session_->Get(properties[0].address()).value());
    });
  });
  const Subscription subscription = Confirmed(std::move(call));
  Answer(*changes_, {kSpeed});
  requests_->Receive();
  Answer(*requests_, {WithValue(kSpeed, "asked for")});
  EXPECT_EQ(answers.Take().value, "asked for");
}

TEST_F(SessionSubscriptionTest, LetsACallbackSubscribeAndUnsubscribe) {
  Subscription first;
  Subscription second;
  Box<bool> go_on;
  Box<bool> done;
  auto call = Meanwhile([&] {
    return session_->Subscribe(speed_, [&](std::span<const Property>) {
      go_on.Take();
      second = std::move(*session_->Subscribe(colour_, PutInto(some_)));
      first.End();
      done.Put(true);
    });
  });
  first = Confirmed(std::move(call));
  go_on.Put(true);
  Answer(*changes_, {kSpeed});
  changes_->Receive();
  Confirm(*changes_);
  EXPECT_TRUE(done.Take());
  Answer(*changes_, {kSpeed, kColour});
  EXPECT_THAT(some_.Take(), ElementsAre(kColour));
}

TEST_F(SessionSubscriptionTest, DoesNotCallWhatTheCallbackBeforeHasEnded) {
  Subscription second;
  Box<bool> go_on;
  auto call = Meanwhile([&] {
    return session_->Subscribe(speed_, [&](std::span<const Property>) {
      go_on.Take();
      second.End();
    });
  });
  const Subscription first = Confirmed(std::move(call));
  const auto subscribe = [&](Box<Changes>& changes) {
    auto next = Meanwhile([&] { return session_->Subscribe(speed_, PutInto(changes)); });
    changes_->Receive();
    Confirm(*changes_);
    return std::move(*next.get());
  };
  second = subscribe(some_);
  const Subscription third = subscribe(all_);
  go_on.Put(true);
  Answer(*changes_, {kSpeed});
  EXPECT_THAT(all_.Take(), ElementsAre(kSpeed));
  EXPECT_TRUE(some_.empty());
}

TEST_F(SessionSubscriptionTest, WaitsForTheCallbackOfASubscriptionThatEnds) {
  Box<bool> begun;
  Box<bool> go_on;
  std::atomic<bool> over{false};
  auto call = Meanwhile([&] {
    return session_->SubscribeAll([&](std::span<const Property>) {
      begun.Put(true);
      go_on.Take();
      over = true;
    });
  });
  Subscription subscription = Confirmed(std::move(call));
  Answer(*changes_, {kSpeed});
  begun.Take();
  auto ended = Meanwhile([&] {
    subscription.End();
    return over.load();
  });
  EXPECT_EQ(changes_->Receive(), "") << "the connection goes first";
  go_on.Put(true);
  EXPECT_TRUE(ended.get());
}

TEST_F(SessionSubscriptionTest, FailsWhileItsCallbackSubscribes) {
  Box<bool> begun;
  Subscription inner;
  auto call = Meanwhile([&] {
    return session_->SubscribeAll([&](std::span<const Property>) {
      begun.Put(true);
      inner = std::move(*session_->Subscribe(speed_, PutInto(some_), Deadline::Never()));
    });
  });
  changes_.emplace(service_.Accept());
  changes_->Receive();
  Answer(*changes_, {kSpeed});
  begun.Take();
  changes_->End();
  changes_.emplace(service_.Accept());
  EXPECT_EQ(changes_->Receive(), kSubscribeSpeedText);
  Confirm(*changes_);
  EXPECT_EQ(call.get().error().kind, ErrorKind::kConnectionLost);
  Answer(*changes_, {kSpeed});
  EXPECT_THAT(some_.Take(), ElementsAre(kSpeed));
}

TEST_F(SessionSubscriptionTest, MayOutliveItsSession) {
  Subscription subscription = SubscribeAll(all_);
  session_.reset();
  subscription.End();
}

}  // namespace
}  // namespace valmere::test
