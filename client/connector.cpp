// Opening a driver never waits, so only the socket needs the deadline.
#include "client/connector.h"

#include <utility>

#include "client/socket_transport.h"

namespace valmere::client {

Connector SocketConnector(std::string path) {
  return [path = std::move(path)](Deadline deadline) { return ConnectSocket(path, deadline); };
}

Connector DriverConnector(const DriverEntryPoints& driver, std::uint32_t device_context) {
  return [driver, device_context](Deadline) { return OpenDriver(driver, device_context); };
}

}  // namespace valmere::client
