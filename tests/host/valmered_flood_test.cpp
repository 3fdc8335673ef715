// Clients that send, come and fail as fast as they can, each beside one that is served meanwhile.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "tests/host/valmered_fixture.h"

namespace valmere::test {
namespace {

// A client that reads nothing and goes on sending; turned away, it comes back.
class DeafSender {
 public:
  explicit DeafSender(const std::string& path)
      : path_(path), thread_([this] {
          while (!end_)
            SendUntilClosed();
        }) {}
  ~DeafSender() {
    end_ = true;
    thread_.join();
  }
  DeafSender(const DeafSender&) = delete;
  DeafSender& operator=(const DeafSender&) = delete;

  int times_closed() const { return times_closed_; }

 private:
  void SendUntilClosed() {
    const int socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_un address = UnixAddress(path_);
    const timeval patience{0, 100'000};  // so that it learns of the end
    setsockopt(socket, SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof(patience));
    if (connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0) {
      shutdown(socket, SHUT_RD);
      bool open = true;
      while (open && !end_)
        open = send(socket, frames_.data(), frames_.size(), MSG_NOSIGNAL) >= 0 || errno == EAGAIN;
      if (!open) ++times_closed_;
    }
    close(socket);
  }
  // One that is answered, which finds the client deaf, and some that keep the driver busy for longer
  // than it takes to send as many more.
  static std::string Frames() {
    std::string frames = FrameOf("answer");
    for (int i = 0; i < 1000; ++i)
      frames += FrameOf("slow" + std::string(4072, 'x'));
    return frames;
  }

  const std::string path_;
  const std::string frames_ = Frames();
  std::atomic<bool> end_{false};
  std::atomic<int> times_closed_{0};
  std::thread thread_;  // last: it uses all of the above
};

// A pipe that is full to the last byte and is not read before Read is called.
class UnreadPipe {
 public:
  UnreadPipe() {
    if (pipe2(ends_, O_CLOEXEC) != 0) throw std::runtime_error("pipe2 failed");
    fcntl(ends_[1], F_SETFL, O_NONBLOCK);
    const std::string filling(4096, '\n');
    while (write(ends_[1], filling.data(), filling.size()) > 0) {
    }
    while (write(ends_[1], "\n", 1) > 0) {
    }
    fcntl(ends_[1], F_SETFL, 0);
  }
  ~UnreadPipe() {
    close(ends_[0]);
    close(ends_[1]);
  }
  UnreadPipe(const UnreadPipe&) = delete;
  UnreadPipe& operator=(const UnreadPipe&) = delete;

  int writing_end() const { return ends_[1]; }
  bool IsLeftBlocking() const { return (fcntl(ends_[1], F_GETFL) & O_NONBLOCK) == 0; }
  // What is there now.
  std::string Read() const {
    std::string text(1 << 20, '\0');
    const ssize_t count = read(ends_[0], text.data(), text.size());
    text.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
    return text;
  }

 private:
  int ends_[2] = {-1, -1};
};

class ValmeredFloodTest : public ValmeredTest {
 protected:
  // Without the log of the driver's calls, which would slow it down.
  void StartUnlogged() {
    valmered_ = std::make_unique<Subprocess>(Command());
    ASSERT_EQ(valmered_->ReadLine(), "valmered: ready on " + socket_);
  }
  // With `errors` as its standard error.
  void StartWith(const UnreadPipe& errors, const std::vector<std::string>& options) {
    std::vector<std::string> command{"/bin/sh", "-c", "exec \"$0\" \"$@\" 2>&3 3>&-"};
    for (const std::string& word : Command(options))
      command.push_back(word);
    valmered_ = std::make_unique<Subprocess>(command, std::vector<std::string>{},
                                             std::vector{errors.writing_end()});
    ASSERT_EQ(valmered_->ReadLine(), "valmered: ready on " + socket_);
  }
  void ExpectEnd() {
    valmered_->Signal(SIGTERM);
    EXPECT_EQ(valmered_->Wait(), 0);
  }
  // Begins a frame and is closed for leaving it there.
  void StopInTheMiddleOfAFrame() const {
    const RawClient half(socket_);
    half.Send("\xb3");
    EXPECT_EQ(half.ReceiveToEnd(), "");
  }
};

TEST_F(ValmeredFloodTest, ServesOthersAndEndsWhileDeafClientsGoOnSending) {
  StartUnlogged();
  const RawClient other(socket_);
  other.Exchange("first");
  std::vector<std::unique_ptr<DeafSender>> senders;
  for (int i = 0; i < 5; ++i)
    senders.push_back(std::make_unique<DeafSender>(socket_));
  RepeatUntil(
      [&] {
        return std::all_of(senders.begin(), senders.end(),
                           [](const auto& sender) { return sender->times_closed() >= 3; });
      },
      [&] { other.Exchange("still there?"); });
  ExpectEnd();
}

TEST_F(ValmeredFloodTest, ServesOthersAndEndsWhenNobodyReadsItsStandardError) {
  const UnreadPipe errors;
  StartWith(errors, {"--frame-timeout", "0.001", "--max-clients", "2"});
  const RawClient other(socket_);
  other.Exchange("first");
  for (int i = 0; i < 20; ++i) {
    StopInTheMiddleOfAFrame();
    other.Exchange("still there?");
  }
  {
    const RawClient second(socket_);
    second.Exchange("second");
    EXPECT_EQ(RawClient(socket_).ReceiveToEnd(), "") << "it is one more than may be";
    other.Exchange("still there?");
  }
  ExpectEnd();
  EXPECT_TRUE(errors.IsLeftBlocking());
}

TEST_F(ValmeredFloodTest, TellsHowManyLinesNobodyRead) {
  const UnreadPipe errors;
  StartWith(errors, {"--frame-timeout", "0.001"});
  for (int i = 0; i < 3; ++i)
    StopInTheMiddleOfAFrame();
  errors.Read();
  StopInTheMiddleOfAFrame();
  EXPECT_THAT(errors.Read(),
              ::testing::MatchesRegex("valmere: 3 lines before this one were left out\n"
                                      "valmered: handle 4 .*: closed: the rest of a frame .*\n"));
  ExpectEnd();
}

TEST_F(ValmeredFloodTest, SaysWhatTheOperatorHasToKnowHoweverManyClientsFail) {
  constexpr int kClients = 400;
  Start({"--frame-timeout", "0.001"});
  for (int i = 0; i < kClients && !HasFailure(); ++i) {
    StopInTheMiddleOfAFrame();
    log_.Drain();
  }
  valmered_->Signal(SIGHUP);
  int closed = 0;
  bool told = false;
  std::string line;
  while (line != "valmered: loading the property file again" && !HasFailure()) {
    line = valmered_->ReadErrorLine();
    ASSERT_NE(line, "");
    if (line.find(": closed: ") != std::string::npos) ++closed;
    told = told || line.ends_with(" left out");
  }
  EXPECT_LT(closed, kClients) << "clients can fill the log";
  EXPECT_TRUE(told);
  ExpectEnd();
}

}  // namespace
}  // namespace valmere::test
