// No thread: the kernel keeps connections and frames until the test asks for them.
#include "tests/client/played_service.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <utility>

namespace valmere::test {

PlayedConnection::PlayedConnection(PlayedConnection&& other) noexcept
    : FakeConnection(other), owned_(std::exchange(other.owned_, -1)) {}

PlayedConnection& PlayedConnection::operator=(PlayedConnection&& other) noexcept {
  End();
  FakeConnection::operator=(other);
  owned_ = std::exchange(other.owned_, -1);
  return *this;
}

void PlayedConnection::End() {
  if (owned_ >= 0) close(std::exchange(owned_, -1));
}

PlayedConnection PlayedService::Accept() const {
  pollfd wanted{listener_, POLLIN, 0};
  const std::chrono::milliseconds patience = kPatience;
  EXPECT_EQ(poll(&wanted, 1, static_cast<int>(patience.count())), 1) << "nobody connects";
  const int socket = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
  timeval time{};
  time.tv_sec = static_cast<decltype(time.tv_sec)>(kPatience.count());
  setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &time, sizeof(time));
  setsockopt(socket, SOL_SOCKET, SO_SNDTIMEO, &time, sizeof(time));
  return PlayedConnection(socket);
}

void PlayedService::StopListening() {
  if (listener_ < 0) return;
  close(std::exchange(listener_, -1));
  unlink(path_.c_str());
}

void PlayedService::Listen() {
  listener_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, path_.c_str(), sizeof(address.sun_path) - 1);
  EXPECT_EQ(bind(listener_, reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
  EXPECT_EQ(listen(listener_, 10), 0);
}

}  // namespace valmere::test
