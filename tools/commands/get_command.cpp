// All or nothing: a script that reads the lines by their number must not get the wrong ones.
#include <list>
#include <memory>

#include "tools/commands/command.h"
#include "tools/commands/commands.h"
#include "tools/names/name_resolver.h"
#include "tools/output/property_output.h"
#include "tools/service/service_clients.h"

namespace valmere::tools {
namespace {

using client::Client;
using client::Deadline;
using client::Property;

struct GetOptions {
  std::vector<std::string> names;
  std::optional<std::string> substitute;
};

// Stands for a property that is not there.
Property Substitute(const std::string& name, const std::string& value) {
  Property property;
  property.name = name;
  property.value = value;
  property.status = client::kNotFound;
  return property;
}

std::optional<Failure> Get(Client& client, Deadline deadline, const GetOptions& options,
                           Output& out) {
  const auto properties = client.GetAll(deadline);
  if (!properties) return FailureOf(properties.error());
  std::list<Property> substitutes;
  std::vector<const Property*> wanted;
  for (const std::string& name : options.names) {
    const auto resolved = Resolve(name, *properties);
    const Failure* failure = std::get_if<Failure>(&resolved);
    if (failure == nullptr)
      wanted.push_back(std::get<const Property*>(resolved));
    else if (failure->code == kExitNoSuchProperty && options.substitute)
      wanted.push_back(&substitutes.emplace_back(Substitute(name, *options.substitute)));
    else
      return *failure;
  }
  PrintProperties(wanted, TextForm::kValue, out);
  return std::nullopt;
}

}  // namespace

void AddGetCommand(CLI::App& app, Invocation& invocation) {
  const auto options = std::make_shared<GetOptions>();
  Command get(app, "get", "Print the values of properties, one a line");
  get.AddPositionals("NAME", options->names, "The properties", Command::Need::kRequired);
  get.AddText("--default", "VALUE", options->substitute,
              "Print this for a property that is not there");
  get.SetRun(invocation, [options, &invocation](Output& out) {
    return WithClient(invocation.global, [&](Client& client, Deadline deadline) {
      return Get(client, deadline, *options, out);
    });
  });
}

}  // namespace valmere::tools
