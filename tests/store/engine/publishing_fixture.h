// A publisher that the test passes, over properties and clients of its own.
#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <functional>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <vector>

#include "store/engine/change_publisher.h"
#include "store/engine/observation.h"
#include "store/engine/pending_updates.h"
#include "store/engine/property_catalog.h"
#include "store/engine/reply_memory.h"
#include "store/engine/subscriber_list.h"
#include "store/engine/update_entries.h"
#include "store/property/component_property.h"
#include "store/property/string_property.h"
#include "store/property/uint_property.h"
#include "tests/store/engine/engine_fixture.h"
#include "tests/support/stream_fakes.h"
#include "tests/support/test_thread.h"

namespace valmere::test {

class Publishing : public ::testing::Test {
 protected:
  void Subscribe(const Client& subscriber, std::vector<PropertyAddress> addresses = {}) {
    Subscriber::Keys keys = KeysOf(addresses);
    const ScopedLock hold(subscribers->lock);
    subscribers->Add(subscriber.connection, keys);
  }
  std::size_t CountSubscribers() {
    const ScopedLock hold(subscribers->lock);
    return subscribers->size();
  }
  UpdateEntries::Keys RegisteredKeys(const Client& subscriber) {
    const ScopedLock hold(subscribers->lock);
    return subscribers->Find(*subscriber.connection)->keys;
  }
  // One that passes on a thread of its own.
  std::shared_ptr<ChangePublisher> MakeRunning() {
    return std::make_shared<ChangePublisher>(own, period, subscribers, pending, reply_memory,
                                             observation, log);
  }
  // Whether all properties have been observed since the last call.
  bool ObservedAll() {
    const bool observed = sentinel->observed();
    sentinel = AddSentinel();
    return observed;
  }
  // A property that is observed with all others alone.
  std::shared_ptr<Property> AddSentinel() {
    auto added = Own("sentinel " + std::to_string(catalog->size()));
    EXPECT_TRUE(catalog->AddOwn(added));
    return added;
  }
  // Runs to the end of a 500 ms period that has just begun.
  void EndPeriod() {
    publisher.Pass();
    publisher.Pass();
  }
  static std::shared_ptr<Property> Own(std::string_view guid, std::string_view value = "V") {
    return StringProperty::Make(value, guid, "Name", "G", "Group");
  }
  static std::shared_ptr<Property> Published(std::string_view guid, std::string_view value = "V") {
    return ComponentProperty::Make(value, guid, "Name", "G", "Group", "C", "Client", nullptr);
  }
  static EntryText OwnEntry(std::string_view guid, std::string_view value = "V") {
    return {.component = "OWN", .component_string = "Valmere", .guid = guid, .value = value};
  }
  // Whether another thread could take the subscriber list's lock.
  bool ListIsFree() NO_THREAD_SAFETY_ANALYSIS {
    bool entered = false;
    TestThread other([&]() NO_THREAD_SAFETY_ANALYSIS {
      entered = subscribers->lock.TryEnter();
      if (entered) subscribers->lock.Leave();
    });
    other.Join();
    return entered;
  }
  // How many passes it takes until the client is written to; at most `most`.
  int PassesUntilWritten(Client& receiver, int most) {
    for (int pass = 1; pass <= most; ++pass) {
      pending->PushChange(property);
      publisher.Pass();
      if (!receiver.TakeTexts().empty()) return pass;
    }
    return 0;
  }

  const std::shared_ptr<StringProperty> own =
      StringProperty::Make("Valmere", "OWN", "Valmere", "COMPONENTS", "Components");
  const std::shared_ptr<UIntProperty> period =
      UIntProperty::Make(500, "PERIOD", "Period", "General", "General");
  const std::shared_ptr<SubscriberList> subscribers = std::make_shared<SubscriberList>();
  const std::shared_ptr<CollectingLog> log = std::make_shared<CollectingLog>();
  const std::shared_ptr<PropertyCatalog> catalog = std::make_shared<PropertyCatalog>(own);
  const std::shared_ptr<PendingUpdates> pending = std::make_shared<PendingUpdates>();
  const std::shared_ptr<Observation> observation = Observation::Make(catalog, subscribers, pending);
  std::shared_ptr<Property> sentinel = AddSentinel();
  const std::shared_ptr<ReplyMemory> reply_memory = ReplyMemory::Make();
  ChangePublisher publisher{own, period, subscribers, pending, reply_memory, observation, log};
  const std::shared_ptr<Property> property = Own("P");
  Client client;
};

// Says when its value is read.
class WatchedProperty final : public ComponentProperty {
 public:
  static std::shared_ptr<WatchedProperty> Make() {
    return std::make_shared<WatchedProperty>(
        MakeToken(), "V", PropertyIdentity("W", "Name", "G", "Group", "C", "Client"), nullptr);
  }
  using ComponentProperty::ComponentProperty;
  std::string GetValueString() const override {
    on_read();
    return ComponentProperty::GetValueString();
  }

  std::function<void()> on_read;
};

// Counts how often its value is asked for, and can refuse to give it.
class AskedProperty final : public StringProperty {
 public:
  AskedProperty() : StringProperty(MakeToken(), "V", PropertyIdentity("P", "Name", "G", "Group")) {}
  std::string GetValueString() const override {
    ++asked;
    if (out_of_memory) throw std::bad_alloc();
    return StringProperty::GetValueString();
  }
  mutable int asked = 0;
  bool out_of_memory = false;
};

}  // namespace valmere::test
