// Waiting for properties to become what a command waits for.
#pragma once

#include <functional>
#include <vector>

#include "client/client.h"

namespace valmere::tools {

// Asks for what is waited for.
using Asking = std::function<client::Result<std::vector<client::Property>>()>;
// Looks at a property's state; true when there is nothing more to wait for.
using Seeing = std::function<bool(const client::Property&)>;

// Shows `see` each answer and each change that the subscribed client `hearing` is told of, until it
// is content; kTimeout when it is not by the deadline. Asks at the beginning, after each change,
// and now and then: the service drops changes when it is flooded with them, and publishes none with
// a period of zero.
client::Result<void> Observe(const Asking& ask, client::Client& hearing, const Seeing& see,
                             client::Deadline deadline);

}  // namespace valmere::tools
