// Clients that send, come and fail as fast as they can, each beside one that is served meanwhile.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
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

  // How often it has sent all of its frames.
  int rounds() const { return rounds_; }

 private:
  void SendUntilClosed() {
    const int socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_un address = UnixAddress(path_);
    const timeval patience{0, 100'000};  // so that it learns of the end
    setsockopt(socket, SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof(patience));
    if (connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0) {
      shutdown(socket, SHUT_RD);
      while (!end_ && SendRound(socket))
        ++rounds_;
    }
    close(socket);
  }
  // False when it is closed, or has to end.
  bool SendRound(int socket) const {
    std::string_view left = frames_;
    while (!left.empty()) {
      const ssize_t sent = send(socket, left.data(), left.size(), MSG_NOSIGNAL);
      if (sent > 0) left.remove_prefix(static_cast<std::size_t>(sent));
      if (end_ || (sent < 0 && errno != EAGAIN)) return false;
    }
    return true;
  }
  // Gets that are answered, which finds the client deaf, and some that take long to read.
  static std::string Frames() {
    std::string frames;
    for (int i = 0; i < 100; ++i)
      frames += FrameOf(GetText(kOwnComponent)) +
                FrameOf(R"({"PropertySetRequests": [)" + std::string(4096, ' ') + "]}");
    return frames;
  }

  const std::string path_;
  const std::string frames_ = Frames();
  std::atomic<bool> end_{false};
  std::atomic<int> rounds_{0};
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
  // With `errors` as its standard error.
  void StartWith(const UnreadPipe& errors, const std::vector<std::string>& options) {
    std::vector<std::string> command{"/bin/sh", "-c", "exec \"$0\" \"$@\" 2>&3 3>&-"};
    for (const std::string& word : Command(options))
      command.push_back(word);
    valmered_ = std::make_unique<Subprocess>(command, std::vector<std::string>{},
                                             std::vector{errors.writing_end()});
    ASSERT_EQ(valmered_->ReadLine(), "valmered: ready on " + socket_);
  }
  void End() {
    valmered_->Signal(SIGTERM);
    ExpectCleanEnd();
  }
  // A client that is answered, unless it is turned away.
  std::unique_ptr<RawClient> ConnectServed() const {
    auto client = std::make_unique<RawClient>(socket_);
    const bool answered =
        client->TrySend(client->Request("second")) && !client->ReceiveFrameIfAny().empty();
    return answered ? std::move(client) : nullptr;
  }
  // Begins a frame and is closed for leaving it there; one that is turned away tries again.
  void StopInTheMiddleOfAFrame() const {
    std::string end = "none yet";
    RepeatUntil([&] { return end.empty(); },
                [&] {
                  const RawClient half(socket_);
                  end = half.TrySend("\xb3") ? half.ReceiveToEnd() : "lost";
                });
  }
};

TEST_F(ValmeredFloodTest, ServesOthersAndEndsWhileDeafClientsGoOnSending) {
  Start();
  const RawClient other(socket_);
  other.Exchange("first");
  std::vector<std::unique_ptr<DeafSender>> senders;
  for (int i = 0; i < 5; ++i)
    senders.push_back(std::make_unique<DeafSender>(socket_));
  RepeatUntil(
      [&] {
        return std::all_of(senders.begin(), senders.end(),
                           [](const auto& sender) { return sender->rounds() >= 20; });
      },
      [&] { other.Exchange("still there?"); });
  End();
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
    std::unique_ptr<RawClient> second;
    RepeatUntil([&] { return second && !second->PeerHasClosed(); },
                [&] { second = ConnectServed(); });
    EXPECT_EQ(RawClient(socket_).ReceiveToEnd(), "") << "it is one more than may be";
    other.Exchange("still there?");
  }
  End();
  EXPECT_TRUE(errors.IsLeftBlocking());
}

TEST_F(ValmeredFloodTest, TellsHowManyLinesNobodyRead) {
  const UnreadPipe errors;
  StartWith(errors, {"--frame-timeout", "0.001"});
  for (int i = 0; i < 3; ++i)
    StopInTheMiddleOfAFrame();
  errors.Read();
  StopInTheMiddleOfAFrame();
  EXPECT_THAT(errors.Read(), ::testing::MatchesRegex(
                                 "valmere: 3 lines before this one were left out\n"
                                 "valmered: client [0-9]+ .*: closed: the rest of a frame .*\n"));
  End();
}

TEST_F(ValmeredFloodTest, SaysWhatTheOperatorHasToKnowHoweverManyClientsFail) {
  constexpr int kClients = 400;
  Start({"--frame-timeout", "0.001"});
  for (int i = 0; i < kClients && !HasFailure(); ++i)
    StopInTheMiddleOfAFrame();
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
  End();
}

}  // namespace
}  // namespace valmere::test
