// A TCP socket that clients connect to.
#pragma once

#include <string>

#include "platform/posix/descriptor.h"

namespace valmere::host {

// Listens on "ADDRESS:PORT", "[ADDRESS]:PORT" or "PORT" alone, which is of the loopback. Port 0 lets
// the system choose. Does not block. std::runtime_error naming the text and the cause.
platform::Descriptor ListenOnInternet(const std::string& where);

// Whether only this machine can connect to the socket.
bool IsLoopback(int socket);

}  // namespace valmere::host
