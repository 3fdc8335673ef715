// Frames over the Unix socket of the service.
#pragma once

#include <memory>
#include <string>

#include "client/transport.h"

namespace valmere::client {

// Connects to the socket at `path`. Errors: kCannotConnect, kTimeout, kInterrupted.
Result<std::unique_ptr<Transport>> ConnectSocket(const std::string& path, Deadline deadline);

}  // namespace valmere::client
