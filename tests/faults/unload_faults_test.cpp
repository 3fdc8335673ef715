// A refusal while the service ends leaves nothing of it.
#include "tests/faults/fault_fixture.h"

namespace valmere::test {
namespace {

class UnloadFaults : public FaultTest {};

TEST_P(UnloadFaults, LeaveNothingOfTheService) {
  ForEachFault([this](std::uint64_t n) {
    Start();
    {
      const Address address = {"component", "group:property"};
      FaultClient subscriber;
      FaultClient component;
      FaultClient unfinished;
      FaultClient never_used;
      EXPECT_TRUE(subscriber.Send(R"({"SubscribeAllCurrentAndNewProperties": true})"));
      EXPECT_TRUE(component.Send(PublishedText(address, "value")));
      EXPECT_TRUE(component.Ask(GetText(address)));
      EXPECT_TRUE(component.Send(SetText(kPeriod, "1000")));
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
                         EveryFaultOf(Fault::kMemory, Fault::kThread, Fault::kKernelObject,
                                      Fault::kOpen, Fault::kLook, Fault::kRead, Fault::kWrite),
                         FaultName);

}  // namespace
}  // namespace valmere::test
