// The service has two properties that are commands. It handles what is sent on a connection in
// order, so the answer to a get behind a set tells what became of it.

#include "tools/command.h"
#include "tools/commands.h"
#include "tools/connections.h"
#include "tools/service_properties.h"

namespace valmere::tools {
namespace {

using client::Client;
using client::Deadline;
using client::PropertyAddress;

// Sets the command, and gets the property `after` it.
client::Result<client::Property> Trigger(Client& client, Deadline deadline,
                                         const PropertyAddress& command,
                                         const PropertyAddress& after) {
  const client::SetRequest request{command, "True"};
  if (const auto sent = client.Set({&request, 1}, deadline); !sent) return sent.error();
  auto answer = client.Get({&after, 1}, deadline);
  if (!answer) return answer.error();
  if (answer->size() != 1)
    return client::Error{client::ErrorKind::kProtocol, "the service gave no answer to a get"};
  return std::move(answer->front());
}

std::optional<Failure> Store(Client& client, Deadline deadline) {
  const auto command = Trigger(client, deadline, StoreCommand(), StoreCommand());
  if (!command) return FailureOf(command.error());
  if (!command->found()) return Failure{kExitNoSuchProperty, "the service stores no properties"};
  return std::nullopt;
}

std::optional<Failure> Load(Client& client, Deadline deadline) {
  const auto error = Trigger(client, deadline, LoadCommand(), LoadingError());
  if (!error) return FailureOf(error.error());
  if (!error->found()) return Failure{kExitNoSuchProperty, "the service loads no properties"};
  if (error->value != "False")
    return Failure{kExitRefused, "the service could not load its property file; its log says why"};
  return std::nullopt;
}

}  // namespace

void AddStoreCommand(CLI::App& app, Invocation& invocation) {
  Command store(app, "store", "Have the service write its property file");
  store.SetRun(invocation, [&](Output&) { return WithClient(invocation.global, Store); });
}

void AddLoadCommand(CLI::App& app, Invocation& invocation) {
  Command load(app, "load", "Have the service read its property file again");
  load.SetRun(invocation, [&](Output&) { return WithClient(invocation.global, Load); });
}

}  // namespace valmere::tools
