// The service's two properties that are commands.
#pragma once

#include <optional>

#include "client/client.h"
#include "tools/process/exit_code.h"

namespace valmere::tools {

// Sets the command, and gets the property `after` it: the service handles what is sent on a
// connection in order, so the answer tells what became of the command.
client::Result<client::Property> Trigger(client::Client& client, client::Deadline deadline,
                                         const client::PropertyAddress& command,
                                         const client::PropertyAddress& after);

// Has the service queue a line of each of its properties; done when it has.
std::optional<Failure> RequestStore(client::Client& client, client::Deadline deadline);

}  // namespace valmere::tools
