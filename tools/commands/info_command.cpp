// All that the service tells of a property.
#include <memory>
#include <utility>

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

constexpr std::size_t kTitleWidth = 16;

void PrintFields(const Property& property, Output& out) {
  const std::pair<const char*, const std::string&> fields[] = {
      {"Component", property.component_name},
      {"Group", property.group_name},
      {"Name", property.name},
      {"Value", property.value},
      {"Status", property.status},
      {"Component GUID", property.component},
      {"Group GUID", property.group_guid},
      {"GUID", property.guid},
  };
  for (const auto& [title, text] : fields) {
    const std::string label = std::string(title) + ":";
    const std::string gap(kTitleWidth - label.size(), ' ');
    out.ShownLine(out.Styled(TextStyle::kTitle, label) + gap + out.Shown(text));
  }
}

std::optional<Failure> Info(Client& client, Deadline deadline, const std::string& name,
                            Output& out) {
  const auto properties = client.GetAll(deadline);
  if (!properties) return FailureOf(properties.error());
  const auto resolved = Resolve(name, *properties);
  if (const Failure* failure = std::get_if<Failure>(&resolved)) return *failure;
  const Property& property = *std::get<const Property*>(resolved);
  if (out.form() == OutputForm::kText)
    PrintFields(property, out);
  else
    PrintProperty(property, TextForm::kAssignment, out);
  return std::nullopt;
}

}  // namespace

void AddInfoCommand(CLI::App& app, Invocation& invocation) {
  const auto name = std::make_shared<std::string>();
  Command info(app, "info", "Print all that is known of a property");
  info.AddPositional("NAME", *name, "The property", Command::Need::kRequired);
  info.SetRun(invocation, [name, &invocation](Output& out) {
    return WithClient(invocation.global, [&](Client& client, Deadline deadline) {
      return Info(client, deadline, *name, out);
    });
  });
}

}  // namespace valmere::tools
