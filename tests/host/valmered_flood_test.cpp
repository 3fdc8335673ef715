// Clients that send, come and fail as fast as they can, each beside one that is served meanwhile.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstring>
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
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path_.c_str(), sizeof(address.sun_path) - 1);
    const timeval patience{0, 100'000};  // so that it learns of the end
    setsockopt(socket, SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof(patience));
    if (connect(socket, reinterpret_cast<sockaddr*>(&address), sizeof(address)) == 0) {
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

class ValmeredFloodTest : public ValmeredTest {
 protected:
  // Without the log of the driver's calls, which would slow it down.
  void StartUnlogged() {
    valmered_ = std::make_unique<Subprocess>(Command());
    ASSERT_EQ(valmered_->ReadLine(), "valmered: ready on " + socket_);
  }
  void ExpectEnd() {
    valmered_->Signal(SIGTERM);
    EXPECT_EQ(valmered_->Wait(), 0);
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

}  // namespace
}  // namespace valmere::test
