#include "store/engine/change_stack.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "store/property/uint_property.h"
#include "tests/store/engine/start_gate.h"
#include "tests/support/test_thread.h"

namespace valmere::test {
namespace {

std::shared_ptr<Property> Make(std::uint32_t value = 0) {
  return UIntProperty::Make(value, "P", "Name", "G", "Group");
}

TEST(ChangeStack, IsEmptyAtFirst) {
  ChangeStack stack;
  EXPECT_FALSE(stack.HasChanges());
  EXPECT_EQ(nullptr, stack.Pop());
  EXPECT_FALSE(stack.HasChanges());
}

TEST(ChangeStack, GivesTheNewestChangeFirst) {
  ChangeStack stack;
  const auto first = Make();
  const auto second = Make();
  EXPECT_TRUE(stack.Push(first));
  EXPECT_TRUE(stack.Push(second));
  EXPECT_TRUE(stack.Push(first));
  EXPECT_TRUE(stack.HasChanges());
  EXPECT_EQ(first, stack.Pop());
  EXPECT_EQ(second, stack.Pop());
  EXPECT_EQ(first, stack.Pop());
  EXPECT_FALSE(stack.HasChanges());
}

TEST(ChangeStack, DropsTheFiveHundredthChange) {
  ChangeStack stack;
  const auto property = Make();
  const auto dropped = Make();
  for (int i = 0; i < 499; ++i)
    EXPECT_TRUE(stack.Push(property)) << i;
  EXPECT_FALSE(stack.Push(dropped));
  EXPECT_EQ(1, dropped.use_count());
  for (int i = 0; i < 499; ++i)
    EXPECT_EQ(property, stack.Pop()) << i;
  EXPECT_FALSE(stack.HasChanges());
  EXPECT_TRUE(stack.Push(dropped));
}

TEST(ChangeStack, KeepsNoHandleOfWhatWasTaken) {
  ChangeStack stack;
  const auto property = Make();
  stack.Push(property);
  EXPECT_EQ(2, property.use_count());
  stack.Pop();
  EXPECT_EQ(1, property.use_count());
}

TEST(ChangeStack, LosesNoneOfTheChangesOfManyThreads) {
  constexpr int kThreads = 3;
  constexpr int kChanges = 400;
  ChangeStack stack;
  const auto property = Make();
  StartGate gate(kThreads + 1);
  std::atomic<int> taken{0};
  std::vector<TestThread> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([&] {
      gate.Pass();
      for (int change = 0; change < kChanges;) {
        if (stack.Push(property)) ++change;
      }
    });
  }
  gate.Pass();
  while (taken < kThreads * kChanges) {
    if (stack.Pop()) ++taken;
  }
  EXPECT_FALSE(stack.HasChanges());
}

}  // namespace
}  // namespace valmere::test
