// Commands about the service's property file.

#include <memory>
#include <string>
#include <vector>

#include "client/service_properties.h"
#include "tools/commands/command.h"
#include "tools/commands/commands.h"
#include "tools/service/service_clients.h"
#include "tools/service/service_commands.h"
#include "tools/service/storing.h"

namespace valmere::tools {
namespace {

using client::Client;
using client::Deadline;
using client::Property;
using client::PropertyAddress;

constexpr const char* kAboutStore = R"(
With --wait, store returns when the file holds the value of each property and is on the disk: exit
status 6 if it does not in time, 5 if a value can't be stored. The file is looked at where it lies:
below --root, else $VALMERE_ROOT, else the folder in which the service works, else
/var/lib/valmere.)";

struct StoreOptions {
  bool wait = false;
  std::optional<std::string> root;
};

std::optional<Failure> Load(Client& client, Deadline deadline) {
  const auto error = Trigger(client, deadline, client::LoadCommand(), client::LoadingError());
  if (!error) return FailureOf(error.error());
  if (!error->found()) return Failure{kExitNoSuchProperty, "the service loads no properties"};
  if (error->value != "False")
    return Failure{kExitRefused, "the service could not load its property file; its log says why"};
  return std::nullopt;
}

// The name of the property file, and behind it what is stored there. Others may publish under the
// service's GUID; a get finds the service's own alone.
client::Result<std::vector<Property>> StoredProperties(Client& client, Deadline deadline) {
  const auto all = client.GetAll(deadline);
  if (!all) return all.error();
  std::vector<PropertyAddress> addresses{client::PropertyFileName()};
  for (const Property& property : *all)
    if (client::IsStored(property.address())) addresses.push_back(property.address());
  auto own = client.Get(addresses, deadline);
  if (!own) return own;
  std::erase_if(*own, [](const Property& property) { return !property.found(); });
  return own;
}

std::optional<Failure> StoreAndWait(const GlobalOptions& global, const StoreOptions& options) {
  ServiceClients clients(global.socket);
  const Deadline deadline = Deadline::After(global.timeout);
  const auto client = clients.Open(deadline);
  if (!client) return FailureOf(client.error());
  auto properties = StoredProperties(**client, deadline);
  if (!properties) return FailureOf(properties.error());
  if (properties->size() < 2 || properties->front().address() != client::PropertyFileName())
    return Failure{kExitNoSuchProperty, "the service stores no properties"};
  auto file = ServiceFile::Find(options.root, global.socket, properties->front().value);
  if (const Failure* failure = std::get_if<Failure>(&file)) return *failure;
  properties->erase(properties->begin());
  Storing storing(clients, **client, std::get<ServiceFile>(std::move(file)), deadline);
  if (auto failure = storing.Begin(*properties)) return failure;
  if (auto failure = storing.RequestLines()) return failure;
  return storing.Await();
}

}  // namespace

void AddStoreCommand(CLI::App& app, Invocation& invocation) {
  const auto options = std::make_shared<StoreOptions>();
  Command store(app, "store", "Have the service write its property file");
  store.AddFlag("--wait", options->wait, "Wait until all is on the disk");
  store.AddText("--root", "PATH", options->root, "The service's root, for --wait");
  store.SetFooter(kAboutStore);
  store.SetRun(invocation, [options, &invocation](Output&) {
    if (options->wait) return StoreAndWait(invocation.global, *options);
    return WithClient(invocation.global, RequestStore);
  });
}

void AddLoadCommand(CLI::App& app, Invocation& invocation) {
  Command load(app, "load", "Have the service read its property file again");
  load.SetRun(invocation, [&](Output&) { return WithClient(invocation.global, Load); });
}

}  // namespace valmere::tools
