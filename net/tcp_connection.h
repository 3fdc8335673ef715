// A connection over TCP.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

#include "net/network_stream.h"
#include "platform/sockets.h"

namespace valmere {

// Purpose: a connected socket as a byte stream; tells a connection that is gone from other errors.
// Owner: shared; the last holder closes the socket.
// Threads: as Connection; the socket calls take no lock.
// Errors: kGone or kFailed by the socket's error code. A write that fails ends the stream both
// ways.
class TcpConnection final : public NetworkStream {
 public:
  TcpConnection(std::unique_ptr<platform::StreamSocket> socket, std::uint32_t peer_address,
                std::uint32_t peer_port);
  ~TcpConnection() override;

  int Read(void* buffer, int length) override;
  int Write(const void* buffer, int length) override;
  bool ComesInPieces() const override { return true; }
  void Close() override;
  bool IsOpen() const override { return !closed_ && !ended_; }

 private:
  const std::unique_ptr<platform::StreamSocket> socket_;
  std::atomic<bool> closed_{false};  // Close was called
  std::atomic<bool> ended_{false};   // a transfer met the end of the stream
};

}  // namespace valmere
