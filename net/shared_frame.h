// A frame that its writer shares with the connections that it is written to.
#pragma once

#include <memory>
#include <string>

namespace valmere {

// The bytes never change again. A connection that can't send all of them at once keeps the frame
// instead of a copy; so the same frame may wait for many clients.
using SharedFrame = std::shared_ptr<const std::string>;

}  // namespace valmere
