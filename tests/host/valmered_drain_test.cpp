// What valmered still does for its clients after the signal that ends it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/host/valmered_fixture.h"

namespace valmere::test {
namespace {

using ::testing::EndsWith;
using ::testing::Not;
using ::testing::StartsWith;

// With the driver that only tests use.
class ValmeredDrainTest : public ValmeredTest {
 protected:
  ValmeredDrainTest() { drain_timeout_ = "2"; }

  // A client for which more waits than its socket takes.
  std::unique_ptr<RawClient> ConnectSilent() {
    auto silent = std::make_unique<RawClient>(socket_);
    silent->Send(FrameOf("bytes 8000000") + FrameOf("b"));
    log_.Until("write 2 21 frame b");
    return silent;
  }
  // Whether no client is accepted any more.
  bool Refuses() const try {
    RawClient client(socket_);
    return false;
  } catch (const std::runtime_error&) {
    return true;
  }
  static void ExpectAllFor(const RawClient& client) {
    EXPECT_EQ(client.ReceiveFrame().size(), 8000000U);
    EXPECT_EQ(client.ReceiveFrame(), "b");
    EXPECT_EQ(client.ReceiveToEnd(), "");
  }
};

TEST_F(ValmeredDrainTest, AnswersAllThatItHasWhenTheSignalComes) {
  Start();
  const RawClient client(socket_);
  client.Exchange("first");
  std::string frames;
  for (int i = 0; i < 500; ++i)
    frames += FrameOf("request " + std::to_string(i));
  client.Send(frames + FrameOf("half").substr(0, 22));
  valmered_->Signal(SIGTERM);
  EXPECT_EQ(client.ReceiveToEnd(), frames);
  EXPECT_EQ(valmered_->Wait(), 0);
  EXPECT_EQ(valmered_->errors(), "");
}

TEST_F(ValmeredDrainTest, IsNotHeldUpForLongerByAClientThatDoesNotRead) {
  drain_timeout_ = "200ms";
  Start({"--unread-timeout", "3600"});
  const auto silent = ConnectSilent();
  Stop(SIGTERM);
  EXPECT_THAT(silent->ReceiveToEnd(), Not(EndsWith(FrameOf("b"))));
}

TEST_F(ValmeredDrainTest, EndsAtOnceWithoutTimeForIt) {
  drain_timeout_ = "0";
  Start({"--unread-timeout", "3600"});
  const RawClient silent(socket_);
  silent.Send(FrameOf("bytes 8000000"));
  log_.Until("write 1 33 frame bytes 8000000");
  Stop(SIGTERM);
}

TEST_F(ValmeredDrainTest, IsNotCutShortByMoreSignals) {
  drain_timeout_ = "60s";
  Start();
  const auto silent = ConnectSilent();
  valmered_->Signal(SIGTERM);
  RepeatUntil([&] { return Refuses(); }, [] {});
  for (const int number : {SIGTERM, SIGINT, SIGHUP})
    valmered_->Signal(number);
  ExpectAllFor(*silent);
  EXPECT_EQ(valmered_->Wait(), 0);
  EXPECT_EQ(valmered_->errors(), "");
}

TEST_F(ValmeredDrainTest, TellsItsServiceManagerBeforeItWaits) {
  const NoticeSocket notices(folder_.Path("notify"));
  drain_timeout_ = "60s";
  valmered_ = std::make_unique<Subprocess>(
      Command(), std::vector{environment_[0], "NOTIFY_SOCKET=" + folder_.Path("notify")});
  EXPECT_THAT(notices.Next(), StartsWith("READY=1\n"));
  const auto silent = ConnectSilent();
  valmered_->Signal(SIGTERM);
  EXPECT_EQ(notices.Next(), "STOPPING=1");
  ExpectAllFor(*silent);
  EXPECT_EQ(valmered_->Wait(), 0);
}

TEST_F(ValmeredDrainTest, LetsSubscribersGoWithoutWaiting) {
  drain_timeout_ = "60s";
  Start();
  const RawClient silent(socket_);
  silent.Send(FrameOf("silent"));
  const RawClient never(socket_);
  log_.Until("open 3");
  valmered_->Signal(SIGTERM);
  EXPECT_EQ(silent.ReceiveToEnd(), "");
  EXPECT_EQ(never.ReceiveToEnd(), "");
  EXPECT_EQ(valmered_->Wait(), 0);
}

}  // namespace
}  // namespace valmere::test
