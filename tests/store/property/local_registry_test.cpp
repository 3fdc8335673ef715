#include "store/property/local_registry.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "store/property/bool_property.h"
#include "store/property/uint_property.h"
#include "tests/store/engine/start_gate.h"
#include "tests/support/test_thread.h"

namespace valmere::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

std::shared_ptr<Property> Make(std::string_view group_guid, std::string_view guid) {
  return UIntProperty::Make(1, guid, "Name", group_guid, "Group");
}

std::vector<std::string> Keys(const std::vector<std::shared_ptr<Property>>& properties) {
  std::vector<std::string> keys;
  for (const auto& property : properties)
    keys.emplace_back(property->key().Text());
  return keys;
}

std::vector<std::string> GroupOf(const LocalRegistry& registry, std::string_view group_guid) {
  std::vector<std::shared_ptr<Property>> properties;
  for (std::uint64_t next = 0; registry.ListGroup(group_guid, next, properties);) {
  }
  return Keys(properties);
}

std::vector<std::string> AllOf(const LocalRegistry& registry) {
  std::vector<std::shared_ptr<Property>> properties;
  for (LocalRegistry::Place place; registry.ListAll(place, properties);) {
  }
  return Keys(properties);
}

TEST(LocalRegistry, IsEmptyAtFirst) {
  const LocalRegistry registry;
  EXPECT_EQ(registry.Find("g", "a"), nullptr);
  EXPECT_THAT(GroupOf(registry, "g"), IsEmpty());
  EXPECT_THAT(AllOf(registry), IsEmpty());
}

TEST(LocalRegistry, FindsWhatWasAdded) {
  LocalRegistry registry;
  const auto a = Make("g", "a");
  const auto b = Make("g", "b");
  EXPECT_TRUE(registry.Add(a));
  EXPECT_TRUE(registry.Add(b));
  EXPECT_EQ(registry.Find("g", "a"), a);
  EXPECT_EQ(registry.Find("g", "b"), b);
  EXPECT_EQ(registry.Find("g", "c"), nullptr);
  EXPECT_EQ(registry.Find("h", "a"), nullptr);
  EXPECT_EQ(registry.Find("g", ""), nullptr);
  EXPECT_EQ(registry.Find("", "a"), nullptr);
}

TEST(LocalRegistry, RefusesASecondPropertyOfTheSameKeyAndKeepsTheFirst) {
  LocalRegistry registry;
  const auto first = Make("g", "a");
  auto second = std::static_pointer_cast<Property>(
      BoolProperty::Make(false, "a", "Other", "g", "Other group"));
  const std::weak_ptr<Property> refused = second;
  EXPECT_TRUE(registry.Add(first));
  EXPECT_FALSE(registry.Add(std::move(second)));
  EXPECT_TRUE(refused.expired());
  EXPECT_EQ(registry.Find("g", "a"), first);
  EXPECT_THAT(GroupOf(registry, "g"), ElementsAre("g:a"));
  EXPECT_THAT(AllOf(registry), ElementsAre("g:a"));
}

TEST(LocalRegistry, ListsAGroupInTheOrderOfRegistration) {
  LocalRegistry registry;
  for (const char* guid : {"c", "a", "b"})
    registry.Add(Make("g", guid));
  registry.Add(Make("h", "0"));
  EXPECT_THAT(GroupOf(registry, "g"), ElementsAre("g:c", "g:a", "g:b"));
  EXPECT_THAT(GroupOf(registry, "h"), ElementsAre("h:0"));
  EXPECT_THAT(GroupOf(registry, ""), IsEmpty());
}

TEST(LocalRegistry, ListsAllByGroupThenByOrderOfRegistration) {
  LocalRegistry registry;
  registry.Add(Make("h", "b"));
  registry.Add(Make("g", "z"));
  registry.Add(Make("h", "a"));
  registry.Add(Make("g", "y"));
  registry.Add(Make("\xff", "a"));
  registry.Add(Make("G", "a"));
  EXPECT_THAT(AllOf(registry), ElementsAre("G:a", "g:z", "g:y", "h:b", "h:a", "\xff:a"));
}

TEST(LocalRegistry, AppendsToTheListThatItIsGiven) {
  LocalRegistry registry;
  registry.Add(Make("g", "a"));
  std::vector<std::shared_ptr<Property>> properties = {Make("x", "x")};
  std::uint64_t next = 0;
  LocalRegistry::Place place;
  EXPECT_FALSE(registry.ListGroup("g", next, properties));
  EXPECT_FALSE(registry.ListAll(place, properties));
  EXPECT_THAT(Keys(properties), ElementsAre("x:x", "g:a", "g:a"));
}

TEST(LocalRegistry, ListsManyStepByStep) {
  constexpr std::size_t kStep = PropertyIndex<Property>::kStep;
  for (const std::size_t count : {kStep - 1, kStep, kStep + 1, 3 * kStep}) {
    LocalRegistry registry;
    std::vector<std::string> keys;
    for (const char* group : {"g", "h"}) {
      for (std::size_t i = 0; i < count; ++i) {
        registry.Add(Make(group, std::to_string(i)));
        keys.push_back(group + (":" + std::to_string(i)));
      }
    }
    EXPECT_EQ(2 * count, registry.size());
    std::vector<std::shared_ptr<Property>> step;
    LocalRegistry::Place place;
    registry.ListAll(place, step);
    EXPECT_EQ(kStep, step.size());
    EXPECT_EQ(AllOf(registry), keys);
    keys.resize(count);
    EXPECT_EQ(GroupOf(registry, "g"), keys);
  }
}

TEST(LocalRegistry, TakesAColonWithinAGuidAsPartOfTheJoinedKey) {
  LocalRegistry registry;
  const auto property = Make("g", "a:b");
  EXPECT_TRUE(registry.Add(property));
  EXPECT_EQ(registry.Find("g:a", "b"), property);
  EXPECT_FALSE(registry.Add(Make("g:a", "b")));
  EXPECT_THAT(GroupOf(registry, "g:a"), IsEmpty());
}

TEST(LocalRegistry, KeepsItsPropertiesAlive) {
  const std::uint32_t before = LiveProperties::Live();
  {
    LocalRegistry registry;
    registry.Add(Make("g", "a"));
    EXPECT_EQ(LiveProperties::Live(), before + 1);
  }
  EXPECT_EQ(LiveProperties::Live(), before);
}

TEST(LocalRegistry, AnswersReadersWhileAnotherThreadAdds) {
  constexpr int kProperties = 500;
  LocalRegistry registry;
  std::atomic<bool> all_added{false};
  std::atomic<int> disorder{0};
  StartGate gate(3);
  std::vector<TestThread> threads;
  threads.emplace_back([&] {
    gate.Pass();
    for (int i = 0; i < kProperties; ++i)
      registry.Add(Make("g", std::to_string(i)));
    all_added = true;
  });
  threads.emplace_back([&] {
    gate.Pass();
    while (!all_added)
      registry.Find("g", "499");
  });
  threads.emplace_back([&] {
    gate.Pass();
    while (!all_added) {
      if (GroupOf(registry, "g").size() > AllOf(registry).size()) ++disorder;
    }
  });
  threads.clear();
  EXPECT_EQ(disorder, 0);
  EXPECT_NE(registry.Find("g", "499"), nullptr);
}

TEST(LocalRegistry, AnswersManyThreadsAtOnce) {
  constexpr int kThreads = 4;
  constexpr int kEach = 200;
  LocalRegistry registry;
  std::atomic<int> added{0};
  std::atomic<int> lost{0};
  {
    StartGate gate(kThreads);
    std::vector<TestThread> threads;
    for (int i = 0; i < kThreads; ++i) {
      threads.emplace_back([&] {
        gate.Pass();
        for (int n = 0; n < kEach; ++n) {
          const std::string guid = std::to_string(n);
          if (registry.Add(Make("g", guid))) ++added;
          if (registry.Find("g", guid) == nullptr) ++lost;
          if (n % 50 == 0 && GroupOf(registry, "g").empty()) ++lost;
        }
      });
    }
  }
  EXPECT_EQ(added, kEach);
  EXPECT_EQ(lost, 0);
  EXPECT_EQ(AllOf(registry).size(), static_cast<std::size_t>(kEach));
}

}  // namespace
}  // namespace valmere::test
