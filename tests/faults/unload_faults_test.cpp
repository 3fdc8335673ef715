// Whatever is refused while the service ends, nothing is left of it.
#include "tests/faults/fault_fixture.h"

namespace valmere {
namespace {

using testing::Extent;
using testing::Fault;
using testing::FaultClient;
using testing::OrderedFault;
using testing::Remains;

class UnloadFaults : public testing::FaultTest {};

TEST_P(UnloadFaults, LeaveNothingOfTheService) {
  ForEachFault([this](std::uint64_t n) {
    Start();
    {
      const testing::Address address = {"component", "group:property"};
      FaultClient subscriber;
      FaultClient component;
      FaultClient unfinished;
      FaultClient never_used;
      EXPECT_TRUE(subscriber.Send(R"({"SubscribeAllCurrentAndNewProperties": true})"));
      EXPECT_TRUE(component.Send(testing::PublishedText(address, "value")));
      EXPECT_TRUE(component.Ask(testing::GetText(address)));
      EXPECT_TRUE(component.Send(testing::SetText(testing::kPeriod, "1000")));
      EXPECT_TRUE(unfinished.SendBytes("half a frame"));

      OrderedFault ordered(fault(), n, extent());
      Stop();
      const bool reached = ordered.End();
      EXPECT_EQ(PRN_Open(1, 0, 0), 0u);
      if (!reached) {
        EXPECT_TRUE(device_.Has(kMarker));
        return false;
      }
    }
    EXPECT_EQ(Remains::Now(), before_);
    device_.Remove(kMarker);
    return true;
  });
  Start();
  EXPECT_TRUE(Use());
  StopCleanly();
}

INSTANTIATE_TEST_SUITE_P(Every, UnloadFaults,
                         testing::EveryFaultOf(Fault::kMemory, Fault::kThread, Fault::kKernelObject,
                                               Fault::kOpen, Fault::kLook, Fault::kRead,
                                               Fault::kWrite),
                         testing::FaultName);

}  // namespace
}  // namespace valmere
