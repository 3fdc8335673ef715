// Sorted by GUIDs: the order in which components came does not show, so that what is the same looks
// the same.
#include <algorithm>
#include <memory>
#include <tuple>

#include "tools/commands/command.h"
#include "tools/commands/commands.h"
#include "tools/names/property_pattern.h"
#include "tools/output/property_json.h"
#include "tools/service/service_clients.h"

namespace valmere::tools {
namespace {

using client::Client;
using client::Deadline;
using client::Property;

std::optional<Failure> Export(Client& client, Deadline deadline,
                              const std::vector<std::string>& patterns, Output& out) {
  const auto properties = client.GetAll(deadline);
  if (!properties) return FailureOf(properties.error());
  std::vector<const Property*> exported = PropertyPatterns(patterns).Pick(*properties);
  if (exported.empty() && !patterns.empty())
    return Failure{kExitNoSuchProperty, "no property matches"};
  const auto key = [](const Property* property) {
    return std::tie(property->component, property->group_guid, property->guid);
  };
  std::sort(exported.begin(), exported.end(),
            [&](const Property* left, const Property* right) { return key(left) < key(right); });
  for (const Property* property : exported)
    out.Line(ToExport(*property).dump());
  return std::nullopt;
}

}  // namespace

void AddExportCommand(CLI::App& app, Invocation& invocation) {
  const auto patterns = std::make_shared<std::vector<std::string>>();
  Command command(app, "export", "Print properties as JSON lines that import takes");
  command.AddPositionals("PATTERN", *patterns, "Only properties that match one of these",
                         Command::Need::kOptional);
  command.SetRun(invocation, [patterns, &invocation](Output& out) {
    return WithClient(invocation.global, [&](Client& client, Deadline deadline) {
      return Export(client, deadline, *patterns, out);
    });
  });
}

}  // namespace valmere::tools
