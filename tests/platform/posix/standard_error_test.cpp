// Standard errors that don't take what is written to them: full and unread pipes, stopped
// terminals, sockets. A test that waits, or is ended by a signal, has found a fault.
#include "platform/standard_error.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <memory>
#include <string>
#include <vector>

#include "tests/support/test_thread.h"

namespace valmere::test {
using namespace platform;
namespace {

using ::valmere::test::TestThread;

constexpr char kOneLeftOut[] = "valmere: 1 line before this one was left out\n";

// What is to be read now.
std::string ReadNow(int descriptor) {
  std::string text;
  std::array<char, 65536> buffer;
  pollfd wanted{descriptor, POLLIN, 0};
  while (poll(&wanted, 1, 0) == 1 && (wanted.revents & POLLIN) != 0) {
    const ssize_t count = read(descriptor, buffer.data(), buffer.size());
    if (count <= 0) break;
    text.append(buffer.data(), static_cast<std::size_t>(count));
  }
  return text;
}

// Writes until nothing more is taken, not even a byte.
void Fill(int descriptor) {
  fcntl(descriptor, F_SETFL, O_NONBLOCK);
  for (const std::size_t size : {4096, 1}) {
    const std::string filling(size, '\n');
    while (write(descriptor, filling.data(), size) > 0) {
    }
  }
  fcntl(descriptor, F_SETFL, 0);
}

// While it lives, the process has another standard error.
class Instead {
 public:
  explicit Instead(int descriptor) : before_(fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3)) {
    dup2(descriptor, STDERR_FILENO);
  }
  ~Instead() {
    dup2(before_, STDERR_FILENO);
    close(before_);
  }
  Instead(const Instead&) = delete;
  Instead& operator=(const Instead&) = delete;

 private:
  const int before_;
};

// While it lives, no descriptor is to be had.
class NoDescriptors {
 public:
  NoDescriptors() {
    getrlimit(RLIMIT_NOFILE, &before_);
    const rlimit none{3, before_.rlim_max};
    setrlimit(RLIMIT_NOFILE, &none);
  }
  ~NoDescriptors() { setrlimit(RLIMIT_NOFILE, &before_); }
  NoDescriptors(const NoDescriptors&) = delete;
  NoDescriptors& operator=(const NoDescriptors&) = delete;

 private:
  rlimit before_{};
};

// Two descriptors; what is written to the second is read from the first.
class Ends {
 public:
  ~Ends() {
    CloseReader();
    close(ends_[1]);
  }
  Ends(const Ends&) = delete;
  Ends& operator=(const Ends&) = delete;

  int reader() const { return ends_[0]; }
  int writer() const { return ends_[1]; }
  void CloseReader() {
    if (ends_[0] >= 0) close(ends_[0]);
    ends_[0] = -1;
  }

 protected:
  Ends() = default;

  int ends_[2] = {-1, -1};
};

struct Pipe : Ends {
  Pipe() { EXPECT_EQ(pipe2(ends_, O_CLOEXEC), 0); }
};

struct SocketPair : Ends {
  SocketPair() { EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends_), 0); }
};

struct Terminal : Ends {
  Terminal() {
    ends_[0] = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    EXPECT_EQ(grantpt(ends_[0]), 0);
    EXPECT_EQ(unlockpt(ends_[0]), 0);
    std::array<char, 64> name;
    EXPECT_EQ(ptsname_r(ends_[0], name.data(), name.size()), 0);
    ends_[1] = open(name.data(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    termios modes{};
    EXPECT_EQ(tcgetattr(ends_[1], &modes), 0);
    cfmakeraw(&modes);
    EXPECT_EQ(tcsetattr(ends_[1], TCSANOW, &modes), 0);
  }
};

// Lets the next line tell what others have left behind.
void Forget() {
  const int nothing = open("/dev/null", O_WRONLY | O_CLOEXEC);
  {
    const Instead instead(nothing);
    WriteErrorLine({});
  }
  close(nothing);
}

class UnreadStandardError : public ::testing::Test {
 protected:
  UnreadStandardError() { Forget(); }
  ~UnreadStandardError() override { Forget(); }

  // What is left out while it is full, and told when it is not.
  static void ExpectNoWaiting(const Ends& ends) {
    Fill(ends.writer());
    const Instead instead(ends.writer());
    WriteErrorLine({"one"});
    WriteErrorLine({"two"});
    ReadNow(ends.reader());
    WriteErrorLine({"three"});
    EXPECT_EQ(ReadNow(ends.reader()), "valmere: 2 lines before this one were left out\nthree\n");
    WriteErrorLine({"four"});
    EXPECT_EQ(ReadNow(ends.reader()), "four\n");
    EXPECT_EQ(fcntl(ends.writer(), F_GETFL) & O_NONBLOCK, 0) << "others write there too";
  }
  static void ExpectNoSignal(Ends& ends) {
    const Instead instead(ends.writer());
    ends.CloseReader();
    WriteErrorLine({"one"});
    sigset_t pending;
    sigpending(&pending);
    EXPECT_EQ(sigismember(&pending, SIGPIPE), 0);
  }
};

TEST_F(UnreadStandardError, IsNotWaitedForWhenItIsAFullPipe) {
  ExpectNoWaiting(Pipe());
}

TEST_F(UnreadStandardError, IsNotWaitedForWhenItIsAFullPipeAndNoDescriptorIsToBeHad) {
  const Pipe pipe;
  Fill(pipe.writer());
  const Instead instead(pipe.writer());
  const NoDescriptors none;
  WriteErrorLine({"one"});
  ReadNow(pipe.reader());
  WriteErrorLine({"two"});
  EXPECT_EQ(ReadNow(pipe.reader()), std::string(kOneLeftOut) + "two\n");
}

TEST_F(UnreadStandardError, IsNotWaitedForWhenItIsAFullSocket) {
  ExpectNoWaiting(SocketPair());
}

TEST_F(UnreadStandardError, IsNotWaitedForWhenItIsAStoppedTerminal) {
  const Terminal terminal;
  const Instead instead(terminal.writer());
  ASSERT_EQ(tcflow(terminal.writer(), TCOOFF), 0);
  WriteErrorLine({"one"});
  ASSERT_EQ(tcflow(terminal.writer(), TCOON), 0);
  WriteErrorLine({"two"});
  std::string text;
  EXPECT_TRUE(test::Eventually([&] {
    text += ReadNow(terminal.reader());
    return text.ends_with("two\n");
  }));
  EXPECT_EQ(text, std::string(kOneLeftOut) + "two\n");
}

TEST_F(UnreadStandardError, IsNotWaitedForWhenItIsATerminalThatNobodyReads) {
  const Terminal terminal;
  const Instead instead(terminal.writer());
  const std::string line(1000, 'x');
  for (int i = 0; i < 1000; ++i)
    WriteErrorLine({line});
  std::string text;
  EXPECT_TRUE(test::Eventually([&] {
    text += ReadNow(terminal.reader());
    WriteErrorLine({"last"});
    return text.find("last\n") != std::string::npos;
  }));
  EXPECT_NE(text.find(" lines before this one were left out\n"), std::string::npos);
}

TEST_F(UnreadStandardError, RaisesNoSignalWhenItIsAPipeWithoutReader) {
  Pipe pipe;
  ExpectNoSignal(pipe);
}

TEST_F(UnreadStandardError, RaisesNoSignalWhenItIsASocketWithoutPeer) {
  SocketPair pair;
  ExpectNoSignal(pair);
}

TEST_F(UnreadStandardError, RaisesNoSignalWhenItsReaderGoesAtAnyTime) {
  for (int i = 0; i < 300; ++i) {
    auto pipe = std::make_unique<Pipe>();
    const Instead instead(pipe->writer());
    TestThread reader([&] { pipe->CloseReader(); });
    for (int line = 0; line < 20; ++line)
      WriteErrorLine({"line"});
  }
}

TEST_F(UnreadStandardError, LeavesASignalPendingThatWasBefore) {
  sigset_t pipe_signal;
  sigemptyset(&pipe_signal);
  sigaddset(&pipe_signal, SIGPIPE);
  sigset_t before;
  pthread_sigmask(SIG_BLOCK, &pipe_signal, &before);
  raise(SIGPIPE);
  Pipe pipe;
  const Instead instead(pipe.writer());
  pipe.CloseReader();
  WriteErrorLine({"one"});
  const timespec no_wait{};
  EXPECT_EQ(sigtimedwait(&pipe_signal, nullptr, &no_wait), SIGPIPE);
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

TEST_F(UnreadStandardError, MayBeClosed) {
  const Pipe pipe;
  {
    const Instead instead(pipe.writer());
    close(STDERR_FILENO);
    WriteErrorLine({"one"});
  }
  const Instead instead(pipe.writer());
  WriteErrorLine({"two"});
  EXPECT_EQ(ReadNow(pipe.reader()), std::string(kOneLeftOut) + "two\n");
}

TEST_F(UnreadStandardError, GetsWholeLinesFromManyThreads) {
  constexpr int kThreads = 4;
  constexpr int kLines = 2000;
  const Pipe pipe;
  const Instead instead(pipe.writer());
  std::string text;
  {
    std::vector<TestThread> writers;
    for (int i = 0; i < kThreads; ++i)
      writers.emplace_back([i] {
        const std::string line(static_cast<std::size_t>(100 + i), static_cast<char>('a' + i));
        for (int n = 0; n < kLines; ++n)
          WriteErrorLine({line});
      });
    for (int i = 0; i < 1000; ++i)
      text += ReadNow(pipe.reader());
  }
  text += ReadNow(pipe.reader());
  WriteErrorLine({"last"});
  text += ReadNow(pipe.reader());
  long told = 0;
  long whole = 0;
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t end = text.find('\n', at);
    const std::string line = text.substr(at, end - at);
    at = end + 1;
    if (line.starts_with("valmere: ")) {
      told += std::stol(line.substr(9));
    } else if (line != "last") {
      ASSERT_EQ(line, std::string(static_cast<std::size_t>(100 + line[0] - 'a'), line[0]));
      ++whole;
    }
  }
  EXPECT_EQ(told + whole, kThreads * kLines);
}

class StandardErrorFile : public UnreadStandardError {
 protected:
  ~StandardErrorFile() override {
    close(file_);
    unlink(name_.c_str());
  }
  std::string Text() const {
    std::array<char, 256> text{};
    EXPECT_LT(pread(file_, text.data(), text.size(), 0), 256);
    return text.data();
  }

  std::string name_ = "/tmp/valmere-test-XXXXXX";
  const int file_ = mkstemp(name_.data());
};

TEST_F(StandardErrorFile, KeepsItsEndForAllWhoWrite) {
  const Instead instead(file_);
  WriteErrorLine({"one"});
  EXPECT_EQ(write(file_, "two\n", 4), 4);
  WriteErrorLine({"three"});
  EXPECT_EQ(Text(), "one\ntwo\nthree\n");
}

TEST_F(StandardErrorFile, GetsANewLineAfterATornOne) {
  const Instead instead(file_);
  const auto handler = signal(SIGXFSZ, SIG_IGN);
  rlimit before{};
  getrlimit(RLIMIT_FSIZE, &before);
  const rlimit full{2, before.rlim_max};
  setrlimit(RLIMIT_FSIZE, &full);
  WriteErrorLine({"one"});
  WriteErrorLine({"two"});
  setrlimit(RLIMIT_FSIZE, &before);
  signal(SIGXFSZ, handler);
  WriteErrorLine({"three"});
  EXPECT_EQ(Text(), "on\nvalmere: 2 lines before this one were left out\nthree\n");
}

}  // namespace
}  // namespace valmere::test
