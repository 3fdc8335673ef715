// valmered as its clients and its operator see it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "persist/file/crc16.h"
#include "protocol/wire/message_frame.h"
#include "tests/host/valmered_fixture.h"

namespace valmere::test {
namespace {

using ::testing::HasSubstr;
using ::testing::IsEmpty;

// Whether the process handles the signal itself.
bool Catches(pid_t process, int signal) {
  const std::string status = ContentOf("/proc/" + std::to_string(process) + "/status");
  const std::size_t mask = status.find("SigCgt:");
  if (mask == std::string::npos) return false;
  return (std::stoull(status.substr(mask + 7), nullptr, 16) >> (signal - 1) & 1) != 0;
}

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

// The start waits for an override's value that can't get into the file, which has two lines for it.
TEST_F(ValmeredTest, EndsOnASignalThatComesWhileTheServiceStarts) {
#ifdef VALMERE_EMULATED
  GTEST_SKIP() << "an emulator catches signals before its program does";
#endif
  const std::string line = kPeriodAddress.guids + "|General:Property Publishing Period in ms=";
  const auto write = [this](const std::string& name, const std::string& body) {
    const unsigned crc = Crc16(body);
    std::ofstream(root_ + "/Store/" + name, std::ios::binary)
        << body << static_cast<char>(crc & 0xFF) << static_cast<char>(crc >> 8);
  };
  write("ValmereProperties.ini", line + "500\n" + line + "500\n");
  write("ValmerePropertiesOverride.ini", line + "750\n");
  valmered_ = std::make_unique<Subprocess>(Command());
  RepeatUntil([&] { return Catches(valmered_->process(), SIGTERM); }, [] {});
  valmered_->Signal(SIGTERM);
  ExpectCleanEnd();
  EXPECT_EQ(valmered_->output(), "");
}

TEST_F(ValmeredTest, MakesTheRootAndASocketForOwnerAndGroup) {
  Start();
  EXPECT_TRUE(std::filesystem::is_directory(root_));
  struct stat file {};
  ASSERT_EQ(stat(socket_.c_str(), &file), 0);
  EXPECT_EQ(file.st_mode & 07777, 0660U);
}

TEST_F(ValmeredTest, GivesEachClientItsOwnSession) {
  Start();
  const RawClient first(socket_);
  first.Exchange("a");
  const RawClient second(socket_);
  second.Exchange("b");
  first.Send(FrameOf(kDisconnect));
  EXPECT_EQ(first.ReceiveToEnd(), "");
  RepeatUntil([&] { return second.Ask(first.Get()) == NotFoundText(first.address()); }, [] {});
  second.Exchange("c");
}

TEST_F(ValmeredTest, AnswersAFrameThatComesByteByByte) {
  Start();
  const RawClient client(socket_);
  for (const char byte : client.Request("hello"))
    client.Send(std::string(1, byte));
  EXPECT_EQ(client.ReceiveFrame(), client.Published("hello"));
}

TEST_F(ValmeredTest, AnswersEachOfManyFrames) {
  Start();
  const RawClient client(socket_);
  std::string stream;
  for (int i = 0; i < 500; ++i)
    stream += client.Request(std::to_string(i));
  client.Send(stream);
  for (int i = 0; i < 500; ++i)
    ASSERT_EQ(client.ReceiveFrame(), client.Published(std::to_string(i)));
}

TEST_F(ValmeredTest, EndsTheConnectionAtAFrameOfNoText) {
  Start();
  const RawClient client(socket_);
  client.Send(client.Request("a") + FrameOf("") + FrameOf(client.Get()));
  EXPECT_EQ(client.ReceiveToEnd(), FrameOf(client.Published("a")));
}

TEST_F(ValmeredTest, CarriesTheGreatestFrameBothWays) {
  Start();
  const RawClient client(socket_);
  const std::string value(kMaximumMessageBytes - client.Published("").size(), 'y');
  ASSERT_EQ(client.Published(value).size(), kMaximumMessageBytes);
  client.Send(client.Request(value));
  EXPECT_TRUE(client.ReceiveFrame() == client.Published(value));
}

TEST_F(ValmeredTest, CarriesRepliesThatAreLongerThanARequestMayBe) {
  Start();
  const RawClient client(socket_);
  client.AskWithoutReading(9'000'000);
  client.Send(FrameOf(GetText(kOwnComponent)));
  EXPECT_GT(client.ReceiveFrame().size(), 9'000'000U);
  EXPECT_EQ(client.ReceiveFrame(), OwnComponentText());
}

TEST_F(ValmeredTest, EndsTheConnectionAtTheHeaderOfAnOverlongFrame) {
  Start();
  const RawClient client(socket_);
  client.Send(IdentifierBytes() + LengthBytes(kMaximumMessageBytes + 1));
  EXPECT_EQ(client.ReceiveToEnd(), "");
}

TEST_F(ValmeredTest, EndsTheConnectionWhenTheServiceEndsTheSession) {
  Start();
  const RawClient client(socket_);
  client.Send(client.Request("last words") + FrameOf(kDisconnect));
  EXPECT_EQ(client.ReceiveToEnd(), FrameOf(client.Published("last words")));
}

TEST_F(ValmeredTest, EndsTheConnectionWhenTheServiceRefusesAText) {
  Start();
  const RawClient client(socket_);
  client.Send(client.Request("a") + FrameOf("this is no object") + FrameOf(client.Get()));
  EXPECT_EQ(client.ReceiveToEnd(), FrameOf(client.Published("a")));
}

TEST_F(ValmeredTest, StillAnswersAClientThatHasFinishedSending) {
  Start();
  const RawClient client(socket_);
  client.Send(client.Request("one") + client.Request("two"));
  client.FinishSending();
  EXPECT_EQ(client.ReceiveToEnd(),
            FrameOf(client.Published("one")) + FrameOf(client.Published("two")));
}

TEST_F(ValmeredTest, PassesOnWhatAClientSentBeforeItVanished) {
  Start();
  const RawClient owner(socket_);
  owner.Exchange("published");
  Address vanished;
  {
    const RawClient client(socket_);
    vanished = client.address();
    client.Send(client.Request("here") + FrameOf(SetText(owner.address(), "one")) +
                FrameOf(SetText(owner.address(), "two")) +
                FrameOf(SetText(owner.address(), "half")).substr(0, 22));
  }
  EXPECT_EQ(owner.ReceiveFrame(), SetText(owner.address(), "one"));
  EXPECT_EQ(owner.ReceiveFrame(), SetText(owner.address(), "two"));
  RepeatUntil([&] { return owner.Ask(GetText(vanished)) == NotFoundText(vanished); }, [] {});
}

TEST_F(ValmeredTest, FreesThePlaceOfAClientThatNeverSentAnything) {
  Start();
  const std::size_t descriptors = DescriptorsOf(valmered_->process());
  {
    const RawClient client(socket_);
    RepeatUntil([&] { return DescriptorsOf(valmered_->process()) > descriptors; }, [] {});
  }
  RepeatUntil([&] { return DescriptorsOf(valmered_->process()) == descriptors; }, [] {});
  RawClient(socket_).Exchange("still there?");
}

TEST_F(ValmeredTest, FreesThePlaceOfAClientThatLeavesAfterGarbage) {
  Start();
  const std::size_t descriptors = DescriptorsOf(valmered_->process());
  {
    const RawClient client(socket_);
    client.Send("short");
    RepeatUntil([&] { return DescriptorsOf(valmered_->process()) > descriptors; }, [] {});
  }
  RepeatUntil([&] { return DescriptorsOf(valmered_->process()) == descriptors; }, [] {});
  RawClient(socket_).Exchange("still there?");
  valmered_->Signal(SIGTERM);
  ExpectCleanEnd();
  EXPECT_THAT(valmered_->errors(), HasSubstr("closed: what it sent is of no format that is known"));
}

TEST_F(ValmeredTest, SpendsNoThreadOnAClientThatHasSentNothing) {
  Start();
  const RawClient speaking(socket_);
  speaking.Exchange("a");
  const std::size_t threads = ThreadsOf(valmered_->process());
  const std::size_t descriptors = DescriptorsOf(valmered_->process());
  const RawClient first(socket_);
  const RawClient second(socket_);
  RepeatUntil([&] { return DescriptorsOf(valmered_->process()) == descriptors + 2; }, [] {});
  speaking.Exchange("b");
  EXPECT_LE(ThreadsOf(valmered_->process()), threads);
}

TEST_F(ValmeredTest, ServesTwoHundredClientsAtOnce) {
  Start();
  std::vector<std::unique_ptr<RawClient>> clients;
  for (int i = 0; i < 200; ++i) {
    clients.push_back(std::make_unique<RawClient>(socket_));
    clients.back()->Send(clients.back()->Request("client " + std::to_string(i)));
  }
  for (std::size_t i = 0; i < 200; ++i)
    EXPECT_EQ(clients[i]->ReceiveFrame(), clients[i]->Published("client " + std::to_string(i)));
  Stop(SIGTERM);
  for (const auto& client : clients)
    EXPECT_EQ(client->ReceiveToEnd(), "");
}

TEST_F(ValmeredTest, IsNotHeldUpByAClientThatNeverReads) {
  Start();
  const RawClient silent(socket_);
  silent.AskWithoutReading(8'000'000);
  silent.Send(FrameOf(silent.Get()));
  RawClient(socket_).Exchange("still there?");
  Stop(SIGTERM);
}

TEST_F(ValmeredTest, EndsWithClientsInEveryState) {
  Start();
  const RawClient idle(socket_);
  const RawClient waiting(socket_);
  waiting.Exchange("a");
  const RawClient half(socket_);
  half.Send(half.Request("half").substr(0, 25));
  const RawClient finished(socket_);
  finished.Send(FrameOf(finished.Published("b")));
  finished.FinishSending();
  const RawClient unread(socket_);
  unread.AskWithoutReading(3'000'000);
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
      {"--max-clients", "0"},
      {"--max-clients", "-1"},
      {"--max-clients-per-process", "0"},
      {"--max-clients-per-process", "many"},
      {"--max-client-memory", "0"},
      {"--max-client-memory", "1X"},
      {"--frame-timeout", "nan"},
      {"--frame-timeout", "0"},
      {"--frame-timeout", "-1"},
      {"--unread-timeout", "nan"},
      {"--unread-timeout", "1e9"},
      {"--max-unread", "-1"},
      {"--drain-timeout", "nan"},
      {"--drain-timeout", "-1"},
      {"--drain-timeout", "2 h"},
      {"--drain-timeout", "ms 5"},
      {"--max-unread", "1X"},
      {"--max-unread", "99999999999999999999"},
      {"--max-log", "65535"},
      {"--max-log", "2TiB"},
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
  EXPECT_THAT(help.output(), HasSubstr("--listen-tcp [ADDRESS:]PORT"));
  Subprocess version({VALMERED, "--version"});
  EXPECT_EQ(version.Wait(), 0);
  EXPECT_THAT(version.output(), testing::MatchesRegex("valmered [0-9.]+\n"));
}

}  // namespace
}  // namespace valmere::test
