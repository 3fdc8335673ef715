// Connections from a TCP port.
#pragma once

#include <cstdint>
#include <memory>

#include "driver/sync/lock.h"
#include "net/listener.h"
#include "platform/sockets.h"

namespace valmere {

// Purpose: listens on a TCP port of every local IPv4 address. For a service that is given a port;
// this one asks for kNoListenerPort.
// Owner: shared; as Listener.
// Threads: as Listener; the lock is never held while Accept blocks.
// Errors: Open returns -1 when the port is taken, the system gives no socket, or it is open
// already.
class TcpListener final : public Listener {
 public:
  // With port 0 the system chooses a free one at each Open.
  TcpListener(std::uint16_t port, int backlog);
  ~TcpListener() override;

  std::shared_ptr<Connection> Accept() override;
  int Open() override;
  void Close() override;

  // The port that it listens on, host order; 0 while closed. For a program that listens on port 0.
  std::uint16_t bound_port() const;

 private:
  std::shared_ptr<platform::ListenSocket> socket() const;

  const std::uint16_t port_;
  const int backlog_;
  mutable Lock lock_;
  // Null while closed. An Accept holds it too, so its descriptor outlives the call; the port is
  // free as soon as Close has been called and that call has returned.
  std::shared_ptr<platform::ListenSocket> socket_ GUARDED_BY(lock_);
};

}  // namespace valmere
