// Properties are sorted by component and group; within a group they keep the service's order, in
// which they were registered.
#include <algorithm>
#include <memory>
#include <tuple>

#include "tools/commands/command.h"
#include "tools/commands/commands.h"
#include "tools/names/property_pattern.h"
#include "tools/output/property_output.h"
#include "tools/output/property_tree.h"
#include "tools/output/table.h"
#include "tools/service/service_clients.h"

namespace valmere::tools {
namespace {

using client::Client;
using client::Deadline;
using client::Property;

struct ListOptions {
  std::vector<std::string> patterns;
  bool tree = false;
};

void SortByGroup(std::vector<const Property*>& properties) {
  const auto key = [](const Property* property) {
    return std::tie(property->component_name, property->component, property->group_name,
                    property->group_guid);
  };
  std::stable_sort(
      properties.begin(), properties.end(),
      [&](const Property* left, const Property* right) { return key(left) < key(right); });
}

void PrintTable(const std::vector<const Property*>& properties, Output& out) {
  Table table({"COMPONENT", "GROUP", "NAME", "VALUE"});
  for (const Property* property : properties)
    table.AddRow({property->component_name, property->group_name, property->name, property->value});
  table.Print(out);
}

void Print(const std::vector<const Property*>& properties, bool tree, Output& out) {
  const bool text = out.form() == OutputForm::kText;
  if (tree)
    PrintTree(properties, out);
  else if (text && out.terminal() && !out.options().null_ends)
    PrintTable(properties, out);
  else
    PrintProperties(properties, TextForm::kAssignment, out);
}

std::optional<Failure> List(Client& client, Deadline deadline, const ListOptions& options,
                            Output& out) {
  const auto properties = client.GetAll(deadline);
  if (!properties) return FailureOf(properties.error());
  std::vector<const Property*> listed = PropertyPatterns(options.patterns).Pick(*properties);
  if (listed.empty() && !options.patterns.empty())
    return Failure{kExitNoSuchProperty, "no property matches"};
  SortByGroup(listed);
  Print(listed, options.tree, out);
  return std::nullopt;
}

}  // namespace

void AddListCommand(CLI::App& app, Invocation& invocation) {
  const auto options = std::make_shared<ListOptions>();
  Command list(app, "list", "Print properties and their values");
  list.AddPositionals("PATTERN", options->patterns, "Only properties that match one of these",
                      Command::Need::kOptional);
  list.AddFlag("--tree", options->tree, "Print a tree of components, groups, properties");
  list.SetRun(invocation, [options, &invocation](Output& out) -> std::optional<Failure> {
    if (options->tree && out.form() != OutputForm::kText)
      return Failure{kExitUsage, "--tree is a form of its own"};
    return WithClient(invocation.global, [&](Client& client, Deadline deadline) {
      return List(client, deadline, *options, out);
    });
  });
}

}  // namespace valmere::tools
