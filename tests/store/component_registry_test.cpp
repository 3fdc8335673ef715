#include "store/component_registry.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "protocol/client_connection.h"
#include "tests/store/make_connection.h"
#include "tests/store/start_gate.h"
#include "tests/support/allocations.h"
#include "tests/support/test_thread.h"

namespace valmere {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using testing::StartGate;
using testing::TestThread;

using Handle = ComponentRegistry::Handle;

using testing::MakeConnection;

Handle Make(std::string_view component, std::string_view group_guid, std::string_view guid,
            std::shared_ptr<ClientConnection> connection = nullptr) {
  return ComponentProperty::Make("value", guid, "Name", group_guid, "Group", component, "Component",
                                 std::move(connection));
}

std::vector<std::string> Keys(const std::vector<Handle>& properties) {
  std::vector<std::string> keys;
  for (const auto& property : properties)
    keys.emplace_back(property->key());
  return keys;
}

std::vector<std::string> Keys(const ComponentRegistry::Arrivals& arrivals) {
  std::vector<std::string> keys;
  for (const auto& [arrival, property] : arrivals)
    keys.emplace_back(property->key());
  return keys;
}

std::vector<std::string> GroupOf(const ComponentRegistry& registry, std::string_view group_guid) {
  std::vector<Handle> properties;
  registry.ListGroup(group_guid, properties);
  return Keys(properties);
}

std::vector<std::string> AllOf(const ComponentRegistry& registry) {
  std::vector<Handle> properties;
  registry.ListAll(properties);
  return Keys(properties);
}

TEST(ComponentRegistry, IsAsItWasWhenThereIsNoMemoryToAdd) {
  ComponentRegistry registry;
  const auto present = Make("c", "g", "b");
  registry.Add(present);
  const auto property = Make("c", "g", "a");
  testing::FailEachAllocation([&] { registry.Add(property); },
                              [&] { EXPECT_EQ(registry.Find("a", "g", "c"), nullptr); });
  EXPECT_EQ(registry.Find("a", "g", "c"), property);
  EXPECT_THAT(GroupOf(registry, "g"), ElementsAre(present->key(), property->key()));
}

TEST(ComponentRegistry, KeepsNoGroupThatThereWasNoMemoryToFill) {
  ComponentRegistry registry;
  const auto property = Make("c", std::string(100, 'g'), "a");
  const std::size_t before = testing::BytesInUse();
  testing::FailEachAllocation([&] { registry.Add(property); },
                              [&] { EXPECT_EQ(testing::BytesInUse(), before); });
  EXPECT_THAT(AllOf(registry), ElementsAre(property->key()));
}

TEST(ComponentRegistry, FindsWhatWasAdded) {
  ComponentRegistry registry;
  const auto first = Make("c", "g", "a");
  const auto second = Make("d", "g", "a");
  EXPECT_TRUE(registry.Add(first));
  EXPECT_TRUE(registry.Add(second));
  EXPECT_EQ(registry.Find("a", "g", "c"), first);
  EXPECT_EQ(registry.Find("a", "g", "d"), second);
  EXPECT_EQ(registry.Find("c", "g", "a"), nullptr);
  EXPECT_EQ(registry.Find("a", "g", ""), nullptr);
  EXPECT_EQ(registry.Find("", "g", ""), nullptr);
}

TEST(ComponentRegistry, RefusesASecondPropertyOfTheSameKeyAndKeepsTheFirst) {
  ComponentRegistry registry;
  const auto first = Make("c", "g", "a");
  EXPECT_TRUE(registry.Add(first));
  EXPECT_FALSE(registry.Add(Make("c", "g", "a")));
  EXPECT_EQ(registry.Find("a", "g", "c"), first);
  EXPECT_THAT(GroupOf(registry, "g"), ElementsAre("c:g:a"));
}

TEST(ComponentRegistry, ListsAGroupOfAllComponentsInTheOrderOfRegistration) {
  ComponentRegistry registry;
  registry.Add(Make("d", "g", "a"));
  registry.Add(Make("c", "g", "z"));
  registry.Add(Make("d", "h", "a"));
  registry.Add(Make("c", "g", "a"));
  EXPECT_THAT(GroupOf(registry, "g"), ElementsAre("d:g:a", "c:g:z", "c:g:a"));
  EXPECT_THAT(GroupOf(registry, "i"), IsEmpty());
}

TEST(ComponentRegistry, ListsAllByGroupThenByOrderOfRegistration) {
  ComponentRegistry registry;
  registry.Add(Make("a", "h", "1"));
  registry.Add(Make("z", "g", "2"));
  registry.Add(Make("a", "g", "1"));
  registry.Add(Make("a", "h", "0"));
  EXPECT_THAT(AllOf(registry), ElementsAre("z:g:2", "a:g:1", "a:h:1", "a:h:0"));
}

TEST(ComponentRegistry, RemovesAPropertyFromTheLookUpAndFromItsGroup) {
  ComponentRegistry registry;
  const auto a = Make("c", "g", "a");
  registry.Add(a);
  registry.Add(Make("c", "g", "b"));
  EXPECT_EQ(registry.Remove("c", "g", "a"), a);
  EXPECT_EQ(registry.Find("a", "g", "c"), nullptr);
  EXPECT_THAT(GroupOf(registry, "g"), ElementsAre("c:g:b"));
  EXPECT_THAT(AllOf(registry), ElementsAre("c:g:b"));
  EXPECT_EQ(registry.Remove("c", "g", "a"), nullptr);
  EXPECT_EQ(registry.Remove("c", "h", "b"), nullptr);
  EXPECT_EQ(a.use_count(), 1);
}

TEST(ComponentRegistry, ListsAPropertyThatComesBackAsItsGroupsLast) {
  ComponentRegistry registry;
  for (const char* guid : {"a", "b", "c"})
    registry.Add(Make("c", "g", guid));
  EXPECT_TRUE(registry.Add(registry.Remove("c", "g", "b")));
  EXPECT_THAT(GroupOf(registry, "g"), ElementsAre("c:g:a", "c:g:c", "c:g:b"));
}

TEST(ComponentRegistry, TakesAnEmptiedGroupAnew) {
  ComponentRegistry registry;
  registry.Add(Make("c", "g", "a"));
  registry.Remove("c", "g", "a");
  EXPECT_THAT(GroupOf(registry, "g"), IsEmpty());
  EXPECT_TRUE(registry.Add(Make("c", "g", "a")));
  EXPECT_THAT(GroupOf(registry, "g"), ElementsAre("c:g:a"));
}

TEST(ComponentRegistry, TakesAColonWithinATextAsPartOfTheJoinedKey) {
  ComponentRegistry registry;
  const auto property = Make("c", "g:h", "a");
  EXPECT_TRUE(registry.Add(property));
  EXPECT_FALSE(registry.Add(Make("c:g", "h", "a")));
  EXPECT_EQ(registry.Find("h:a", "g", "c"), property);
  EXPECT_EQ(registry.Remove("c:g", "h", "a"), property);
  EXPECT_THAT(GroupOf(registry, "g:h"), IsEmpty());
}

TEST(ComponentRegistry, RemovesWhatWasPublishedLastOnAConnection) {
  ComponentRegistry registry;
  const auto leaving = MakeConnection();
  const auto staying = MakeConnection();
  registry.Add(Make("c", "h", "1", leaving));
  registry.Add(Make("c", "g", "2", leaving));
  registry.Add(Make("d", "g", "1", staying));
  registry.Add(Make("c", "g", "1", leaving));
  const auto came_back = Make("c", "g", "0", leaving);
  registry.Add(came_back);
  came_back->set_connection(staying);

  EXPECT_THAT(Keys(registry.RemoveOwnedBy(*leaving)), ElementsAre("c:h:1", "c:g:2", "c:g:1"));
  EXPECT_THAT(AllOf(registry), ElementsAre("d:g:1", "c:g:0"));
  EXPECT_EQ(registry.Find("1", "h", "c"), nullptr);
  EXPECT_EQ(leaving.use_count(), 1);
  EXPECT_THAT(registry.RemoveOwnedBy(*leaving), IsEmpty());
}

TEST(ComponentRegistry, HoldsAndRemovesTensOfThousandsOfProperties) {
  constexpr int kProperties = 30'000;
  ComponentRegistry registry;
  const auto connection = MakeConnection();
  const auto other = MakeConnection();
  for (int i = 0; i < kProperties; ++i) {
    ASSERT_TRUE(
        registry.Add(Make("c", "one group", std::to_string(i), i % 3 == 0 ? other : connection)));
  }
  for (int i = 0; i < kProperties; i += 7)
    ASSERT_NE(registry.Find(std::to_string(i), "one group", "c"), nullptr);

  EXPECT_EQ(registry.RemoveOwnedBy(*connection).size(), static_cast<std::size_t>(20'000));
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
    ComponentRegistry registry;
    std::atomic<int> refused{0};
    StartGate gate(kThreads);
    std::vector<TestThread> threads;
    for (int i = 0; i < kThreads; ++i) {
      threads.emplace_back([&, component = std::to_string(i)] {
        gate.Pass();
        const auto connection = MakeConnection();
        for (int n = 0; n < kRounds; ++n) {
          const std::string guid = std::to_string(n % 20);
          if (!registry.Add(Make(component, "g", guid, connection))) ++refused;
          if (n % 20 == 19 && registry.RemoveOwnedBy(*connection).size() != 20) ++refused;
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
}  // namespace valmere
