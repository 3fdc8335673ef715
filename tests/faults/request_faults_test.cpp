// A request that meets a fault is answered rightly, refused, or ends its session and no other.
#include "tests/faults/fault_fixture.h"

namespace valmere::test {
namespace {

class RequestFaults : public FaultTest {};

TEST_P(RequestFaults, CostNoMoreThanTheSession) {
  Start();
  ASSERT_TRUE(Use());
  FaultClient bystander;
  ASSERT_EQ(bystander.Ask(GetText(kOwnComponent)), OwnComponentText());
  ForEachFault([&](std::uint64_t n) {
    const std::string value = std::to_string(500 + n);
    OrderedFault ordered(fault(), n, extent());
    {
      FaultClient client;
      const auto set = client.Ask(SetAndGetText(kPeriod, value));
      if (set) {
        EXPECT_TRUE(Holds(set, ValueText(value)));
      }
      const auto all = client.Ask(R"({"GetAllProperties": true})");
      if (set && all) {
        EXPECT_TRUE(Holds(all, ValueText(value)));
      }
    }
    const bool reached = ordered.End();
    EXPECT_TRUE(bystander.Ask(GetText(kOwnComponent)));
    EXPECT_TRUE(Serves(1));
    return reached;
  });
  bystander.Close();
  EXPECT_TRUE(Use());
  StopCleanly();
}

// Its stacks and its text grow, and so does what is made of it.
std::string LongText() {
  std::string text = R"({"PropertyGetRequests": [)";
  for (int i = 0; i < 300; ++i)
    text += R"({"GUID":"g:)" + std::to_string(i) + R"("},)";
  text += R"(1],"PropertySubscribeRequests": [)";
  for (int i = 0; i < 40; ++i)
    text += R"({"GUID":"g:)" + std::to_string(i) + R"("},)";
  return text + R"(1],"n":[1e999,.)" + std::string(900, '7') + R"(],"a":")" +
         std::string(20'000, 'x') + R"(\n"})";
}

TEST_P(RequestFaults, CostNoMoreThanTheSessionOfALongMessage) {
  Start();
  ASSERT_TRUE(Use());
  FaultClient bystander;
  ASSERT_EQ(bystander.Ask(GetText(kOwnComponent)), OwnComponentText());
  const std::string text = LongText();
  ForEachFault([&](std::uint64_t n) {
    OrderedFault ordered(fault(), n, extent());
    {
      FaultClient client;
      if (const auto reply = client.Ask(text)) {
        EXPECT_TRUE(Holds(reply, R"("GUID": "g:299")"));
      }
    }
    const bool reached = ordered.End();
    EXPECT_TRUE(bystander.Ask(GetText(kOwnComponent)));
    EXPECT_TRUE(Serves(1));
    return reached;
  });
  bystander.Close();
  EXPECT_TRUE(Use());
  StopCleanly();
}

INSTANTIATE_TEST_SUITE_P(Every, RequestFaults,
                         EveryFaultOf(Fault::kMemory, Fault::kThread, Fault::kKernelObject),
                         FaultName);

}  // namespace
}  // namespace valmere::test
