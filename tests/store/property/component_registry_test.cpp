#include "store/property/component_registry.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "net/client_connection.h"
#include "tests/store/engine/start_gate.h"
#include "tests/store/property/published_property.h"
#include "tests/support/allocations.h"
#include "tests/support/test_thread.h"

namespace valmere::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

using Handle = ComponentRegistry::Handle;

std::vector<std::string> Keys(const std::vector<Handle>& properties) {
  std::vector<std::string> keys;
  for (const auto& property : properties)
    keys.emplace_back(property->key().Text());
  return keys;
}

// The keys of those that are taken out with the connection.
std::vector<std::string> RemoveOwnedBy(ComponentRegistry& registry,
                                       const ClientConnection& connection) {
  std::vector<std::string> keys;
  ComponentRegistry::Place place;
  bool more = true;
  while (more) {
    ComponentRegistry::Removed removed;
    more = registry.RemoveOwnedBy(connection, place, removed);
    for (const auto& property : removed)
      keys.emplace_back(property->key().Text());
  }
  return keys;
}

std::vector<std::string> GroupOf(const ComponentRegistry& registry, std::string_view group_guid) {
  std::vector<Handle> properties;
  for (std::uint64_t next = 0; registry.ListGroup(group_guid, next, properties);) {
  }
  return Keys(properties);
}

std::vector<std::string> AllOf(const ComponentRegistry& registry) {
  std::vector<Handle> properties;
  for (ComponentRegistry::Place place; registry.ListAll(place, properties);) {
  }
  return Keys(properties);
}

TEST(ComponentRegistry, IsAsItWasWhenThereIsNoMemoryToAdd) {
  ComponentRegistry registry(AnyCanOwn);
  const auto present = MakeOfComponent("c", "g", "b");
  registry.Add(present);
  const auto property = MakeOfComponent("c", "g", "a");
  FailEachAllocation([&] { registry.Add(property); },
                     [&] { EXPECT_EQ(registry.Find("a", "g", "c"), nullptr); });
  EXPECT_EQ(registry.Find("a", "g", "c"), property);
  EXPECT_THAT(GroupOf(registry, "g"), ElementsAre(present->key().Text(), property->key().Text()));
}

TEST(ComponentRegistry, KeepsNoGroupThatThereWasNoMemoryToFill) {
  ComponentRegistry registry(AnyCanOwn);
  const auto property = MakeOfComponent("c", std::string(100, 'g'), "a");
  const std::size_t before = BytesInUse();
  FailEachAllocation([&] { registry.Add(property); }, [&] { EXPECT_EQ(BytesInUse(), before); });
  EXPECT_THAT(AllOf(registry), ElementsAre(property->key().Text()));
}

TEST(ComponentRegistry, FindsWhatWasAdded) {
  ComponentRegistry registry(AnyCanOwn);
  const auto first = MakeOfComponent("c", "g", "a");
  const auto second = MakeOfComponent("d", "g", "a");
  EXPECT_TRUE(registry.Add(first));
  EXPECT_TRUE(registry.Add(second));
  EXPECT_EQ(registry.Find("a", "g", "c"), first);
  EXPECT_EQ(registry.Find("a", "g", "d"), second);
  EXPECT_EQ(registry.Find("c", "g", "a"), nullptr);
  EXPECT_EQ(registry.Find("a", "g", ""), nullptr);
  EXPECT_EQ(registry.Find("", "g", ""), nullptr);
}

TEST(ComponentRegistry, RefusesASecondPropertyOfTheSameKeyAndKeepsTheFirst) {
  ComponentRegistry registry(AnyCanOwn);
  const auto first = MakeOfComponent("c", "g", "a");
  EXPECT_TRUE(registry.Add(first));
  EXPECT_FALSE(registry.Add(MakeOfComponent("c", "g", "a")));
  EXPECT_EQ(registry.Find("a", "g", "c"), first);
  EXPECT_THAT(GroupOf(registry, "g"), ElementsAre("c:g:a"));
}

TEST(ComponentRegistry, ListsAGroupOfAllComponentsInTheOrderOfRegistration) {
  ComponentRegistry registry(AnyCanOwn);
  registry.Add(MakeOfComponent("d", "g", "a"));
  registry.Add(MakeOfComponent("c", "g", "z"));
  registry.Add(MakeOfComponent("d", "h", "a"));
  registry.Add(MakeOfComponent("c", "g", "a"));
  EXPECT_THAT(GroupOf(registry, "g"), ElementsAre("d:g:a", "c:g:z", "c:g:a"));
  EXPECT_THAT(GroupOf(registry, "i"), IsEmpty());
}

TEST(ComponentRegistry, ListsAllByGroupThenByOrderOfRegistration) {
  ComponentRegistry registry(AnyCanOwn);
  registry.Add(MakeOfComponent("a", "h", "1"));
  registry.Add(MakeOfComponent("z", "g", "2"));
  registry.Add(MakeOfComponent("a", "g", "1"));
  registry.Add(MakeOfComponent("a", "h", "0"));
  EXPECT_THAT(AllOf(registry), ElementsAre("z:g:2", "a:g:1", "a:h:1", "a:h:0"));
}

TEST(ComponentRegistry, RemovesAPropertyFromTheLookUpAndFromItsGroup) {
  ComponentRegistry registry(AnyCanOwn);
  const auto a = MakeOfComponent("c", "g", "a");
  registry.Add(a);
  registry.Add(MakeOfComponent("c", "g", "b"));
  EXPECT_EQ(registry.Remove("c", "g", "a"), a);
  EXPECT_EQ(registry.Find("a", "g", "c"), nullptr);
  EXPECT_THAT(GroupOf(registry, "g"), ElementsAre("c:g:b"));
  EXPECT_THAT(AllOf(registry), ElementsAre("c:g:b"));
  EXPECT_EQ(registry.Remove("c", "g", "a"), nullptr);
  EXPECT_EQ(registry.Remove("c", "h", "b"), nullptr);
  EXPECT_EQ(a.use_count(), 1);
}

TEST(ComponentRegistry, ListsAPropertyThatComesBackAsItsGroupsLast) {
  ComponentRegistry registry(AnyCanOwn);
  for (const char* guid : {"a", "b", "c"})
    registry.Add(MakeOfComponent("c", "g", guid));
  EXPECT_TRUE(registry.Add(registry.Remove("c", "g", "b")));
  EXPECT_THAT(GroupOf(registry, "g"), ElementsAre("c:g:a", "c:g:c", "c:g:b"));
}

TEST(ComponentRegistry, TakesAnEmptiedGroupAnew) {
  ComponentRegistry registry(AnyCanOwn);
  registry.Add(MakeOfComponent("c", "g", "a"));
  registry.Remove("c", "g", "a");
  EXPECT_THAT(GroupOf(registry, "g"), IsEmpty());
  EXPECT_TRUE(registry.Add(MakeOfComponent("c", "g", "a")));
  EXPECT_THAT(GroupOf(registry, "g"), ElementsAre("c:g:a"));
}

TEST(ComponentRegistry, TakesAColonWithinATextAsPartOfTheJoinedKey) {
  ComponentRegistry registry(AnyCanOwn);
  const auto property = MakeOfComponent("c", "g:h", "a");
  EXPECT_TRUE(registry.Add(property));
  EXPECT_FALSE(registry.Add(MakeOfComponent("c:g", "h", "a")));
  EXPECT_EQ(registry.Find("h:a", "g", "c"), property);
  EXPECT_EQ(registry.Remove("c:g", "h", "a"), property);
  EXPECT_THAT(GroupOf(registry, "g:h"), IsEmpty());
}

TEST(ComponentRegistry, RemovesWhatWasPublishedLastOnAConnection) {
  ComponentRegistry registry(AnyCanOwn);
  const auto leaving = MakeConnection();
  const auto staying = MakeConnection();
  registry.Add(MakeOfComponent("c", "h", "1", leaving));
  registry.Add(MakeOfComponent("c", "g", "2", leaving));
  registry.Add(MakeOfComponent("d", "g", "1", staying));
  registry.Add(MakeOfComponent("c", "g", "1", leaving));
  const auto came_back = MakeOfComponent("c", "g", "0", leaving);
  registry.Add(came_back);
  came_back->set_connection(staying);

  EXPECT_THAT(RemoveOwnedBy(registry, *leaving), ElementsAre("c:h:1", "c:g:2", "c:g:1"));
  EXPECT_THAT(AllOf(registry), ElementsAre("d:g:1", "c:g:0"));
  EXPECT_EQ(registry.Find("1", "h", "c"), nullptr);
  EXPECT_EQ(leaving.use_count(), 1);
  EXPECT_THAT(RemoveOwnedBy(registry, *leaving), IsEmpty());
}

TEST(ComponentRegistry, LooksAtSoManyInOneStep) {
  constexpr std::size_t kStep = PropertyIndex<ComponentProperty>::kStep;
  ComponentRegistry registry(AnyCanOwn);
  const auto leaving = MakeConnection();
  for (const char* group : {"g", "h", "i"}) {
    for (std::size_t i = 0; i < kStep; ++i)
      registry.Add(MakeOfComponent("c", group, std::to_string(i), leaving));
  }
  ComponentRegistry::Place place;
  const auto step = [&](std::size_t expected) {
    ComponentRegistry::Removed removed;
    const bool more = registry.RemoveOwnedBy(*leaving, place, removed);
    EXPECT_EQ(removed.size(), expected);
    return more;
  };
  EXPECT_TRUE(step(kStep));
  EXPECT_EQ(registry.size(), 2 * kStep);
  registry.Add(MakeOfComponent("c", "a", "before the place", leaving));
  registry.Add(MakeOfComponent("c", "z", "behind it", leaving));
  EXPECT_TRUE(step(kStep));
  EXPECT_TRUE(step(kStep));
  EXPECT_FALSE(step(1));
  EXPECT_THAT(AllOf(registry), ElementsAre("c:a:before the place"));
}

TEST(ComponentRegistry, ListsEachOnceThoughOthersComeAndGoMeanwhile) {
  constexpr std::size_t kStep = PropertyIndex<ComponentProperty>::kStep;
  ComponentRegistry registry(AnyCanOwn);
  std::vector<std::string> staying;
  for (std::size_t i = 0; i < 4 * kStep; ++i) {
    const std::string guid = std::to_string(i);
    registry.Add(MakeOfComponent("c", i % 2 == 0 ? "g" : "h", guid));
    if (i % 3 != 0) staying.push_back((i % 2 == 0 ? "c:g:" : "c:h:") + guid);
  }
  std::vector<Handle> listed;
  ComponentRegistry::Place place;
  std::size_t going = 0;
  while (registry.ListAll(place, listed)) {
    for (std::size_t i = 0; i < kStep; ++i, going += 3) {
      const std::string guid = std::to_string(going);
      registry.Remove("c", going % 2 == 0 ? "g" : "h", guid);
      registry.Add(MakeOfComponent("c", "a", guid));
    }
  }
  std::vector<std::string> met = Keys(listed);
  std::sort(met.begin(), met.end());
  EXPECT_EQ(std::adjacent_find(met.begin(), met.end()), met.end());
  for (const std::string& key : staying)
    EXPECT_TRUE(std::binary_search(met.begin(), met.end(), key)) << key;
}

TEST(ComponentRegistry, HoldsAndRemovesTensOfThousandsOfProperties) {
  constexpr int kProperties = 30'000;
  ComponentRegistry registry(AnyCanOwn);
  const auto connection = MakeConnection();
  const auto other = MakeConnection();
  for (int i = 0; i < kProperties; ++i) {
    ASSERT_TRUE(registry.Add(
        MakeOfComponent("c", "one group", std::to_string(i), i % 3 == 0 ? other : connection)));
  }
  for (int i = 0; i < kProperties; i += 7)
    ASSERT_NE(registry.Find(std::to_string(i), "one group", "c"), nullptr);

  EXPECT_EQ(RemoveOwnedBy(registry, *connection).size(), static_cast<std::size_t>(20'000));
  const std::vector<std::string> left = GroupOf(registry, "one group");
  ASSERT_EQ(left.size(), static_cast<std::size_t>(10'000));
  EXPECT_EQ(left.front(), "c:one group:0");
  EXPECT_EQ(left.back(), "c:one group:29997");
  for (int i = 0; i < kProperties; i += 3)
    ASSERT_NE(registry.Remove("c", "one group", std::to_string(i)), nullptr);
  EXPECT_THAT(AllOf(registry), IsEmpty());
}

TEST(ComponentRegistry, AnswersManyThreadsAtOnce) {
  constexpr int kThreads = 4;
  constexpr int kRounds = 200;
  const std::uint32_t before = LiveProperties::Live();
  {
    ComponentRegistry registry(AnyCanOwn);
    std::atomic<int> refused{0};
    StartGate gate(kThreads);
    std::vector<TestThread> threads;
    for (int i = 0; i < kThreads; ++i) {
      threads.emplace_back([&, component = std::to_string(i)] {
        gate.Pass();
        const auto connection = MakeConnection();
        for (int n = 0; n < kRounds; ++n) {
          const std::string guid = std::to_string(n % 20);
          if (!registry.Add(MakeOfComponent(component, "g", guid, connection))) ++refused;
          if (n % 20 == 19 && RemoveOwnedBy(registry, *connection).size() != 20) ++refused;
          if (n % 10 == 0) GroupOf(registry, "g");
        }
      });
    }
    threads.clear();
    EXPECT_EQ(refused, 0);
    EXPECT_THAT(AllOf(registry), IsEmpty());
  }
  EXPECT_EQ(LiveProperties::Live(), before);
}

}  // namespace
}  // namespace valmere::test
