// The listening socket is shared between the listener and the calls that are blocked on it: Close
// removes it from the listener and shuts it down, and its last holder closes it.
#include "net/tcp_listener.h"

#include <utility>

#include "net/tcp_connection.h"

namespace valmere {

TcpListener::TcpListener(std::uint16_t port, int backlog) : port_(port), backlog_(backlog) {}

TcpListener::~TcpListener() {
  TcpListener::Close();
}

std::shared_ptr<Connection> TcpListener::Accept() {
  const std::shared_ptr<platform::ListenSocket> listening = socket();
  if (!listening) return nullptr;
  platform::Accepted accepted = listening->Accept();
  if (!accepted.socket) return nullptr;
  return std::make_shared<TcpConnection>(std::move(accepted.socket), accepted.address,
                                         accepted.port);
}

int TcpListener::Open() {
  const ScopedLock hold(lock_);
  if (socket_) return -1;
  std::shared_ptr<platform::ListenSocket> listening = platform::MakeListenSocket();
  if (listening->Listen(port_, backlog_) != 0) return -1;
  socket_ = std::move(listening);
  return 0;
}

void TcpListener::Close() {
  std::shared_ptr<platform::ListenSocket> closing;
  {
    const ScopedLock hold(lock_);
    closing = std::move(socket_);
  }
  if (closing) closing->Close();
}

std::uint16_t TcpListener::bound_port() const {
  const std::shared_ptr<platform::ListenSocket> listening = socket();
  return listening ? listening->BoundPort() : std::uint16_t{0};
}

std::shared_ptr<platform::ListenSocket> TcpListener::socket() const {
  const ScopedLock hold(lock_);
  return socket_;
}

}  // namespace valmere
