// What all network connections have in common: a peer with an address.
#pragma once

#include <cstdint>

#include "net/connection.h"

namespace valmere {

// Purpose: a connection that knows the address of its peer, for programs that look at it; the
// service itself does not.
// Owner, threads, errors: as Connection; address and port never change.
class NetworkStream : public Connection {
 public:
  NetworkStream(std::uint32_t peer_address, std::uint32_t peer_port)
      : peer_address_(peer_address), peer_port_(peer_port) {}

  // IPv4, network byte order.
  std::uint32_t peer_address() const { return peer_address_; }
  // A 16-bit value in network byte order.
  std::uint32_t peer_port() const { return peer_port_; }

 private:
  const std::uint32_t peer_address_;
  const std::uint32_t peer_port_;
};

}  // namespace valmere
