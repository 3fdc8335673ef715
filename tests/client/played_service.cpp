// No thread: the kernel keeps connections and frames until the test asks for them.
#include "tests/client/played_service.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <utility>

#include "tests/support/unix_socket.h"

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
  SetPatience(socket, kPatience);
  return PlayedConnection(socket);
}

void PlayedService::StopListening() {
  if (listener_ < 0) return;
  close(std::exchange(listener_, -1));
  unlink(path_.c_str());
}

void PlayedService::Listen() {
  listener_ = ListenOn(path_, 10, SOCK_NONBLOCK);
}

}  // namespace valmere::test
