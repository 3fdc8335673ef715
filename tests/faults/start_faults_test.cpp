// A start that meets a fault leaves a whole service or none, and nothing else.
#include "store/property/string_property.h"
#include "tests/faults/fault_fixture.h"

namespace valmere::test {
namespace {

// So many starts are followed by one look at every thread of the service.
constexpr std::uint64_t kStartsForEachUse = 32;

class StartFaults : public FaultTest {
 protected:
  static std::size_t Properties() {
    const std::string all = FaultClient().Ask(R"({"GetAllProperties": true})").value_or("");
    std::size_t count = 0;
    for (std::size_t at = 0; (at = all.find("NameString", at)) != std::string::npos; ++at)
      ++count;
    return count;
  }
};

TEST_P(StartFaults, LeaveAWholeServiceOrNone) {
  Start();
  const std::size_t properties = Properties();
  StopCleanly();
  ForEachFault([&](std::uint64_t n) {
    OrderedFault ordered(fault(), n, extent());
    Start();
    const bool reached = ordered.End();
    if (FaultClient().handle() != 0) {
      EXPECT_TRUE(Answers());
      EXPECT_EQ(Properties(), properties);
      if (fault() != Fault::kMemory || n % kStartsForEachUse == 0) {
        EXPECT_TRUE(Use());
      }
    }
    StopCleanly();
    return reached;
  });
}

class ReplacementFaults : public FaultTest {};

// Handles count from one again in a new service.
TEST_P(ReplacementFaults, LeaveTheNewServiceOrNone) {
  ForEachFault([&](std::uint64_t n) {
    Start();
    const FaultClient of_the_old_one;
    OrderedFault ordered(fault(), n, extent());
    Start();
    const bool reached = ordered.End();
    const std::uint32_t handle = FaultClient().handle();
    EXPECT_LE(handle, 1u);
    if (handle != 0) {
      EXPECT_TRUE(Answers());
    }
    StopCleanly();
    return reached;
  });
}

// What all texts share is made with the first of them, which is in a process of its own here.
TEST(FirstText, IsRefusedWhereItsLocksAreAndMadeOnceTheyAreNot) {
  for (std::uint64_t n = 1;; ++n) {
    OrderedFault ordered(Fault::kKernelObject, n, Extent::kOnce);
    try {
      const InSystem in_system;
      EXPECT_EQ(StringProperty::Make("value", "P", "Name", "G", "Group")->ToString(), "value");
    } catch (const std::bad_alloc&) {
    }
    if (!ordered.End()) return;
  }
}

INSTANTIATE_TEST_SUITE_P(Every, StartFaults,
                         EveryFaultOf(Fault::kMemory, Fault::kThread, Fault::kKernelObject,
                                      Fault::kOpen, Fault::kLook, Fault::kRead, Fault::kWrite),
                         FaultName);

INSTANTIATE_TEST_SUITE_P(Every, ReplacementFaults,
                         EveryFaultOf(Fault::kThread, Fault::kKernelObject, Fault::kOpen),
                         FaultName);

}  // namespace
}  // namespace valmere::test
