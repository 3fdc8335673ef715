#include "store/property/identity_scope.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "tests/store/engine/start_gate.h"
#include "tests/support/allocations.h"
#include "tests/support/test_thread.h"

namespace valmere::test {
namespace {

IdentityScope Group(std::string_view component, std::string_view component_name,
                    std::string_view guid, std::string_view name) {
  return IdentityScope(IdentityScope(component, component_name), guid, name);
}

TEST(IdentityScope, KeepsItsTextsAndThoseAround) {
  const IdentityScope own("GUID", "name");
  EXPECT_EQ("GUID", own.guid());
  EXPECT_EQ("name", own.name());
  EXPECT_FALSE(own.has_around());
  EXPECT_EQ("", own.around_guid());
  EXPECT_EQ("", own.around_name());
  const IdentityScope group = Group("C", "component", "G", "group");
  EXPECT_EQ("G", group.guid());
  EXPECT_EQ("group", group.name());
  EXPECT_TRUE(group.has_around());
  EXPECT_EQ("C", group.around_guid());
  EXPECT_EQ("component", group.around_name());
  const IdentityScope empty = Group("", "", "", "");
  EXPECT_TRUE(empty.has_around());
  EXPECT_EQ("", empty.guid());
}

TEST(IdentityScope, KeepsEqualTextsOnce) {
  const std::string guid(1000, 'g');
  const IdentityScope first = Group("C", "component", guid, "group");
  const std::size_t before = BytesInUse();
  const IdentityScope second = Group("C", "component", guid, "group");
  EXPECT_EQ(before, BytesInUse());
  EXPECT_EQ(first.guid().data(), second.guid().data());
  EXPECT_EQ(first.around_guid().data(), second.around_guid().data());
}

TEST(IdentityScope, TellsApartWhatDiffersInOneText) {
  const std::size_t before = BytesInUse();
  const auto make = [] {
    std::vector<IdentityScope> scopes;
    scopes.reserve(7);
    scopes.push_back(Group("C", "component", "GH", "I"));
    scopes.push_back(Group("D", "component", "GH", "I"));
    scopes.push_back(Group("C", "other", "GH", "I"));
    scopes.push_back(Group("C", "component", "G", "I"));
    scopes.push_back(Group("C", "component", "G", "HI"));
    scopes.push_back(Group("C", "component", "GH", "J"));
    scopes.push_back(IdentityScope("GH", "I"));
    return scopes;
  };
  {
    const std::vector<IdentityScope> first = make();
    const std::vector<IdentityScope> second = make();
    for (std::size_t i = 0; i < first.size(); ++i) {
      for (std::size_t j = 0; j < second.size(); ++j)
        EXPECT_EQ(i == j, first[i].guid().data() == second[j].guid().data()) << i << ' ' << j;
    }
    EXPECT_EQ("HI", second[4].name());
    EXPECT_EQ("other", second[2].around_name());
  }
  EXPECT_EQ(before, BytesInUse());
}

TEST(IdentityScope, GoesWithItsLastHandle) {
  const std::size_t before = BytesInUse();
  {
    auto first = std::make_unique<IdentityScope>(Group("C", "component", "G", "group"));
    const IdentityScope second = Group("C", "component", "G", "group");
    first.reset();
    EXPECT_EQ("component", second.around_name());
    const IdentityScope moved(IdentityScope("G", "group"));
    EXPECT_EQ("group", moved.name());
  }
  EXPECT_EQ(before, BytesInUse());
}

TEST(IdentityScope, LeavesNothingWhenThereIsNoMemory) {
  const std::size_t before = BytesInUse();
  FailEachAllocation([] { Group("C", "component", "G", "group"); },
                     [&] { EXPECT_EQ(before, BytesInUse()); });
  EXPECT_EQ(before, BytesInUse());
}

TEST(IdentityScope, ComesAndGoesOnManyThreadsAtOnce) {
  constexpr int kThreads = 4;
  constexpr int kRounds = 2'000;
  const std::size_t before = BytesInUse();
  std::atomic<int> wrong{0};
  {
    StartGate gate(kThreads);
    std::vector<TestThread> threads;
    for (int i = 0; i < kThreads; ++i) {
      threads.emplace_back([&] {
        gate.Pass();
        for (int round = 0; round < kRounds; ++round) {
          const std::string name = std::to_string(round % 3);
          const IdentityScope group = Group("C", "component", "G", name);
          const IdentityScope same = Group("C", "component", "G", name);
          if (group.name() != name || same.guid().data() != group.guid().data()) ++wrong;
        }
      });
    }
  }
  EXPECT_EQ(0, wrong);
  EXPECT_EQ(before, BytesInUse());
}

}  // namespace
}  // namespace valmere::test
