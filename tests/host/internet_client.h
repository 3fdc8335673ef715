// Clients of tests that connect over TCP.
#pragma once

#include <sys/socket.h>

#include <exception>
#include <stdexcept>
#include <string>
#include <vector>

#include "host/socket/internet_socket.h"
#include "platform/posix/descriptor.h"
#include "tests/host/client_end.h"

namespace valmere::test {

inline bool HasIpv6() {
  try {
    return host::ListenOnInternet("[::1]:0").valid();
  } catch (const std::exception&) {
    return false;
  }
}

// What to listen on so that this machine's clients reach it.
inline std::vector<std::string> LoopbackAddresses() {
  if (HasIpv6()) return {"127.0.0.1:0", "[::1]:0"};
  return {"127.0.0.1:0"};
}

// A socket that is connected to one that listens. std::runtime_error when it can't be.
inline platform::Descriptor ConnectTo(int listening) {
  sockaddr_storage address{};
  socklen_t size = sizeof address;
  auto* const generic = reinterpret_cast<sockaddr*>(&address);
  getsockname(listening, generic, &size);
  platform::Descriptor client(socket(address.ss_family, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (connect(client.get(), generic, size) != 0) throw std::runtime_error("can't connect");
  return client;
}

// Both ends of a connection over TCP.
inline SocketPair MakeInternetPair(const std::string& where) {
  const platform::Descriptor listening = host::ListenOnInternet(where);
  SocketPair pair;
  pair.client = ConnectTo(listening.get());
  pollfd connected{listening.get(), POLLIN, 0};
  poll(&connected, 1, -1);
  pair.service = platform::Descriptor(accept4(listening.get(), nullptr, nullptr, SOCK_CLOEXEC));
  return pair;
}

}  // namespace valmere::test
