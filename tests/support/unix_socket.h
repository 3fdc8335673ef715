// Unix sockets of tests that speak to a program, or that stand in for one.
#pragma once

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstring>
#include <stdexcept>
#include <string>
#include <string_view>

namespace valmere::test {

inline sockaddr_un UnixAddress(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, path.data(), std::min(path.size(), sizeof address.sun_path - 1));
  return address;
}

// From here on a connect, a read and a write of the socket fail when they take longer.
inline void SetPatience(int socket, std::chrono::seconds patience) {
  timeval time{};
  time.tv_sec = static_cast<decltype(time.tv_sec)>(patience.count());
  setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &time, sizeof time);
  setsockopt(socket, SOL_SOCKET, SO_SNDTIMEO, &time, sizeof time);
}

// A socket that is connected to the one at `path`; the caller closes it. A patience of zero is
// endless. std::runtime_error when none listens there.
inline int ConnectedTo(const std::string& path, std::chrono::seconds patience = {}) {
  const sockaddr_un address = UnixAddress(path);
  const int connected = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  SetPatience(connected, patience);
  if (connect(connected, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    close(connected);
    throw std::runtime_error("cannot connect to " + path);
  }
  return connected;
}

// A socket that listens at `path`, as another program has it; the caller closes it.
// std::runtime_error when it can't.
inline int ListenOn(const std::string& path, int waiting = 1, int flags = 0) {
  const sockaddr_un address = UnixAddress(path);
  const int listening = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | flags, 0);
  if (bind(listening, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
      listen(listening, waiting) != 0)
    throw std::runtime_error("cannot listen on " + path);
  return listening;
}

// False when the other end takes no more of the bytes.
inline bool SendAll(int socket, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t count = send(socket, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (count <= 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(count));
  }
  return true;
}

}  // namespace valmere::test
