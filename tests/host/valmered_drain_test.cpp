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

constexpr std::size_t kMoreThanASocketTakes = 8'000'000;

class ValmeredDrainTest : public ValmeredTest {
 protected:
  ValmeredDrainTest() { drain_timeout_ = "2"; }

  // A client for which more waits than its socket takes, and that has asked for more.
  std::unique_ptr<RawClient> ConnectSilent() {
    auto silent = std::make_unique<RawClient>(socket_);
    silent->AskWithoutReading(kMoreThanASocketTakes);
    silent->Send(FrameOf(GetText(kOwnComponent)));
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
    EXPECT_GT(client.ReceiveFrame().size(), kMoreThanASocketTakes);
    EXPECT_EQ(client.ReceiveFrame(), OwnComponentText());
    EXPECT_EQ(client.ReceiveToEnd(), "");
  }
};

TEST_F(ValmeredDrainTest, AnswersAllThatItHasWhenTheSignalComes) {
  drain_timeout_ = "60s";
  Start();
  const RawClient client(socket_);
  client.Exchange("first");
  std::string requests;
  std::string answers;
  for (int i = 0; i < 100; ++i) {
    requests += client.Request(std::to_string(i));
    answers += FrameOf(client.Published(std::to_string(i)));
  }
  client.Send(requests + client.Request("half").substr(0, 22));
  valmered_->Signal(SIGTERM);
  EXPECT_EQ(client.ReceiveToEnd(), answers);
  ExpectCleanEnd();
  EXPECT_EQ(valmered_->errors(), "");
}

TEST_F(ValmeredDrainTest, IsNotHeldUpForLongerByAClientThatDoesNotRead) {
  drain_timeout_ = "200ms";
  Start({"--unread-timeout", "3600"});
  const auto silent = ConnectSilent();
  Stop(SIGTERM);
  EXPECT_THAT(silent->ReceiveToEnd(), Not(EndsWith(FrameOf(OwnComponentText()))));
}

TEST_F(ValmeredDrainTest, EndsAtOnceWithoutTimeForIt) {
  drain_timeout_ = "0";
  Start({"--unread-timeout", "3600"});
  const auto silent = ConnectSilent();
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
  ExpectCleanEnd();
  EXPECT_EQ(valmered_->errors(), "");
}

TEST_F(ValmeredDrainTest, TellsItsServiceManagerBeforeItWaits) {
  const NoticeSocket notices(folder_.Path("notify"));
  drain_timeout_ = "60s";
  valmered_ = std::make_unique<Subprocess>(Command(),
                                           std::vector{"NOTIFY_SOCKET=" + folder_.Path("notify")});
  EXPECT_THAT(notices.Next(), StartsWith("READY=1\n"));
  const auto silent = ConnectSilent();
  valmered_->Signal(SIGTERM);
  EXPECT_EQ(notices.Next(), "STOPPING=1");
  ExpectAllFor(*silent);
  ExpectCleanEnd();
}

TEST_F(ValmeredDrainTest, LetsSubscribersGoWithoutWaiting) {
  drain_timeout_ = "60s";
  Start();
  const std::size_t descriptors = DescriptorsOf(valmered_->process());
  const RawClient subscriber(socket_);
  subscriber.Send(FrameOf(SubscribeText(subscriber.address())));
  EXPECT_EQ(subscriber.Ask(GetText(kOwnComponent)), OwnComponentText());
  const RawClient never(socket_);
  RepeatUntil([&] { return DescriptorsOf(valmered_->process()) == descriptors + 2; }, [] {});
  valmered_->Signal(SIGTERM);
  EXPECT_EQ(subscriber.ReceiveToEnd(), "");
  EXPECT_EQ(never.ReceiveToEnd(), "");
  ExpectCleanEnd();
}

}  // namespace
}  // namespace valmere::test
