#include "store/property/property.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "store/property/bool_property.h"
#include "store/property/string_property.h"
#include "store/property/trigger_property.h"
#include "store/property/uint_property.h"
#include "tests/store/engine/start_gate.h"
#include "tests/store/property/change_counter.h"
#include "tests/support/test_thread.h"

namespace valmere::test {
namespace {

using ::testing::ElementsAre;

using Self = const std::shared_ptr<Property>&;

std::shared_ptr<UIntProperty> MakeProperty() {
  return UIntProperty::Make(1, "GUID", "Name", "GROUP", "Group");
}

// Tells what an announcement does when the last owner has let go: the destructor is the one place
// left from which it can be called.
class AnnouncesAtItsEnd : public Property {
 public:
  explicit AnnouncesAtItsEnd(std::string& error)
      : Property(PropertyIdentity("", "", "", "")), error_(error) {}
  ~AnnouncesAtItsEnd() override {
    try {
      Property::NotifyChanged();
    } catch (const std::bad_weak_ptr&) {
      error_ = "bad weak pointer";
    }
  }
  std::string ToString() const override { return "text"; }
  void SetFromString(std::string) override {}
  void SetFromStringSilently(std::string) override {}

 private:
  std::string& error_;
};

TEST(Property, HasTheIdentityItWasMadeWith) {
  const auto property = MakeProperty();
  EXPECT_EQ(property->guid(), "GUID");
  EXPECT_EQ(property->name(), "Name");
  EXPECT_EQ(property->group_guid(), "GROUP");
  EXPECT_EQ(property->group_name(), "Group");
  EXPECT_EQ(property->key().Text(), "GROUP:GUID");
}

TEST(Property, IsRestoredAndSettableUnlessItsOwnerSaysOtherwise) {
  const auto property = MakeProperty();
  EXPECT_EQ(property->attribute(), 10U);
  EXPECT_EQ(property->attribute(), Property::kRestored | Property::kSettable);
  property->set_attribute(Property::kSettable);
  EXPECT_EQ(property->attribute(), 8U);
}

TEST(Property, IsCountedWhileItLives) {
  const std::uint32_t before = LiveProperties::Live();
  auto number = MakeProperty();
  auto text = StringProperty::Make("", "", "", "", "");
  auto flag = BoolProperty::Make(false, "", "", "", "");
  auto command = TriggerProperty::Make(false, "", "", "", "");
  EXPECT_EQ(LiveProperties::Live(), before + 4);
  const std::weak_ptr<Property> observer = number;
  number.reset();
  EXPECT_EQ(LiveProperties::Live(), before + 3);
  text.reset();
  flag.reset();
  command.reset();
  EXPECT_EQ(LiveProperties::Live(), before);
}

TEST(Property, CallsListenersInTheOrderInWhichTheyWereAdded) {
  const auto property = MakeProperty();
  std::vector<int> calls;
  for (int i = 1; i <= 3; ++i)
    property->AddListener([&calls, i](Self) { calls.push_back(i); });
  property->NotifyChanged();
  EXPECT_THAT(calls, ElementsAre(1, 2, 3));
}

TEST(Property, HandsItselfToItsListenersWithTheNewValue) {
  const auto property = MakeProperty();
  std::string seen;
  property->AddListener([&](Self self) {
    EXPECT_EQ(self, property);
    seen = self->ToString();
  });
  property->SetValue(7);
  EXPECT_EQ(seen, "7");
}

TEST(Property, AnnouncesAnotherPropertyWithinTheListenerThatSetsIt) {
  const auto first = MakeProperty();
  const auto second = MakeProperty();
  std::vector<std::string> events;
  first->AddListener([&](Self) {
    events.emplace_back("before");
    second->SetValue(2);
    events.emplace_back("after");
  });
  second->AddListener([&](Self) { events.emplace_back("second"); });
  first->SetValue(2);
  EXPECT_THAT(events, ElementsAre("before", "second", "after"));
}

TEST(Property, CallsKeyedCallbacksAfterTheListenersInAscendingOrderOfKey) {
  const auto property = MakeProperty();
  std::vector<std::uint32_t> calls;
  for (const std::uint32_t key : {7U, 0xFFFFFFFFU, 3U})
    property->SetKeyedCallback(key, [&calls, key](Self) { calls.push_back(key); });
  property->AddListener([&](Self) { calls.push_back(1000); });
  property->NotifyChanged();
  EXPECT_THAT(calls, ElementsAre(1000, 3, 7, 0xFFFFFFFFU));
}

TEST(Property, HandsItselfToItsKeyedCallbacks) {
  const auto property = MakeProperty();
  std::shared_ptr<Property> seen;
  property->SetKeyedCallback(1, [&](Self self) { seen = self; });
  property->NotifyChanged();
  EXPECT_EQ(seen, property);
}

TEST(Property, KeepsOneCallbackPerKey) {
  const auto property = MakeProperty();
  std::vector<int> calls;
  property->SetKeyedCallback(1, [&](Self) { calls.push_back(1); });
  property->SetKeyedCallback(1, [&](Self) { calls.push_back(2); });
  property->NotifyChanged();
  EXPECT_THAT(calls, ElementsAre(2));
}

TEST(Property, CallsARemovedCallbackNoMore) {
  const auto property = MakeProperty();
  std::vector<int> calls;
  property->RemoveKeyedCallback(1);
  property->SetKeyedCallback(1, [&](Self) { calls.push_back(1); });
  property->SetKeyedCallback(2, [&](Self) { calls.push_back(2); });
  property->RemoveKeyedCallback(1);
  property->RemoveKeyedCallback(3);
  property->NotifyChanged();
  EXPECT_THAT(calls, ElementsAre(2));
}

TEST(Property, LetsAKeyedCallbackChangeTheSetThatItIsCalledFrom) {
  const auto property = MakeProperty();
  std::vector<int> calls;
  property->SetKeyedCallback(1, [&, kept = std::make_shared<int>(1)](Self self) {
    self->RemoveKeyedCallback(1);
    self->RemoveKeyedCallback(2);
    self->SetKeyedCallback(3, [&](Self) { calls.push_back(3); });
    calls.push_back(*kept);
  });
  property->SetKeyedCallback(2, [&](Self) { calls.push_back(2); });
  property->NotifyChanged();
  EXPECT_THAT(calls, ElementsAre(1, 3));
}

TEST(Property, HoldsItsLockWhileItCallsKeyedCallbacks) {
  const auto property = MakeProperty();
  std::atomic<bool> removed{false};
  std::atomic<bool> was_removed_during_call{false};
  platform::Semaphore called;
  std::unique_ptr<TestThread> remover;
  property->SetKeyedCallback(1, [&](Self) {
    remover = std::make_unique<TestThread>([&] {
      called.Release();
      property->RemoveKeyedCallback(1);
      removed = true;
    });
    called.Wait();
    // Room for the other thread to go wrong in; it can't get on while this callback runs.
    platform::Semaphore never;
    never.WaitUntil(platform::MonotonicNow() + 20 * platform::kTicksPerMillisecond);
    was_removed_during_call = removed.load();
  });
  property->NotifyChanged();
  remover->Join();
  EXPECT_FALSE(was_removed_during_call);
  EXPECT_TRUE(removed);
}

TEST(Property, HoldsNoLockWhileItCallsListeners) {
  const auto property = MakeProperty();
  property->SetKeyedCallback(1, [](Self) {});
  bool other_thread_came_through = false;
  property->AddListener([&](Self) {
    TestThread other([&] {
      property->AddListener([](Self) {});
      property->SetKeyedCallback(2, [](Self) {});
      other_thread_came_through = true;
    });
    other.Join();
  });
  property->NotifyChanged();
  EXPECT_TRUE(other_thread_came_through);
}

TEST(Property, FailsOnAnEmptyListenerAfterCallingThoseBeforeIt) {
  const auto property = MakeProperty();
  const ChangeCounter before(*property);
  property->AddListener(nullptr);
  const ChangeCounter after(*property);
  EXPECT_THROW(property->NotifyChanged(), std::bad_function_call);
  EXPECT_EQ(before.count(), 1);
  EXPECT_EQ(after.count(), 0);
}

TEST(Property, FailsOnAnEmptyKeyedCallbackAndLetsGoOfItsLock) {
  const auto property = MakeProperty();
  property->SetKeyedCallback(1, nullptr);
  EXPECT_THROW(property->NotifyChanged(), std::bad_function_call);
  TestThread([&] { property->RemoveKeyedCallback(1); }).Join();
  EXPECT_NO_THROW(property->NotifyChanged());
}

TEST(Property, CantBeAnnouncedOnceItsLastOwnerHasGone) {
  std::string error;
  auto property = std::make_shared<AnnouncesAtItsEnd>(error);
  property->AddListener([](Self) {});
  property.reset();
  EXPECT_EQ(error, "bad weak pointer");

  error.clear();
  property = std::make_shared<AnnouncesAtItsEnd>(error);
  property->SetKeyedCallback(1, [](Self) {});
  property.reset();
  EXPECT_EQ(error, "bad weak pointer");
}

TEST(Property, NeedsNoOwnerWhenNothingListens) {
  std::string error;
  std::make_shared<AnnouncesAtItsEnd>(error).reset();
  EXPECT_EQ(error, "");
}

TEST(Property, GivesItsTextAsItsValueString) {
  std::string error;
  EXPECT_EQ(std::make_shared<AnnouncesAtItsEnd>(error)->GetValueString(), "text");
}

TEST(Property, LetsItsListenersGoWithItself) {
  const auto held = std::make_shared<int>(0);
  auto property = MakeProperty();
  property->AddListener([held](Self) {});
  property->SetKeyedCallback(1, [held](Self) {});
  EXPECT_EQ(held.use_count(), 3);
  property.reset();
  EXPECT_EQ(held.use_count(), 1);
}

TEST(Property, TakesListenersWhileItIsAnnounced) {
  constexpr int kListeners = 200;
  const auto property = MakeProperty();
  std::atomic<int> calls{0};
  std::atomic<bool> all_added{false};
  TestThread announcer([&] {
    while (!all_added)
      property->NotifyChanged();
  });
  for (int i = 0; i < kListeners; ++i)
    property->AddListener([&](Self) { ++calls; });
  all_added = true;
  announcer.Join();
  calls = 0;
  property->NotifyChanged();
  EXPECT_EQ(calls, kListeners);
}

TEST(Property, TakesKeyedCallbacksOfSeveralThreadsAtOnce) {
  constexpr int kThreads = 2;
  constexpr int kRounds = 100;
  for (int round = 0; round < kRounds; ++round) {
    const auto property = MakeProperty();
    std::atomic<int> calls{0};
    {
      StartGate gate(kThreads);
      std::vector<TestThread> threads;
      for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([&, key = static_cast<std::uint32_t>(i)] {
          gate.Pass();
          property->SetKeyedCallback(key, [&](Self) { ++calls; });
          property->NotifyChanged();
        });
      }
    }
    calls = 0;
    property->NotifyChanged();
    ASSERT_EQ(calls, kThreads);
  }
}

}  // namespace
}  // namespace valmere::test
