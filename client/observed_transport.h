// A look at the messages of a connection.
#pragma once

#include <functional>
#include <memory>
#include <string_view>

#include "client/transport.h"

namespace valmere::client {

enum class Direction { kSent, kReceived };

// Gets a frame's text, without the header, and only for the time of the call: what is sent, right
// before it goes out, so that a request is always seen before its answer; what is received, right
// before its receiver gets it. Called on the thread that sends or receives, which may be two at the
// same time; must not use the transport.
using FrameObserver = std::function<void(Direction direction, std::string_view text)>;

// `transport`, with every frame shown to `observer`.
std::unique_ptr<Transport> Observe(std::unique_ptr<Transport> transport, FrameObserver observer);

}  // namespace valmere::client
