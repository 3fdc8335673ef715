// What valmered finds when it starts: sockets, roots, a service manager.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "platform/posix/sanitizers.h"
#include "tests/host/valmered_fixture.h"

namespace valmere::test {
namespace {

using ::testing::HasSubstr;

class ValmeredStartTest : public ValmeredTest {
 protected:
  // For one that can't say that it is ready.
  void AwaitService() const {
    RepeatUntil([&] { return Answers(); },
                [] { std::this_thread::sleep_for(std::chrono::milliseconds(2)); });
  }

 private:
  bool Answers() const try {
    const RawClient client(socket_);
    return client.Ask(GetText(kOwnComponent)) == OwnComponentText();
  } catch (const std::runtime_error&) {
    return false;
  }
};

// A service manager tells the process its own number, which only the process itself knows.
std::vector<std::string> Activated(const std::vector<std::string>& command) {
  std::vector<std::string> activated{"/bin/sh", "-c", "LISTEN_PID=$$ exec \"$0\" \"$@\""};
  activated.insert(activated.end(), command.begin(), command.end());
  return activated;
}

TEST_F(ValmeredStartTest, ReplacesTheSocketOfADeadProcess) {
  std::filesystem::create_directories(folder_.Path("run"));
  close(ListenOn(socket_));
  Start();
  RawClient(socket_).Exchange("a");
}

TEST_F(ValmeredStartTest, RefusesASocketWhereAServiceAnswers) {
  Start();
  Subprocess second({VALMERED, "--root", folder_.Path("other"), "--socket", socket_});
  EXPECT_EQ(second.Wait(), 3);
  EXPECT_EQ(second.errors(), "valmered: " + socket_ + ": a service already answers there\n");
  EXPECT_EQ(second.output(), "");
  RawClient(socket_).Exchange("a");
}

TEST_F(ValmeredStartTest, LeavesASocketAloneThatAnotherServiceHasPutInItsPlace) {
  Start();
  std::filesystem::remove(socket_);
  const int other = ListenOn(socket_);
  Stop(SIGTERM);
  EXPECT_TRUE(std::filesystem::exists(socket_));
  close(other);
}

TEST_F(ValmeredStartTest, RefusesAFileThatIsNoSocket) {
  std::filesystem::create_directories(folder_.Path("run"));
  std::ofstream(socket_) << "precious";
  Subprocess refused(Command());
  EXPECT_EQ(refused.Wait(), 1);
  EXPECT_EQ(refused.errors(), "valmered: " + socket_ + ": is there and is no socket\n");
  EXPECT_EQ(std::filesystem::file_size(socket_), 8U);
}

TEST_F(ValmeredStartTest, RefusesASocketPathThatIsTooLong) {
  const std::string path = folder_.Path(std::string(120, 'x'));
  Subprocess refused({VALMERED, "--root", root_, "--socket", path});
  EXPECT_EQ(refused.Wait(), 1);
  EXPECT_THAT(refused.errors(), HasSubstr("a socket path has 1 to 107 bytes"));
}

TEST_F(ValmeredStartTest, RefusesARootThatAnotherServes) {
  Start();
  Subprocess second({VALMERED, "--root", root_, "--socket", folder_.Path("other/PRN1")});
  EXPECT_EQ(second.Wait(), 4);
  EXPECT_EQ(second.errors(), "valmered: " + root_ + ": another valmered serves this root\n");
  EXPECT_FALSE(std::filesystem::exists(folder_.Path("other")));
  RawClient(socket_).Exchange("a");
}

TEST_F(ValmeredStartTest, ServesARootWhoseServiceWasKilled) {
  Start();
  valmered_->Signal(SIGKILL);
  EXPECT_EQ(valmered_->Wait(), -SIGKILL);
  Start();
  RawClient(socket_).Exchange("a");
}

// The command with its standard streams led elsewhere, as the shell writes it.
std::vector<std::string> Redirected(const std::string& streams,
                                    const std::vector<std::string>& command) {
  std::vector<std::string> redirected{"/bin/sh", "-c", "exec \"$0\" \"$@\" " + streams};
  redirected.insert(redirected.end(), command.begin(), command.end());
  return redirected;
}

TEST_F(ValmeredStartTest, ServesAndEndsWhereNobodyReadsThatItIsReady) {
  int pipe_ends[2];
  ASSERT_EQ(pipe2(pipe_ends, O_NONBLOCK | O_CLOEXEC), 0);
  while (write(pipe_ends[1], "x", 1) == 1) {
  }
  fcntl(pipe_ends[1], F_SETFL, 0);
  Subprocess valmered(Redirected(">&3", Command()), {}, {pipe_ends[1]});
  AwaitService();
  RawClient(socket_).Exchange("a");
  valmered.Signal(SIGTERM);
  EXPECT_EQ(valmered.Wait(), 0);
  close(pipe_ends[0]);
  close(pipe_ends[1]);
}

TEST_F(ValmeredStartTest, ServesAndEndsWithoutStandardStreams) {
  Subprocess valmered(Redirected("<&- >&- 2>&-", Command()));
  AwaitService();
  RawClient(socket_).Exchange("a");
  valmered.Signal(SIGTERM);
  EXPECT_EQ(valmered.Wait(), 0);
}

TEST_F(ValmeredStartTest, FailsWhereNoFileMayGrowAndIsNotEndedByTheSignalForThat) {
#ifdef VALMERE_THREAD_SANITIZER
  GTEST_SKIP() << "the sanitizer has a file grow before the program begins";
#endif
  Subprocess limited({"/usr/bin/env", "prlimit", "--fsize=0", VALMERED, "--root",
                      folder_.Path("fresh"), "--init-root", "--socket", socket_});
  EXPECT_EQ(limited.Wait(), 5);
  EXPECT_TRUE(std::filesystem::is_empty(folder_.Path("fresh")));
}

TEST_F(ValmeredStartTest, TakesASocketInsideItsRoot) {
  const std::string socket = root_ + "/PRN1";
  Subprocess valmered({VALMERED, "--root", root_, "--socket", socket});
  EXPECT_EQ(valmered.ReadLine(), "valmered: ready on " + socket);
  RawClient(socket).Exchange("a");
}

TEST_F(ValmeredStartTest, RefusesASocketInsideTheRootOfAnother) {
  Start();
  Subprocess second({VALMERED, "--root", folder_.Path("other"), "--socket", root_ + "/PRN1"});
  EXPECT_EQ(second.Wait(), 1);
  EXPECT_EQ(second.errors(),
            "valmered: " + root_ + ": is the root of another valmered, or locked otherwise\n");
}

TEST_F(ValmeredStartTest, ServesASocketThatItsServiceManagerPassesOn) {
  const std::string path = folder_.Path("passed");
  const int passed = ListenOn(path);
  RawClient early(path);
  valmered_ = std::make_unique<Subprocess>(
      Activated(Command()), std::vector<std::string>{"LISTEN_FDS=1"}, std::vector{passed});
  EXPECT_EQ(valmered_->ReadLine(), "valmered: ready on " + path);
  early.Exchange("a");
  RawClient(path).Exchange("b");
  EXPECT_FALSE(std::filesystem::exists(socket_));
  Stop(SIGTERM);
  EXPECT_TRUE(std::filesystem::exists(path)) << "the file is the service manager's";
  close(passed);
}

TEST_F(ValmeredStartTest, RefusesPassedDescriptorsThatItCannotServe) {
  const int listening = ListenOn(folder_.Path("passed"));
  const int connected = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  Subprocess two(Activated(Command()), {"LISTEN_FDS=2"}, {listening, listening});
  EXPECT_EQ(two.Wait(), 1);
  EXPECT_EQ(two.errors(), "valmered: one socket is served, but 2 were passed\n");
  Subprocess other(Activated(Command()), {"LISTEN_FDS=1"}, {connected});
  EXPECT_EQ(other.Wait(), 1);
  EXPECT_EQ(other.errors(), "valmered: what was passed is no listening Unix stream socket\n");
  close(listening);
  close(connected);
}

TEST_F(ValmeredStartTest, TakesNoDescriptorsThatWereMeantForAnotherProcess) {
  const int passed = ListenOn(folder_.Path("passed"));
  Subprocess valmered(Command(), {"LISTEN_FDS=1", "LISTEN_PID=1"}, {passed});
  EXPECT_EQ(valmered.ReadLine(), "valmered: ready on " + socket_);
  close(passed);
}

TEST_F(ValmeredStartTest, TellsItsServiceManagerHowItStands) {
  const NoticeSocket notices(folder_.Path("notify"));
  valmered_ = std::make_unique<Subprocess>(Command(),
                                           std::vector{"NOTIFY_SOCKET=" + folder_.Path("notify")});
  EXPECT_EQ(notices.Next(), "READY=1\nSTATUS=serving on " + socket_);
  RawClient(socket_).Exchange("a");
  valmered_->Signal(SIGTERM);
  EXPECT_EQ(notices.Next(), "STOPPING=1");
  EXPECT_EQ(valmered_->Wait(), 0);
}

}  // namespace
}  // namespace valmere::test
