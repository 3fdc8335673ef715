// Where the service listens by default.
#pragma once

#include <string>

namespace valmere::client {

// $VALMERE_SOCKET, else $XDG_RUNTIME_DIR/valmere/PRN1, else /run/valmere/PRN1. A variable that is
// set but empty counts as not set.
std::string DefaultSocketPath();

}  // namespace valmere::client
