// Clients that misbehave, each beside one that does not and is served meanwhile.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <memory>
#include <string>
#include <vector>

#include "protocol/wire/message_frame.h"
#include "tests/host/valmered_fixture.h"

namespace valmere::test {
namespace {

using ::testing::MatchesRegex;

constexpr char kNoFrames[] = "its bytes are no frames";

class ValmeredLimitsTest : public ValmeredTest {
 protected:
  // Expects that the client is closed for this cause, while `other` is served.
  void ExpectClosed(const RawClient& client, const RawClient& other, const std::string& cause) {
    RepeatUntil([&] { return client.PeerHasClosed(); }, [&] { other.Exchange("still there?"); });
    ExpectTold(cause);
    other.Exchange("and now?");
  }
  void ExpectTold(const std::string& cause) {
    EXPECT_THAT(valmered_->ReadErrorLine(), MatchesRegex(ClosedLine(cause)));
  }
};

TEST_F(ValmeredLimitsTest, ClosesAClientThatLeavesTooManyBytesUnread) {
  Start({"--max-unread", "1M", "--unread-timeout", "3600"});
  const RawClient silent(socket_);
  const RawClient other(socket_);
  silent.Send(FrameOf(SubscribeText(other.address())));
  EXPECT_EQ(silent.Ask(GetText(kOwnComponent)), OwnComponentText());
  char next = 'a';
  const auto change = [&] { other.Exchange(std::string(900'000, next = next == 'a' ? 'b' : 'a')); };
  RepeatUntil([&] { return silent.PeerHasClosed(); }, change);
  ExpectTold("it left more than 1048576 bytes unread");
  other.Exchange("and now?");
  Stop(SIGTERM);
}

TEST_F(ValmeredLimitsTest, ClosesAClientThatLeavesBytesUnreadForTooLong) {
  Start({"--unread-timeout", "0.3s"});
  const RawClient silent(socket_);
  const RawClient other(socket_);
  silent.AskWithoutReading(1'000'000);
  ExpectClosed(silent, other, "it left bytes unread for 0.3 s");
  Stop(SIGTERM);
}

TEST_F(ValmeredLimitsTest, ClosesAClientThatReadsAByteNowAndThen) {
  Start({"--unread-timeout", "0.5"});
  const RawClient slow(socket_);
  const RawClient other(socket_);
  slow.AskWithoutReading(8'000'000);
  RepeatUntil([&] { return slow.PeerHasClosed(); },
              [&] {
                slow.ReceiveExactly(1);
                other.Exchange("still there?");
              });
  ExpectTold("it left bytes unread for 0.5 s");
  Stop(SIGTERM);
}

TEST_F(ValmeredLimitsTest, ClosesAClientThatStopsInTheMiddleOfAFrame) {
  Start({"--frame-timeout", "300ms"});
  const RawClient half(socket_);
  const RawClient other(socket_);
  other.Exchange("whole");
  half.Send(FrameOf(SetText(other.address(), "half a frame")).substr(0, 25));
  ExpectClosed(half, other, "the rest of a frame did not come within 0.3 s");
  Stop(SIGTERM);
}

TEST_F(ValmeredLimitsTest, ClosesAClientThatStopsInTheMiddleOfItsSecondFrame) {
  Start({"--frame-timeout", "0.3"});
  const RawClient half(socket_);
  const RawClient other(socket_);
  half.Send(half.Request("whole") + FrameOf("half a frame").substr(0, 5));
  EXPECT_EQ(half.ReceiveFrame(), half.Published("whole"));
  ExpectClosed(half, other, "the rest of a frame did not come within 0.3 s");
}

TEST_F(ValmeredLimitsTest, ClosesAClientThatSendsAFrameByteByByteForTooLong) {
  Start({"--frame-timeout", "0.5"});
  const RawClient slow(socket_);
  const RawClient other(socket_);
  slow.Send(FrameOf(std::string(kMaximumMessageBytes, 'x')).substr(0, kFrameHeaderBytes));
  // Its bytes may meet a closed socket at the end.
  RepeatUntil([&] { return slow.PeerHasClosed() || !slow.TrySend("x"); },
              [&] { other.Exchange("still there?"); });
  ExpectTold("the rest of a frame did not come within 0.5 s");
}

TEST_F(ValmeredLimitsTest, ClosesAClientThatSendsNoFrames) {
  Start({"--frame-timeout", "0.3"});
  const RawClient junk(socket_);
  const RawClient other(socket_);
  junk.Send("this begins no frame");
  ExpectClosed(junk, other, kNoFrames);
  Stop(SIGTERM);
}

TEST_F(ValmeredLimitsTest, ClosesAClientThatGoesOnSendingNoFrames) {
  Start({"--frame-timeout", "0.3"});
  const RawClient junk(socket_);
  const RawClient other(socket_);
  const std::string bytes(100'000, 'x');
  RepeatUntil([&] { return !junk.TrySend(bytes); }, [&] { other.Exchange("still there?"); });
  ExpectTold(kNoFrames);
  Stop(SIGTERM);
}

TEST_F(ValmeredLimitsTest, CountsTheTimeOfEachFrameFromItsOwnStart) {
  constexpr std::chrono::seconds kLimit{3};
  Start({"--frame-timeout", std::to_string(kLimit.count())});
  const RawClient client(socket_);
  client.Exchange("again");
  const std::string frame = FrameOf(client.Get());
  const auto start = std::chrono::steady_clock::now();
  // There is never a moment without a frame that has begun.
  client.Send(frame.substr(0, 7));
  while (std::chrono::steady_clock::now() - start < kLimit + kLimit / 3 && !HasFailure()) {
    client.Send(frame.substr(7) + frame.substr(0, 7));
    EXPECT_EQ(client.ReceiveFrame(), client.Published("again"));
  }
}

TEST_F(ValmeredLimitsTest, LeavesAClientAloneThatIsSilentBetweenFrames) {
  Start({"--frame-timeout", "0.01", "--unread-timeout", "0.01"});
  const RawClient idle(socket_);
  idle.Send(FrameOf(GetText(kOwnComponent)));
  EXPECT_EQ(idle.ReceiveFrame(), OwnComponentText());
  const RawClient half(socket_);
  half.Send("\xb3");
  RepeatUntil([&] { return half.PeerHasClosed(); },
              [&] { EXPECT_EQ(idle.Ask(GetText(kOwnComponent)), OwnComponentText()); });
  EXPECT_EQ(idle.Ask(GetText(kOwnComponent)), OwnComponentText());
}

TEST_F(ValmeredLimitsTest, TurnsAwayClientsOverTheLimit) {
  Start({"--max-clients", "2"});
  const RawClient first(socket_);
  first.Exchange("a");
  auto second = std::make_unique<RawClient>(socket_);
  second->Exchange("b");
  for (int i = 0; i < 50; ++i)
    EXPECT_EQ(RawClient(socket_).ReceiveToEnd(), "");
  EXPECT_EQ(valmered_->ReadErrorLine(), "valmered: turned away 1 client, the last one pid " +
                                            std::to_string(getpid()) + ", uid " +
                                            std::to_string(getuid()) +
                                            ": 2 are served, which is the limit of --max-clients");
  first.Exchange("c");
  second->Exchange("d");
  second.reset();
  bool served = false;
  RepeatUntil([&] { return served; },
              [&] {
                const RawClient next(socket_);
                served = next.TrySend(next.Request("e")) &&
                         next.ReceiveFrameIfAny() == next.Published("e");
              });
  Stop(SIGTERM);  // which expects that nothing more was said
}

// A client of another process, which is a child of this one.
bool IsServedInAnotherProcess(const std::string& socket) {
  const pid_t child = fork();
  if (child == 0) {
    const RawClient client(socket);
    const bool sent = client.TrySend(client.Request("other"));
    _exit(sent && client.ReceiveFrameIfAny() == client.Published("other") ? 0 : 1);
  }
  int status = 0;
  return waitpid(child, &status, 0) == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

TEST_F(ValmeredLimitsTest, TurnsAwayClientsOverTheLimitOfTheirProcess) {
  Start({"--max-clients-per-process", "2"});
  const RawClient first(socket_);
  first.Exchange("a");
  const RawClient silent(socket_);
  for (int i = 0; i < 20; ++i)
    EXPECT_EQ(RawClient(socket_).ReceiveToEnd(), "");
  EXPECT_EQ(valmered_->ReadErrorLine(),
            "valmered: turned away 1 client, the last one pid " + std::to_string(getpid()) +
                ", uid " + std::to_string(getuid()) +
                ": 2 are served, which is the limit of --max-clients-per-process");
  EXPECT_TRUE(IsServedInAnotherProcess(socket_));
  silent.Exchange("b");
  first.Exchange("c");
  Stop(SIGTERM);
}

TEST_F(ValmeredLimitsTest, GivesAClientAReplyThatIsLongerThanMayBeUnread) {
  Start({"--max-unread", "1000"});
  const RawClient client(socket_);
  client.Exchange(std::string(2'500'000, 'x'));
  for (int i = 0; i < 3; ++i)
    EXPECT_GT(client.Ask(GetManyText(client.address(), 2)).size(), 5'000'000U);
  Stop(SIGTERM);
}

TEST_F(ValmeredLimitsTest, GivesALateReaderEverythingInOrder) {
  constexpr int kTimes = 100;
  Start();
  const RawClient late(socket_);
  const std::string large(20'000, 'x');
  late.Exchange(large);
  std::string requests;
  std::string wanted;
  for (int i = 0; i < kTimes; ++i) {
    const Address none{"No such component", "frame:" + std::to_string(i)};
    requests += FrameOf(late.Get()) + FrameOf(GetText(none));
    wanted += FrameOf(late.Published(large)) + FrameOf(NotFoundText(none));
  }
  late.Send(requests);
  RawClient(socket_).Exchange("meanwhile");
  late.FinishSending();
  EXPECT_TRUE(late.ReceiveToEnd() == wanted);
  Stop(SIGTERM);
}

TEST_F(ValmeredLimitsTest, GivesALateReaderWhatTheServiceSaidBeforeItEndedTheSession) {
  Start();
  const RawClient late(socket_);
  const std::string large(3'000'000, 'x');
  late.Send(late.Request(large) + FrameOf(kDisconnect));
  const RawClient other(socket_);
  RepeatUntil([&] { return other.Ask(late.Get()) == late.Published(large); }, [] {});
  EXPECT_TRUE(late.ReceiveToEnd() == FrameOf(late.Published(large)));
  RepeatUntil([&] { return other.Ask(late.Get()) == NotFoundText(late.address()); }, [] {});
}

TEST_F(ValmeredLimitsTest, ClosesAClientThatNeverTakesTheRestOfAnEndedSession) {
  Start({"--unread-timeout", "0.3"});
  const RawClient silent(socket_);
  const RawClient other(socket_);
  silent.AskWithoutReading(3'000'000);
  silent.Send(FrameOf(kDisconnect));
  ExpectClosed(silent, other, "it left bytes unread for 0.3 s");
}

TEST_F(ValmeredLimitsTest, EndsWhileManyClientsDoNotRead) {
  Start();
  std::vector<std::unique_ptr<RawClient>> silent;
  for (int i = 0; i < 50; ++i) {
    silent.push_back(std::make_unique<RawClient>(socket_));
    silent.back()->AskWithoutReading(500'000);
    silent.back()->Send(FrameOf(silent.back()->Get()));
  }
  RawClient(socket_).Exchange("a");
  Stop(SIGTERM);
}

}  // namespace
}  // namespace valmere::test
