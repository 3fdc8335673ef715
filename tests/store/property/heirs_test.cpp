// Which client owns a property after its owner has gone.
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string_view>
#include <utility>
#include <vector>

#include "net/client_connection.h"
#include "store/property/component_registry.h"
#include "tests/store/property/published_property.h"
#include "tests/support/allocations.h"
#include "tests/support/test_thread.h"

namespace valmere::test {
namespace {

TEST(Heirs, GivesWhatAnOwnerLeavesToItsLastHeirWithoutMemory) {
  ComponentRegistry registry(AnyCanOwn);
  const auto owner = MakeConnection(), first = MakeConnection(), last = MakeConnection();
  const auto property = MakeOfComponent("c", "g", "a", owner);
  registry.Add(property);
  registry.Add(MakeOfComponent("c", "g", "b", owner));
  EXPECT_FALSE(registry.HasHeirs());
  EXPECT_TRUE(registry.AddHeir(property, *owner, last));
  EXPECT_TRUE(registry.AddHeir(property, *owner, first));
  EXPECT_TRUE(registry.AddHeir(property, *owner, last));
  EXPECT_FALSE(registry.AddHeir(property, *first, last)) << "not the owner";
  EXPECT_TRUE(registry.HasHeirs());
  ComponentRegistry::Removed removed;
  ComponentRegistry::Place place;
  {
    const LimitedAllocations none(0);
    registry.RemoveOwnedBy(*owner, place, removed);
  }
  EXPECT_EQ(removed.size(), 1u);
  EXPECT_EQ(property->connection(), last);
  EXPECT_EQ(registry.TakeOver(property, *last), first);
  EXPECT_FALSE(registry.HasHeirs());
  EXPECT_EQ(registry.TakeOver(property, *first), first) << "no heir is left to take it";
  EXPECT_EQ(last.use_count(), 1);
}

TEST(Heirs, ForgetsHeirsThatCantOwnAnyMore) {
  static const ClientConnection* gone;
  ComponentRegistry registry([](const ClientConnection& client) { return &client != gone; });
  const auto owner = MakeConnection(), first = MakeConnection(), second = MakeConnection();
  const auto property = MakeOfComponent("c", "g", "a", owner);
  registry.Add(property);
  EXPECT_TRUE(registry.AddHeir(property, *owner, first));
  gone = first.get();
  EXPECT_TRUE(registry.AddHeir(property, *owner, second));
  EXPECT_EQ(first.use_count(), 1);
  gone = second.get();
  EXPECT_EQ(registry.TakeOver(property, *owner), owner);
  EXPECT_EQ(second.use_count(), 1);
  EXPECT_FALSE(registry.HasHeirs());
}

// A client's last handle is given back where others can still ask the registry.
TEST(Heirs, LetsGoOfNoConnectionUnderItsLock) {
  ComponentRegistry registry([](const ClientConnection& client) { return !client.ended(); });
  std::vector<TestThread> askers;  // outlive the calls that they may have to wait for
  int gone = 0;
  const auto make = [&] {
    return MakeConnectionThatTells([&] {
      const auto answered = std::make_shared<std::atomic<bool>>(false);
      askers.emplace_back([&, answered] { *answered = registry.size() > 0; });
      EXPECT_TRUE(Eventually([&] { return answered->load(); }));
      ++gone;
    });
  };
  const auto leave = [](std::shared_ptr<ClientConnection> client) { client->Close(); };
  auto owner = make();
  const auto property = MakeOfComponent("c", "g", "a", owner);
  registry.Add(property);
  auto first = make(), second = make(), third = make(), last = make();
  EXPECT_TRUE(registry.AddHeir(property, *owner, first));
  leave(std::move(first));
  EXPECT_TRUE(registry.AddHeir(property, *owner, second)) << "the first is forgotten";
  EXPECT_EQ(gone, 1);
  EXPECT_TRUE(registry.AddHeir(property, *owner, third));
  EXPECT_TRUE(registry.AddHeir(property, *owner, last));
  const ClientConnection& heir = *third;
  leave(std::move(last));
  third.reset();
  const ClientConnection& leaving = *owner;
  owner.reset();
  EXPECT_EQ(registry.TakeOver(property, leaving).get(), &heir)
      << "the owner and the last have left";
  EXPECT_EQ(gone, 3);
  leave(std::move(second));
  ComponentRegistry::Place place;
  ComponentRegistry::Removed removed;
  registry.Add(MakeOfComponent("c", "g", "b"));
  registry.RemoveOwnedBy(heir, place, removed);
  EXPECT_EQ(removed.size(), 1u);
  EXPECT_EQ(gone, 4);
}

TEST(Heirs, HasTheHeirsThatItHadWhenThereIsNoMemoryForOneMore) {
  ComponentRegistry registry(AnyCanOwn);
  const auto owner = MakeConnection(), first = MakeConnection(), second = MakeConnection();
  const auto property = MakeOfComponent("c", "g", "a", owner);
  registry.Add(property);
  FailEachAllocation([&] { registry.AddHeir(property, *owner, first); },
                     [&] { EXPECT_FALSE(registry.HasHeirs()); });
  FailEachAllocation([&] { registry.AddHeir(property, *owner, second); },
                     [&] { EXPECT_TRUE(registry.HasHeirs()); });
  EXPECT_EQ(registry.TakeOver(property, *owner), second);
  EXPECT_EQ(registry.TakeOver(property, *second), first);
}

}  // namespace
}  // namespace valmere::test
