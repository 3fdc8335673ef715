// A request that meets a fault is answered rightly, refused, or ends its session; nobody else's.
#include "tests/faults/fault_fixture.h"

namespace valmere {
namespace {

using testing::Extent;
using testing::Fault;
using testing::FaultClient;
using testing::Holds;
using testing::kPeriod;
using testing::OrderedFault;

class RequestFaults : public testing::FaultTest {};

TEST_P(RequestFaults, CostNoMoreThanTheSession) {
  Start();
  ASSERT_TRUE(Use());
  FaultClient bystander;
  ASSERT_EQ(bystander.Ask(testing::GetText(testing::kOwnComponent)), testing::OwnComponentText());
  ForEachFault([&](std::uint64_t n) {
    const std::string value = std::to_string(500 + n);
    OrderedFault ordered(fault(), n, extent());
    {
      FaultClient client;
      const auto set = client.Ask(SetAndGetText(kPeriod, value));
      if (set) {
        EXPECT_TRUE(Holds(set, testing::ValueText(value)));
      }
      const auto all = client.Ask(R"({"GetAllProperties": true})");
      if (set && all) {
        EXPECT_TRUE(Holds(all, testing::ValueText(value)));
      }
    }
    const bool reached = ordered.End();
    EXPECT_TRUE(bystander.Ask(testing::GetText(testing::kOwnComponent)));
    EXPECT_TRUE(Serves(1));
    return reached;
  });
  bystander.Close();
  EXPECT_TRUE(Use());
  StopCleanly();
}

INSTANTIATE_TEST_SUITE_P(Every, RequestFaults,
                         testing::EveryFaultOf(Fault::kMemory, Fault::kThread,
                                               Fault::kKernelObject),
                         testing::FaultName);

}  // namespace
}  // namespace valmere
