// The socket library's start and clean-up, tied to a scope.
#pragma once

#include <cstdint>

#include "platform/sockets.h"

namespace valmere {

// Purpose: keeps the socket library started for as long as it lives.
// Owner: the service, before all that uses the network.
// Threads: made and destroyed on the owner's thread.
// Errors: a library that doesn't start, or is of another version, is cleaned up at once and
// recorded; listeners then fail to open.
class NetworkStartup {
 public:
  using StartFunction = std::uint16_t (*)() noexcept;
  using CleanUpFunction = void (*)() noexcept;

  explicit NetworkStartup(StartFunction start = platform::StartSockets,
                          CleanUpFunction clean_up = platform::CleanUpSockets);
  ~NetworkStartup();
  NetworkStartup(const NetworkStartup&) = delete;
  NetworkStartup& operator=(const NetworkStartup&) = delete;

  bool started() const { return started_; }

 private:
  const CleanUpFunction clean_up_;
  const bool started_;
};

}  // namespace valmere
