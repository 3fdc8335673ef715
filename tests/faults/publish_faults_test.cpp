// A component publishes, changes and withdraws; a subscriber is told. A fault costs an update or a
// session: a session that lives on hears of what comes after the fault.
#include "tests/faults/fault_fixture.h"

namespace valmere::test {
namespace {

class PublishFaults : public FaultTest {
 protected:
  void SetUp() override {
    FaultTest::SetUp();
    Start();
    ASSERT_TRUE(Use());
  }

  static Address Published(std::uint64_t n) {
    return {"component", "group:property " + std::to_string(n)};
  }
  // Waits until a period has come to its end: it is as long as four passes.
  static bool PeriodEnds() {
    const std::uint64_t waits = PublishingWaits();
    return Eventually([&] { return PublishingWaits() >= waits + 6; });
  }
  // Whether the subscriber's session is still served; takes the updates that wait.
  static bool Lives(FaultClient& subscriber) {
    return subscriber.Send(GetText(kOwnComponent)) && Hears(subscriber, ValueText("Valmere"));
  }
  // The subscriber's next updates, until one holds the text; false when its session has ended.
  static bool Hears(FaultClient& subscriber, std::string_view text) {
    for (;;) {
      const auto update = subscriber.Receive();
      if (!update) return false;
      if (Holds(update, text)) return true;
    }
  }
};

TEST_P(PublishFaults, OfAnUpdateCostNoMoreThanThatUpdate) {
  ForEachFault([](std::uint64_t n) {
    const Address address = Published(n);
    FaultClient subscriber;
    FaultClient component;
    subscriber.Send(SubscribeText(address));
    EXPECT_TRUE(Lives(subscriber));
    component.Send(PublishedText(address, "before"));
    EXPECT_TRUE(Hears(subscriber, ValueText("before")));

    OrderedFault ordered(fault(), n, extent());
    component.Send(PublishedText(address, "meanwhile"));
    EXPECT_TRUE(PeriodEnds());
    const bool reached = ordered.End();

    component.Send(PublishedText(address, "after"));
    const std::string get = GetText(address);
    if (Holds(component.Ask(get), ValueText("after"))) {
      EXPECT_TRUE(Hears(subscriber, ValueText("after")));
    } else {
      // The component's session has ended, and its property went with it.
      EXPECT_FALSE(component.Ask(get));
      EXPECT_EQ(FaultClient().Ask(get), NotFoundText(address));
      if (extent() == Extent::kOnce) {
        EXPECT_TRUE(Hears(subscriber, "Property No Longer Available"));
      }
    }
    subscriber.Close();
    component.Close();
    EXPECT_TRUE(Serves(0));
    return reached;
  });
  StopCleanly();
}

TEST_P(PublishFaults, OfASubscriptionAndAPublicationEndTheirSessionsOrNothing) {
  ForEachFault([](std::uint64_t n) {
    const Address address = Published(n);
    OrderedFault ordered(fault(), n, extent());
    FaultClient to_one;
    FaultClient to_all;
    FaultClient component;
    const bool one_sent = to_one.Send(SubscribeText(address));
    const bool all_sent = to_all.Send(R"({"SubscribeAllCurrentAndNewProperties": true})");
    const bool published = component.Send(PublishedText(address, "before"));
    EXPECT_TRUE(PeriodEnds());
    const bool reached = ordered.End();

    // A client that was heard and is still there is a subscriber.
    const bool one_lives = one_sent && Lives(to_one);
    const bool all_lives = all_sent && Lives(to_all);
    if (published && Holds(component.Ask(GetText(address)), ValueText("before"))) {
      component.Send(PublishedText(address, "after"));
      EXPECT_EQ(one_lives, one_lives && Hears(to_one, ValueText("after")));
      EXPECT_EQ(all_lives, all_lives && Hears(to_all, ValueText("after")));
    }
    to_one.Close();
    to_all.Close();
    component.Close();
    EXPECT_TRUE(Serves(0));
    return reached;
  });
  StopCleanly();
}

TEST_P(PublishFaults, OfASetForAnotherComponentLeaveBothSidesInStep) {
  ForEachFault([](std::uint64_t n) {
    const Address address = Published(n);
    FaultClient component;
    component.Send(PublishedText(address, "before"));
    EXPECT_TRUE(Holds(component.Ask(GetText(address)), ValueText("before")));
    FaultClient client;
    OrderedFault ordered(fault(), n, extent());
    const bool sent = client.Send(SetText(address, "wanted"));
    const bool done = sent && client.Ask(GetText(kOwnComponent)).has_value();
    const bool reached = ordered.End();
    if (done) {
      EXPECT_TRUE(Holds(component.Receive(), ValueText("wanted")));
    }
    EXPECT_TRUE(Holds(FaultClient().Ask(GetText(address)), ValueText("before")));
    client.Close();
    component.Close();
    EXPECT_TRUE(Serves(0));
    return reached;
  });
  StopCleanly();
}

INSTANTIATE_TEST_SUITE_P(Every, PublishFaults,
                         EveryFaultOf(Fault::kMemory, Fault::kThread, Fault::kKernelObject),
                         FaultName);

}  // namespace
}  // namespace valmere::test
