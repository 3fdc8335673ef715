#include "store/engine/subscriber_list.h"

#include <gtest/gtest.h>

#include <array>
#include <memory>
#include <new>
#include <set>
#include <string>
#include <vector>

#include "tests/support/allocations.h"
#include "tests/support/scripted_connection.h"

namespace valmere::test {
namespace {

using Keys = std::set<std::string, std::less<>>;

std::shared_ptr<ClientConnection> MakeClient() {
  return std::make_shared<ClientConnection>(std::make_shared<ScriptedConnection>());
}

Subscriber& Add(SubscriberList& list, const std::shared_ptr<ClientConnection>& client,
                Keys keys = {}) REQUIRES(list.lock) {
  Subscriber& subscriber = list.Add(client, keys);
  EXPECT_TRUE(keys.empty());
  return subscriber;
}

TEST(SubscriberList, FindsNoClientAtFirst) {
  SubscriberList list;
  const ScopedLock hold(list.lock);
  EXPECT_EQ(nullptr, list.Find(*MakeClient()));
  EXPECT_EQ(0u, list.size());
}

TEST(SubscriberList, KeepsTheKeysThatAClientNamed) {
  SubscriberList list;
  const auto client = MakeClient();
  const ScopedLock hold(list.lock);
  Add(list, client, {"C:G:P", "C:G:"});
  ASSERT_NE(nullptr, list.Find(*client));
  EXPECT_EQ(client, list.Find(*client)->connection);
  EXPECT_EQ((Keys{"C:G:P", "C:G:"}), list.Find(*client)->keys);
}

TEST(SubscriberList, RegistersAClientOnce) {
  SubscriberList list;
  const auto client = MakeClient();
  const ScopedLock hold(list.lock);
  Subscriber& first = Add(list, client);
  Subscriber& second = Add(list, client);
  EXPECT_EQ(&first, &second);
  EXPECT_EQ(1u, list.size());
}

TEST(SubscriberList, AddsOnlyTheAddressesThatAreNew) {
  SubscriberList list;
  const auto client = MakeClient();
  const ScopedLock hold(list.lock);
  Add(list, client, {"C:G:1"});
  Add(list, client, {"C:G:1", "C:G:2", "D:G:1"});
  EXPECT_EQ((Keys{"C:G:1", "C:G:2", "D:G:1"}), list.Find(*client)->keys);
}

TEST(SubscriberList, KeepsTheKeysWhenAClientThenSubscribesToAll) {
  SubscriberList list;
  const auto client = MakeClient();
  const ScopedLock hold(list.lock);
  Add(list, client, {"C:G:1"});
  Add(list, client);
  EXPECT_EQ((Keys{"C:G:1"}), list.Find(*client)->keys);
}

TEST(SubscriberList, HasNoKeyForASubscriptionToAll) {
  SubscriberList list;
  const auto client = MakeClient();
  const ScopedLock hold(list.lock);
  EXPECT_TRUE(Add(list, client).keys.empty());
}

TEST(SubscriberList, RemovesOneClientAndKeepsTheOthers) {
  SubscriberList list;
  const auto first = MakeClient();
  const auto second = MakeClient();
  const auto third = MakeClient();
  const ScopedLock hold(list.lock);
  for (const auto& client : {first, second, third})
    Add(list, client);
  const auto removed = list.Remove(*second);
  ASSERT_NE(nullptr, removed);
  EXPECT_EQ(second, removed->connection);
  EXPECT_EQ(nullptr, list.Find(*second));
  EXPECT_EQ(first, list.Find(*first)->connection);
  EXPECT_EQ(third, list.Find(*third)->connection);
  EXPECT_EQ(2u, list.size());
}

TEST(SubscriberList, RemovesAClientThatIsNotThereToNoEffect) {
  SubscriberList list;
  const auto client = MakeClient();
  const ScopedLock hold(list.lock);
  Add(list, client);
  EXPECT_EQ(nullptr, list.Remove(*MakeClient()));
  EXPECT_EQ(1u, list.size());
  EXPECT_NE(nullptr, list.Remove(*client));
  EXPECT_EQ(nullptr, list.Remove(*client));
  EXPECT_EQ(0u, list.size());
}

TEST(SubscriberList, WantsWhatAnyClientNamedAndEverythingForASubscriberToAll) {
  SubscriberList list;
  EXPECT_FALSE(list.Any());
  const auto client = MakeClient();
  const auto to_all = MakeClient();
  const ScopedLock hold(list.lock);
  EXPECT_FALSE(list.Wants("C:G:1"));
  Add(list, client, {"C:G:1"});
  EXPECT_TRUE(list.Any());
  EXPECT_TRUE(list.Wants("C:G:1"));
  EXPECT_FALSE(list.Wants("C:G:2"));
  Add(list, to_all);
  EXPECT_TRUE(list.Wants("C:G:2"));
  list.Remove(*to_all);
  EXPECT_FALSE(list.Wants("C:G:2"));
  list.Remove(*client);
  EXPECT_FALSE(list.Any());
}

TEST(SubscriberList, KeepsThoseThatAVisitorWantsInTheirOrder) {
  SubscriberList list;
  std::array<std::shared_ptr<ClientConnection>, 5> clients;
  const ScopedLock hold(list.lock);
  for (auto& client : clients) {
    client = MakeClient();
    Add(list, client);
  }
  std::vector<ClientConnection*> visited;
  const auto removed = list.KeepIf([&](Subscriber& subscriber) {
    visited.push_back(subscriber.connection.get());
    return subscriber.connection != clients[0] && subscriber.connection != clients[3];
  });
  EXPECT_EQ((std::vector{clients[0].get(), clients[1].get(), clients[2].get(), clients[3].get(),
                         clients[4].get()}),
            visited);
  EXPECT_EQ(2u, removed.size());
  EXPECT_EQ(3u, list.size());
  EXPECT_EQ(nullptr, list.Find(*clients[0]));
  EXPECT_EQ(nullptr, list.Find(*clients[3]));
  visited.clear();
  EXPECT_TRUE(list.Any());
  EXPECT_TRUE(list.KeepIf([&](Subscriber& subscriber) {
                    visited.push_back(subscriber.connection.get());
                    return true;
                  })
                  .empty());
  EXPECT_EQ((std::vector{clients[1].get(), clients[2].get(), clients[4].get()}), visited);
  EXPECT_EQ(3u, list.KeepIf([](Subscriber&) { return false; }).size());
  EXPECT_EQ(0u, list.size());
  EXPECT_FALSE(list.Any());
}

TEST(SubscriberList, LosesNoSubscriberWhenAVisitorThrows) {
  SubscriberList list;
  const auto first = MakeClient(), second = MakeClient(), third = MakeClient();
  const ScopedLock hold(list.lock);
  for (const auto& client : {first, second, third})
    Add(list, client);
  int visits = 0;
  EXPECT_THROW(static_cast<void>(list.KeepIf([&](Subscriber&) {
                 if (++visits == 3) throw std::bad_alloc();
                 return visits != 1;
               })),
               std::bad_alloc);
  EXPECT_EQ(3u, list.size());
  for (const auto& client : {first, second, third}) {
    EXPECT_EQ(client, list.Find(*client)->connection);
    EXPECT_NE(nullptr, list.Remove(*client));
  }
}

// An entry that had lost its keys would be a subscription to all.
TEST(SubscriberList, RegistersAClientWithAllItsKeysOrNotAtAll) {
  SubscriberList list;
  const auto client = MakeClient();
  const Keys named{"C:G:" + std::string(100, 'P'), "C:H:" + std::string(100, 'P')};
  Keys keys = named;
  const ScopedLock hold(list.lock);
  FailEachAllocation([&]() NO_THREAD_SAFETY_ANALYSIS { list.Add(client, keys); },
                     [&]() NO_THREAD_SAFETY_ANALYSIS {
                       EXPECT_EQ(named, keys);
                       EXPECT_EQ(0u, list.size());
                       EXPECT_EQ(nullptr, list.Find(*client));
                       EXPECT_FALSE(list.Any());
                     });
  EXPECT_EQ(named, list.Find(*client)->keys);
  EXPECT_NE(nullptr, list.Remove(*client));
  EXPECT_EQ(0u, list.size());
}

TEST(SubscriberList, AddsManyKeysStepByStepWithoutMemory) {
  constexpr std::size_t kKeys = 1000;
  SubscriberList list;
  const auto client = MakeClient();
  Keys keys;
  for (std::size_t i = 0; i < kKeys; ++i)
    keys.insert(std::to_string(i));
  const ScopedLock hold(list.lock);
  Add(list, client, {"1", "a"});
  std::size_t steps = 0;
  {
    const LimitedAllocations none(0);
    for (; !keys.empty(); ++steps)
      list.Add(client, keys);
  }
  EXPECT_EQ((kKeys + SubscriberList::kStep - 1) / SubscriberList::kStep, steps);
  EXPECT_EQ(kKeys + 1, list.Find(*client)->keys.size());
  EXPECT_TRUE(list.Find(*client)->keys.contains("999"));
}

TEST(SubscriberList, GivesAllItsKeysAtOnceToOneThatSubscribedToAll) {
  SubscriberList list;
  const auto client = MakeClient();
  Keys keys;
  for (std::size_t i = 0; i < 2 * SubscriberList::kStep; ++i)
    keys.insert(std::to_string(i));
  const Keys named = keys;
  const ScopedLock hold(list.lock);
  Add(list, client);
  EXPECT_EQ(named, list.Add(client, keys).keys) << "at no time has it a part of them";
}

TEST(SubscriberList, LetsTheConnectionGoWithTheEntry) {
  SubscriberList list;
  const auto client = MakeClient();
  const ScopedLock hold(list.lock);
  Add(list, client);
  EXPECT_EQ(2, client.use_count());
  list.Remove(*client);
  EXPECT_EQ(1, client.use_count());
}

}  // namespace
}  // namespace valmere::test
