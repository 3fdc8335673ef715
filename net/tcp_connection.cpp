// Reading and writing treat the socket's error code differently: running out of buffers means a
// lost peer only to a writer. An orderly close by the peer has no error code and so counts as
// kFailed, like a reset.
#include "net/tcp_connection.h"

#include <utility>

namespace valmere {

TcpConnection::TcpConnection(std::unique_ptr<platform::StreamSocket> socket,
                             std::uint32_t peer_address, std::uint32_t peer_port)
    : NetworkStream(peer_address, peer_port), socket_(std::move(socket)) {}

TcpConnection::~TcpConnection() {
  TcpConnection::Close();
}

int TcpConnection::Read(void* buffer, int length) {
  // The socket would still hand out what came before it was shut down.
  if (closed_) return kFailed;
  const platform::Transfer received = socket_->Receive(buffer, length);
  if (received.count > 0) return received.count;
  ended_ = true;
  switch (received.error) {
    case platform::kConnectionAborted:
    case platform::kTimedOut:
      return kGone;
    default:
      return kFailed;
  }
}

int TcpConnection::Write(const void* buffer, int length) {
  if (closed_) return kFailed;
  const platform::Transfer sent = socket_->Send(buffer, length);
  if (sent.count >= 0) return sent.count;
  // A part of a frame may have gone out, so nothing can follow it; and a peer that takes nothing
  // must not hold up the next writer as long as it did this one. What it has sent can still be
  // read.
  ended_ = true;
  socket_->Close();
  switch (sent.error) {
    case platform::kConnectionAborted:
    case platform::kNoBufferSpace:
    case platform::kTimedOut:
      return kGone;
    default:
      return kFailed;
  }
}

void TcpConnection::Close() {
  if (!closed_.exchange(true)) socket_->Close();
}

}  // namespace valmere
