// Ways to reach the service again and again.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "client/deadline.h"
#include "client/driver_transport.h"
#include "client/result.h"
#include "client/transport.h"

namespace valmere::client {

// Makes one connection each time it is called, by the deadline. May be called on any thread, also
// by several at once.
using Connector = std::function<Result<std::unique_ptr<Transport>>(Deadline)>;

// To the socket at `path`; DefaultSocketPath says where the service usually listens.
Connector SocketConnector(std::string path);
// To a driver in the same process, which must outlive all the connections.
Connector DriverConnector(const DriverEntryPoints& driver, std::uint32_t device_context);

}  // namespace valmere::client
