// A file call that does not come back: the service ends without it, and the next one serves.
#include <memory>

#include "platform/posix/sanitizers.h"
#include "tests/faults/fault_fixture.h"

namespace valmere::test {
namespace {

const Address kReadOnly = {
    kOwnComponent.component,
    "99A61D40-20CE-41EA-A579-EB92C6ED94C6:ACEB1224-1DAF-42A2-BBAA-4678D5D3C8DA"};
const Address kLoad = {kOwnComponent.component,
                       "99A61D40-20CE-41EA-A579-EB92C6ED94C6:0D9B0F83-2282-4728-A78E-FE2FF4E3A13C"};
const Address kLoadingError = {
    kOwnComponent.component,
    "2EBF9DEF-D51C-47FE-935E-5EDCC530B867:A32AFFED-7C37-47FE-80DB-B21875E226BD"};

// One process each: what a thread that was ended by force held for itself is never given back.
class HungFileCall : public ::testing::Test {
 protected:
  HungFileCall() {
    device_.MakeFolder("root/Store");
    device_.Put("root/Store/ValmereProperties.ini", PropertyFile("750"));
    Start();
  }
  ~HungFileCall() override { Stop(); }

  static void Start() {
    const InSystem in_system;
    PRN_Init(0);
  }
  static void Stop() {
    const InSystem in_system;
    PRN_Deinit(1);
  }
  static bool Serves() {
    FaultClient client;
    return client.Ask(GetText(kOwnComponent)) == OwnComponentText();
  }
  std::size_t Markers() const {
    constexpr const char* kMarker = "root/DriverUnloadSuccessful";
    return device_.Has(kMarker) ? device_.Get(kMarker).size() / 4 : 0;
  }
  bool LogHolds(std::string_view text) const {
    return device_.Get("root/Store/ValmereLog.txt").find(text) != std::string::npos;
  }

  DeviceRoot device_;
};

TEST_F(HungFileCall, OfTheLogIsEndedByForce) {
  const HungCall hung(Fault::kWrite);
  FaultClient client;
  EXPECT_TRUE(client.Send(SetText(kReadOnly, "refused, which is logged")));
  ASSERT_TRUE(Eventually([&] { return hung.hangs(); }));
  Stop();
  EXPECT_EQ(Markers(), 1u) << "nothing but the thread was in it";
  Start();
  EXPECT_TRUE(Serves());
}

TEST_F(HungFileCall, OfTheLineWriterKeepsNoLaterServiceFromItsFile) {
#ifdef VALMERE_ADDRESS_SANITIZER
  GTEST_SKIP() << "what the thread held for itself is a leak, and has to be one";
#endif
  const HungCall hung(Fault::kRead);
  FaultClient client;
  EXPECT_TRUE(client.Send(SetText(kPeriod, "1000")));
  ASSERT_TRUE(Eventually([&] { return hung.hangs(); }));
  Stop();
  Start();
  EXPECT_TRUE(Serves());
  FaultClient later;
  EXPECT_TRUE(Holds(later.Ask(GetText(kLoadingError)), ValueText("False")));
  EXPECT_TRUE(later.Send(SetText(kPeriod, "1250")));
  EXPECT_TRUE(Eventually(
      [&] { return device_.Get("root/Store/ValmereProperties.ini") == PropertyFile("1250"); }));
}

// The load lock is held: the thread goes on when the call comes back, and the unload is no clean
// one.
TEST_F(HungFileCall, OfALoadIsLeftBehindAndNobodyWaitsForIt) {
  auto hung = std::make_unique<HungCall>(Fault::kRead);
  FaultClient client;
  EXPECT_TRUE(client.Send(SetText(kLoad, "True")));
  ASSERT_TRUE(Eventually([&] { return hung->hangs(); }));
  Stop();
  EXPECT_EQ(Markers(), 0u);
  EXPECT_TRUE(LogHolds(",Stream threads did not end in time: 0 ended by force, 1 left behind\r\n"));
  Start();
  EXPECT_TRUE(Serves());
  FaultClient later;
  EXPECT_TRUE(Holds(later.Ask(GetText(kLoadingError)), ValueText("False")));
  hung.reset();
  EXPECT_TRUE(Serves());
  later.Close();
  // Task queue, acceptor, publisher, two for lines and log: those of the service that runs.
  constexpr std::uint32_t kOwnThreads = 6;
  EXPECT_TRUE(Eventually([] { return LiveWorkerThreads::Live() == kOwnThreads; }));
  Stop();
  EXPECT_EQ(Markers(), 1u) << "the one that was left behind has gone";
}

}  // namespace
}  // namespace valmere::test
