// The one place that knows that a port number can mean "no port".
#include "net/listener_factory.h"

#include "net/null_listener.h"
#include "net/tcp_listener.h"

namespace valmere {

std::shared_ptr<Listener> MakeListener(std::uint16_t port, int backlog) {
  if (port == kNoListenerPort) return std::make_shared<NullListener>();
  return std::make_shared<TcpListener>(port, backlog);
}

}  // namespace valmere
