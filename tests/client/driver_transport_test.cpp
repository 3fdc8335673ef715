// Frames over a driver handle; the driver is the tests' own.
#include "client/driver_transport.h"

#include <gtest/gtest.h>

#include <thread>

#include "driver/prn.h"
#include "tests/client/deadlines.h"
#include "tests/client/fake_service.h"

namespace valmere::test {
using namespace client;
namespace {

using test::FrameOf;

class DriverTransportTest : public ::testing::Test {
 protected:
  std::string ReceiveText() {
    std::string text;
    const auto result = transport_->Receive(text, Soon());
    return result ? text : "failed: " + result.error().text;
  }
  ErrorKind ReceiveError(Deadline deadline) {
    std::string text;
    const auto result = transport_->Receive(text, deadline);
    EXPECT_FALSE(result);
    return result.error().kind;
  }

  std::unique_ptr<Transport> transport_ =
      std::move(OpenDriver({PRN_Open, PRN_Close, PRN_Read, PRN_Write}, 1).value());
};

TEST_F(DriverTransportTest, CarriesFramesBothWaysInOrder) {
  ASSERT_TRUE(transport_->Send(FrameOf("one"), Soon()));
  ASSERT_TRUE(transport_->Send(FrameOf(""), Soon()));
  EXPECT_EQ(ReceiveText(), "one");
  EXPECT_EQ(ReceiveText(), "");
  ASSERT_TRUE(transport_->Send(FrameOf("bytes 5000000"), Soon()));
  EXPECT_EQ(ReceiveText().size(), 5000000U);
}

TEST_F(DriverTransportTest, GivesUpAtTheDeadline) {
  EXPECT_EQ(ReceiveError(Past()), ErrorKind::kTimeout);
  ASSERT_TRUE(transport_->Send(FrameOf("silent"), Soon()));
  EXPECT_EQ(ReceiveError(Past()), ErrorKind::kTimeout);
  ASSERT_TRUE(transport_->Send(FrameOf("go on"), Soon()));
  EXPECT_EQ(ReceiveText(), "go on");
}

TEST_F(DriverTransportTest, DeliversWhatCameBeforeTheServiceEndedTheSession) {
  ASSERT_TRUE(transport_->Send(FrameOf("last words"), Soon()));
  ASSERT_TRUE(transport_->Send(FrameOf("end"), Soon()));
  EXPECT_EQ(ReceiveText(), "last words");
  EXPECT_EQ(ReceiveError(Deadline::Never()), ErrorKind::kConnectionLost);
}

TEST_F(DriverTransportTest, ReportsADriverThatRefusesBytes) {
  EXPECT_EQ(transport_->Send(FrameOf("refuse"), Soon()).error().kind, ErrorKind::kConnectionLost);
  EXPECT_EQ(ReceiveError(Soon()), ErrorKind::kConnectionLost);
}

TEST_F(DriverTransportTest, IsInterruptedByAnyThreadOnce) {
  std::thread other([&] { transport_->Interrupt(); });
  EXPECT_EQ(ReceiveError(Deadline::Never()), ErrorKind::kInterrupted);
  other.join();
  EXPECT_EQ(ReceiveError(Past()), ErrorKind::kTimeout);
}

TEST_F(DriverTransportTest, IsClosedByAnyThread) {
  ASSERT_TRUE(transport_->Send(FrameOf("silent"), Soon()));
  std::thread other([&] { transport_->Close(); });
  EXPECT_EQ(ReceiveError(Deadline::Never()), ErrorKind::kConnectionLost);
  other.join();
}

TEST(OpenDriver, SaysThatNoServiceRuns) {
  const auto none = [](std::uint32_t, std::uint32_t, std::uint32_t) { return std::uint32_t{0}; };
  const auto transport = OpenDriver({none, PRN_Close, PRN_Read, PRN_Write}, 1);
  ASSERT_FALSE(transport);
  EXPECT_EQ(transport.error().kind, ErrorKind::kCannotConnect);
  EXPECT_EQ(transport.error().text, "cannot open the driver: no service runs there");
}

TEST_F(DriverTransportTest, EndsWhileTheDriverHasNothingToSay) {
  ASSERT_TRUE(transport_->Send(FrameOf("silent"), Soon()));
  transport_->Close();
  EXPECT_EQ(ReceiveError(Soon()), ErrorKind::kConnectionLost);
  EXPECT_EQ(transport_->Send(FrameOf("x"), Soon()).error().kind, ErrorKind::kConnectionLost);
}

}  // namespace
}  // namespace valmere::test
