// valmered as its clients and its operator see it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <csignal>
#include <filesystem>

#include "protocol/wire/message_frame.h"
#include "tests/host/valmered_fixture.h"

namespace valmere::test {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

constexpr char kDisconnect[] = R"({"Disconnect": true})";

TEST_F(ValmeredTest, EndsCleanlyOnSigterm) {
  Start();
  Stop(SIGTERM);
  EXPECT_FALSE(std::filesystem::exists(socket_));
}

TEST_F(ValmeredTest, EndsCleanlyOnSigint) {
  Start();
  Stop(SIGINT);
  EXPECT_FALSE(std::filesystem::exists(socket_));
}

TEST_F(ValmeredTest, EndsOnASignalThatComesWhileTheDriverStarts) {
  Subprocess process(Command(), {environment_[0], "FAKE_DRIVER_SIGNAL=1"});
  EXPECT_EQ(process.Wait(), 0);
  EXPECT_EQ(process.output(), "");
  EXPECT_THAT(log_.Until("deinit 1 open 0"),
              ElementsAre("init " + root_ + " log 16777216", "deinit 1 open 0"));
}

TEST_F(ValmeredTest, MakesTheRootAndASocketForOwnerAndGroup) {
  Start();
  EXPECT_TRUE(std::filesystem::is_directory(root_));
  struct stat file {};
  ASSERT_EQ(stat(socket_.c_str(), &file), 0);
  EXPECT_EQ(file.st_mode & 07777, 0660U);
}

TEST_F(ValmeredTest, GivesEachClientItsOwnHandle) {
  Start();
  RawClient first(socket_);
  first.Send(FrameOf("a"));
  EXPECT_EQ(first.ReceiveFrame(), "a");
  RawClient second(socket_);
  second.Send(FrameOf("b"));
  EXPECT_EQ(second.ReceiveFrame(), "b");
  EXPECT_THAT(log_.Until("write 2 21 frame b"),
              ElementsAre("open 1", "write 1 21 frame a", "open 2", "write 2 21 frame b"));
}

TEST_F(ValmeredTest, WritesAFrameThatComesByteByByteInOneCall) {
  Start();
  RawClient client(socket_);
  for (const char byte : FrameOf("hello")) {
    client.Send(std::string(1, byte));
  }
  EXPECT_EQ(client.ReceiveFrame(), "hello");
  EXPECT_THAT(log_.Until("write 1 25 frame hello"),
              ElementsAre("open 1", "write 1 25 frame hello"));
}

TEST_F(ValmeredTest, WritesEachOfManyFramesInACallOfItsOwn) {
  Start();
  RawClient client(socket_);
  std::string stream;
  for (int i = 0; i < 500; ++i) {
    stream += FrameOf(std::to_string(i));
  }
  client.Send(stream);
  for (int i = 0; i < 500; ++i) {
    ASSERT_EQ(client.ReceiveFrame(), std::to_string(i));
  }
  EXPECT_EQ(log_.Until("write 1 23 frame 499").size(), 501U);
}

TEST_F(ValmeredTest, CarriesFramesOfNoText) {
  Start();
  RawClient client(socket_);
  client.Send(FrameOf(""));
  EXPECT_EQ(client.ReceiveFrame(), "");
  client.Send(FrameOf("a"));
  EXPECT_EQ(client.ReceiveFrame(), "a");
}

TEST_F(ValmeredTest, CarriesTheGreatestFrameBothWays) {
  Start();
  RawClient client(socket_);
  const std::string text(kMaximumMessageBytes, 'y');
  client.Send(FrameOf(text));
  EXPECT_TRUE(client.ReceiveFrame() == text);
  EXPECT_THAT(log_.Until("write 1 4194324 frame").size(), 2U);
}

TEST_F(ValmeredTest, CarriesRepliesThatAreLongerThanARequestMayBe) {
  Start();
  RawClient client(socket_);
  client.Send(FrameOf("bytes 9000000") + FrameOf("after"));
  EXPECT_EQ(client.ReceiveFrame().size(), 9000000U);
  EXPECT_EQ(client.ReceiveFrame(), "after");
}

TEST_F(ValmeredTest, HandsGarbageOnAndPassesTheEndOfTheSessionBack) {
  Start();
  RawClient client(socket_);
  client.Send("this begins no frame");
  EXPECT_EQ(client.ReceiveToEnd(), "");
  EXPECT_THAT(log_.Until("close 1"), ElementsAre("open 1", "write 1 20 bytes", "close 1"));
}

TEST_F(ValmeredTest, HandsTheHeaderOfAnOverlongFrameOnBeforeItsBody) {
  Start();
  RawClient client(socket_);
  client.Send(FrameOf("").substr(0, 16) + std::string("\x01\x00\x40\x00", 4));
  EXPECT_EQ(client.ReceiveToEnd(), "");
  EXPECT_THAT(log_.Until("close 1"), ElementsAre("open 1", "write 1 20 bytes", "close 1"));
}

TEST_F(ValmeredTest, EndsTheConnectionWhenTheServiceEndsTheSession) {
  Start();
  RawClient client(socket_);
  client.Send(FrameOf("last words") + FrameOf("end"));
  EXPECT_EQ(client.ReceiveToEnd(), FrameOf("last words"));
  EXPECT_EQ(log_.Until("close 1").back(), "close 1");
}

TEST_F(ValmeredTest, EndsTheConnectionWhenTheDriverRefusesBytes) {
  Start();
  RawClient client(socket_);
  client.Send(FrameOf("refuse"));
  EXPECT_EQ(client.ReceiveToEnd(), "");
  EXPECT_EQ(log_.Until("close 1").back(), "close 1");
}

TEST_F(ValmeredTest, StillAnswersAClientThatHasFinishedSending) {
  Start();
  RawClient client(socket_);
  client.Send(FrameOf("one") + FrameOf("two"));
  client.FinishSending();
  EXPECT_EQ(client.ReceiveToEnd(), FrameOf("one") + FrameOf("two"));
  EXPECT_THAT(log_.Until("close 1"),
              ElementsAre("open 1", "write 1 23 frame one", "write 1 23 frame two",
                          std::string("write 1 40 frame ") + kDisconnect, "close 1"));
}

TEST_F(ValmeredTest, PassesOnWhatAClientSentBeforeItVanished) {
  Start();
  {
    RawClient client(socket_);
    client.Send(FrameOf("one") + FrameOf("two") + FrameOf("half").substr(0, 22));
  }
  const auto calls = log_.Until("close 1");
  ASSERT_GE(calls.size(), 4U);
  EXPECT_EQ(calls[1], "write 1 23 frame one");
  EXPECT_EQ(calls[2], "write 1 23 frame two");
  for (const std::string& call : calls) {
    EXPECT_THAT(call, ::testing::Not(HasSubstr("half")));
    EXPECT_THAT(call, ::testing::Not(HasSubstr("bytes")));
  }
}

TEST_F(ValmeredTest, ClosesTheHandleOfAClientThatNeverSentAnything) {
  Start();
  { RawClient client(socket_); }
  EXPECT_THAT(log_.Until("close 1"), ElementsAre("open 1", "close 1"));
}

TEST_F(ValmeredTest, ClosesTheHandleOfAClientThatLeavesAfterGarbage) {
  Start();
  {
    RawClient client(socket_);
    client.Send("short");
  }
  EXPECT_THAT(log_.Until("close 1"), ElementsAre("open 1", "write 1 5 bytes", "close 1"));
}

TEST_F(ValmeredTest, SpendsNoThreadOnAClientThatHasSentNothing) {
  Start();
  RawClient speaking(socket_);
  speaking.Send(FrameOf("a"));
  EXPECT_EQ(speaking.ReceiveFrame(), "a");
  const std::size_t threads = ThreadsOf(valmered_->process());
  RawClient first(socket_);
  RawClient second(socket_);
  log_.Until("open 3");
  EXPECT_EQ(ThreadsOf(valmered_->process()), threads);
}

TEST_F(ValmeredTest, ServesTwoHundredClientsAtOnce) {
  Start();
  std::vector<std::unique_ptr<RawClient>> clients;
  for (int i = 0; i < 200; ++i) {
    clients.push_back(std::make_unique<RawClient>(socket_));
    clients.back()->Send(FrameOf("client " + std::to_string(i)));
  }
  for (int i = 0; i < 200; ++i) {
    EXPECT_EQ(clients[static_cast<std::size_t>(i)]->ReceiveFrame(), "client " + std::to_string(i));
  }
  Stop(SIGTERM);
  for (const auto& client : clients) {
    EXPECT_EQ(client->ReceiveToEnd(), "");
  }
}

TEST_F(ValmeredTest, IsNotHeldUpByAClientThatNeverReads) {
  Start();
  RawClient silent(socket_);
  silent.Send(FrameOf("bytes 8000000") + FrameOf("bytes 8000000"));
  log_.Until("write 1 33 frame bytes 8000000");
  RawClient other(socket_);
  other.Send(FrameOf("still there?"));
  EXPECT_EQ(other.ReceiveFrame(), "still there?");
  Stop(SIGTERM);
}

TEST_F(ValmeredTest, EndsWithClientsInEveryState) {
  Start();
  RawClient idle(socket_);
  RawClient waiting(socket_);
  waiting.Send(FrameOf("silent"));
  RawClient half(socket_);
  half.Send(FrameOf("half a frame").substr(0, 25));
  RawClient finished(socket_);
  finished.Send(FrameOf("silent"));
  finished.FinishSending();
  log_.Until("write 4 26 frame silent");
  Stop(SIGTERM);
}

TEST(ValmeredCommand, DemandsARoot) {
  Subprocess refused({VALMERED});
  EXPECT_EQ(refused.Wait(), 2);
  EXPECT_THAT(refused.errors(), HasSubstr("valmered: --root is required"));
  EXPECT_THAT(refused.output(), IsEmpty());
}

TEST(ValmeredCommand, RefusesLimitsThatAreNone) {
  const std::vector<std::pair<std::string, std::string>> bad{
      {"--max-clients", "0"},      {"--max-clients", "-1"},
      {"--frame-timeout", "nan"},  {"--frame-timeout", "0"},
      {"--frame-timeout", "-1"},   {"--unread-timeout", "nan"},
      {"--unread-timeout", "1e9"}, {"--max-unread", "-1"},
      {"--drain-timeout", "nan"},  {"--drain-timeout", "-1"},
      {"--drain-timeout", "2 h"},  {"--drain-timeout", "ms 5"},
      {"--max-unread", "1X"},      {"--max-unread", "99999999999999999999"},
      {"--max-log", "65535"},      {"--max-log", "2TiB"},
  };
  for (const auto& [option, value] : bad) {
    // Were it taken, the root could not be made.
    Subprocess refused({VALMERED, "--root", "/dev/null/root", option, value});
    EXPECT_EQ(refused.Wait(), 2) << option << " " << value;
    EXPECT_THAT(refused.errors(), HasSubstr("valmered: " + option));
  }
}

TEST(ValmeredCommand, ExplainsItself) {
  Subprocess help({VALMERED, "--help"});
  EXPECT_EQ(help.Wait(), 0);
  EXPECT_THAT(help.output(), HasSubstr("--library"));
  Subprocess version({VALMERED, "--version"});
  EXPECT_EQ(version.Wait(), 0);
  EXPECT_THAT(version.output(), testing::MatchesRegex("valmered [0-9.]+\n"));
}

}  // namespace
}  // namespace valmere::test
