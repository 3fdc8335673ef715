// Clients that misbehave, each beside one that does not and is served meanwhile.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <memory>

#include "protocol/wire/message_frame.h"
#include "tests/host/valmered_fixture.h"

namespace valmere::test {
namespace {

using ::testing::Each;
using ::testing::HasSubstr;
using ::testing::Not;

class ValmeredLimitsTest : public ValmeredTest {
 protected:
  // The line that says why the handle of a client of this process was closed.
  static std::string ClosedLine(int handle, const std::string& cause) {
    return "valmered: handle " + std::to_string(handle) + " (pid " + std::to_string(getpid()) +
           ", uid " + std::to_string(getuid()) + "): closed: " + cause;
  }
  // One more request of a client, out of many.
  void Serve(const RawClient& client) {
    client.Exchange("still there?");
    log_.Drain();
  }
  // Expects that the client's handle is closed for this cause, while `other` is served.
  void ExpectClosed(const RawClient& client, const RawClient& other, const std::string& line) {
    RepeatUntil([&] { return client.PeerHasClosed(); }, [&] { Serve(other); });
    EXPECT_EQ(valmered_->ReadErrorLine(), line);
    other.Exchange("and now?");
  }
};

TEST_F(ValmeredLimitsTest, ClosesAClientThatLeavesTooManyBytesUnread) {
  Start({"--max-unread", "1M", "--unread-timeout", "3600"});
  RawClient silent(socket_);
  const RawClient other(socket_);
  for (int i = 0; i < 4; ++i) {
    silent.Send(FrameOf("bytes 1000000"));
  }
  ExpectClosed(silent, other, ClosedLine(1, "it left more than 1048576 bytes unread"));
  Stop(SIGTERM);
}

TEST_F(ValmeredLimitsTest, ClosesAClientThatLeavesBytesUnreadForTooLong) {
  Start({"--unread-timeout", "0.3s"});
  RawClient silent(socket_);
  const RawClient other(socket_);
  silent.Send(FrameOf("bytes 1000000"));
  ExpectClosed(silent, other, ClosedLine(1, "it left bytes unread for 0.3 s"));
  Stop(SIGTERM);
}

TEST_F(ValmeredLimitsTest, ClosesAClientThatReadsAByteNowAndThen) {
  Start({"--unread-timeout", "0.5"});
  RawClient slow(socket_);
  const RawClient other(socket_);
  slow.Send(FrameOf("bytes 8000000"));
  RepeatUntil([&] { return slow.PeerHasClosed(); },
              [&] {
                slow.ReceiveExactly(1);
                Serve(other);
              });
  EXPECT_EQ(valmered_->ReadErrorLine(), ClosedLine(1, "it left bytes unread for 0.5 s"));
  Stop(SIGTERM);
}

TEST_F(ValmeredLimitsTest, SendsNothingOfAReplyThatTheClosingOfTheHandleCutsOff) {
  Start({"--frame-timeout", "0.3"});
  const RawClient client(socket_);
  client.Send(FrameOf("cut off") + FrameOf("overdue").substr(0, 21));
  EXPECT_EQ(client.ReceiveToEnd(), "");
  EXPECT_EQ(valmered_->ReadErrorLine(),
            ClosedLine(1, "the rest of a frame did not come within 0.3 s"));
  Stop(SIGTERM);
}

TEST_F(ValmeredLimitsTest, ClosesAClientThatStopsInTheMiddleOfAFrame) {
  Start({"--frame-timeout", "300ms"});
  RawClient half(socket_);
  const RawClient other(socket_);
  half.Send(FrameOf("half a frame").substr(0, 25));
  ExpectClosed(half, other, ClosedLine(1, "the rest of a frame did not come within 0.3 s"));
  EXPECT_THAT(log_.Until("close 1"), Each(Not(HasSubstr("half"))));
  Stop(SIGTERM);
}

TEST_F(ValmeredLimitsTest, ClosesAClientThatStopsInTheMiddleOfItsSecondFrame) {
  Start({"--frame-timeout", "0.3"});
  RawClient half(socket_);
  const RawClient other(socket_);
  half.Send(FrameOf("whole") + FrameOf("half a frame").substr(0, 5));
  EXPECT_EQ(half.ReceiveFrame(), "whole");
  ExpectClosed(half, other, ClosedLine(1, "the rest of a frame did not come within 0.3 s"));
}

TEST_F(ValmeredLimitsTest, ClosesAClientThatSendsAFrameByteByByteForTooLong) {
  Start({"--frame-timeout", "0.5"});
  RawClient slow(socket_);
  const RawClient other(socket_);
  slow.Send(FrameOf(std::string(kMaximumMessageBytes, 'x')).substr(0, kFrameHeaderBytes));
  // Its bytes may meet a closed socket at the end.
  RepeatUntil([&] { return slow.PeerHasClosed() || !slow.TrySend("x"); }, [&] { Serve(other); });
  EXPECT_EQ(valmered_->ReadErrorLine(),
            ClosedLine(1, "the rest of a frame did not come within 0.5 s"));
}

TEST_F(ValmeredLimitsTest, CountsTheTimeOfEachFrameFromItsOwnStart) {
  constexpr std::chrono::seconds kLimit{3};
  Start({"--frame-timeout", std::to_string(kLimit.count())});
  const RawClient client(socket_);
  const std::string frame = FrameOf("again");
  const auto start = std::chrono::steady_clock::now();
  // There is never a moment without a frame that has begun.
  client.Send(frame.substr(0, 7));
  while (std::chrono::steady_clock::now() - start < kLimit + kLimit / 3 && !HasFailure()) {
    client.Send(frame.substr(7) + frame.substr(0, 7));
    EXPECT_EQ(client.ReceiveFrame(), "again");
    log_.Drain();
  }
}

TEST_F(ValmeredLimitsTest, LeavesAClientAloneThatIsSilentBetweenFrames) {
  Start({"--frame-timeout", "0.01", "--unread-timeout", "0.01"});
  const RawClient idle(socket_);
  idle.Exchange("a");
  const RawClient half(socket_);
  half.Send("\xb3");
  RepeatUntil([&] { return half.PeerHasClosed(); }, [&] { Serve(idle); });
  idle.Exchange("c");
}

TEST_F(ValmeredLimitsTest, TurnsAwayClientsOverTheLimit) {
  Start({"--max-clients", "2"});
  const RawClient first(socket_);
  first.Exchange("a");
  auto second = std::make_unique<RawClient>(socket_);
  second->Exchange("b");
  for (int i = 0; i < 50; ++i) {
    EXPECT_EQ(RawClient(socket_).ReceiveToEnd(), "");
  }
  EXPECT_EQ(valmered_->ReadErrorLine(),
            "valmered: turned away 1 client: 2 are served, which is the limit of --max-clients");
  first.Exchange("c");
  second->Exchange("d");
  second.reset();
  bool served = false;
  RepeatUntil([&] { return served; },
              [&] {
                const RawClient next(socket_);
                served = next.TrySend(FrameOf("e")) && next.ReceiveFrameIfAny() == "e";
                log_.Drain();
              });
  Stop(SIGTERM);  // which expects that nothing more was said
}

TEST_F(ValmeredLimitsTest, GivesAClientAReplyThatIsLongerThanMayBeUnread) {
  Start({"--max-unread", "1000"});
  const RawClient client(socket_);
  for (int i = 0; i < 3; ++i) {
    client.Send(FrameOf("bytes 5000000"));
    EXPECT_EQ(client.ReceiveFrame().size(), 5000000U);
  }
  Stop(SIGTERM);
}

TEST_F(ValmeredLimitsTest, GivesALateReaderEverythingInOrder) {
  Start();
  const RawClient late(socket_);
  std::string wanted;
  std::string last;
  for (int i = 0; i < 300; ++i) {
    last = FrameOf("frame " + std::to_string(i));
    late.Send(FrameOf("bytes 20000") + last);
    log_.Drain();
    wanted += FrameOf(std::string(20000, 'x')) + last;
  }
  EXPECT_EQ(log_.Until("write 1 29 frame frame 299").back(), "write 1 29 frame frame 299");
  late.FinishSending();
  EXPECT_TRUE(late.ReceiveToEnd() == wanted);
  Stop(SIGTERM);
}

TEST_F(ValmeredLimitsTest, GivesALateReaderWhatTheServiceSaidBeforeItEndedTheSession) {
  Start();
  const RawClient late(socket_);
  late.Send(FrameOf("bytes 3000000") + FrameOf("end"));
  log_.Until("write 1 23 frame end");
  const RawClient other(socket_);
  other.Exchange("a");
  EXPECT_TRUE(late.ReceiveToEnd() == FrameOf(std::string(3000000, 'x')));
  EXPECT_EQ(log_.Until("close 1").back(), "close 1");
}

TEST_F(ValmeredLimitsTest, ClosesAClientThatNeverTakesTheRestOfAnEndedSession) {
  Start({"--unread-timeout", "0.3"});
  RawClient silent(socket_);
  const RawClient other(socket_);
  silent.Send(FrameOf("bytes 3000000") + FrameOf("end"));
  ExpectClosed(silent, other, ClosedLine(1, "it left bytes unread for 0.3 s"));
}

TEST_F(ValmeredLimitsTest, EndsWhileManyClientsDoNotRead) {
  Start();
  std::vector<std::unique_ptr<RawClient>> silent;
  for (int i = 0; i < 50; ++i) {
    silent.push_back(std::make_unique<RawClient>(socket_));
    silent.back()->Send(FrameOf("bytes 500000") + FrameOf("bytes 500000"));
  }
  RawClient(socket_).Exchange("a");
  Stop(SIGTERM);
}

}  // namespace
}  // namespace valmere::test
