// Chooses the listener for a port.
#pragma once

#include <cstdint>
#include <memory>

#include "net/listener.h"

namespace valmere {

// The port that asks for no network listener at all.
inline constexpr std::uint16_t kNoListenerPort = 65534;

// A null listener for kNoListenerPort, else a TCP listener for `port`; not opened yet.
// Any thread; std::bad_alloc.
std::shared_ptr<Listener> MakeListener(std::uint16_t port, int backlog);

}  // namespace valmere
