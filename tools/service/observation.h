// Waiting for properties to become what a command waits for.
#pragma once

#include <functional>
#include <vector>

#include "client/client.h"

namespace valmere::tools {

// Reads the properties that are waited for.
using Query = std::function<client::Result<std::vector<client::Property>>()>;
// Looks at a property's state; true when the wait is over.
using Condition = std::function<bool(const client::Property&)>;

// Waits until `is_done` accepts a property of an answer to `query`, or of a change that `subscriber`
// is told of; kTimeout when none is accepted by the deadline. It queries at the beginning, after each
// change, and now and then: the service drops changes when it is flooded with them, and publishes
// none with a period of zero.
client::Result<void> Observe(const Query& query, client::Client& subscriber,
                             const Condition& is_done, client::Deadline deadline);

}  // namespace valmere::tools
