#include "tools/service/service_commands.h"

#include <utility>

#include "client/service_properties.h"

namespace valmere::tools {

using client::Client;
using client::Deadline;
using client::Property;
using client::PropertyAddress;

client::Result<Property> Trigger(Client& client, Deadline deadline, const PropertyAddress& command,
                                 const PropertyAddress& after) {
  const client::SetRequest request{command, "True"};
  if (const auto sent = client.Set({&request, 1}, deadline); !sent) return sent.error();
  auto answer = client.Get({&after, 1}, deadline);
  if (!answer) return answer.error();
  if (answer->size() != 1)
    return client::Error{client::ErrorKind::kProtocol, "the service gave no answer to a get"};
  return std::move(answer->front());
}

std::optional<Failure> RequestStore(Client& client, Deadline deadline) {
  const auto command = Trigger(client, deadline, client::StoreCommand(), client::StoreCommand());
  if (!command) return FailureOf(command.error());
  if (!command->found()) return Failure{kExitNoSuchProperty, "the service stores no properties"};
  return std::nullopt;
}

}  // namespace valmere::tools
