// How a client becomes a subscriber, and how it ends to be one.
#include <gtest/gtest.h>

#include "tests/store/engine/engine_fixture.h"

namespace valmere::test {
namespace {

class Subscriptions : public EngineTest {
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

}  // namespace
}  // namespace valmere::test
