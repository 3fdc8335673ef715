// GUIDs follow from the names alone, so a script can publish the same property again tomorrow, and
// a client that kept its address finds it.
#include "tools/names/publication.h"

#include <algorithm>
#include <optional>
#include <utility>

#include "tools/names/name_guid.h"

namespace valmere::tools {
namespace {

using client::Property;

// Cuts the part before the last slash off `name`.
std::optional<std::string> TakeParent(std::string& name) {
  const std::size_t slash = name.rfind('/');
  if (slash == std::string::npos) return std::nullopt;
  std::string parent = name.substr(0, slash);
  name.erase(0, slash + 1);
  return parent;
}

std::variant<Published, Failure> MakeOne(const std::string& assignment,
                                         const PublishOptions& options) {
  const std::size_t equals = assignment.find('=');
  if (equals == std::string::npos || equals == 0)
    return Failure{kExitUsage, "\"" + assignment + "\" is not NAME=VALUE"};
  const std::string name = assignment.substr(0, equals);
  Property property;
  property.value = assignment.substr(equals + 1);
  property.name = name;
  property.component_name = options.component;
  property.component = options.component_guid;
  property.group_name = options.group;
  if (auto group = TakeParent(property.name)) {
    if (auto component = TakeParent(*group)) {
      property.component_name = *component;
      property.component.clear();
    }
    property.group_name = *group;
  }
  if (property.name.empty() || property.group_name.empty() || property.component_name.empty())
    return Failure{kExitUsage, "\"" + name + "\" has an empty part"};
  if (property.component.empty())
    property.component = NameGuid("component:" + property.component_name);
  property.group_guid = NameGuid("group:" + property.group_name);
  property.guid = NameGuid("property:" + property.group_guid + ":" + property.name);
  return Published{name, std::move(property)};
}

}  // namespace

std::variant<std::vector<Published>, Failure> MakePublication(const PublishOptions& options) {
  std::vector<Published> publication;
  for (const std::string& assignment : options.assignments) {
    auto made = MakeOne(assignment, options);
    if (const Failure* failure = std::get_if<Failure>(&made)) return *failure;
    Published& published = std::get<Published>(made);
    const auto same = [&](const Published& other) {
      return other.property.address() == published.property.address();
    };
    if (std::any_of(publication.begin(), publication.end(), same))
      return Failure{kExitUsage, "\"" + published.name + "\" is there twice"};
    publication.push_back(std::move(published));
  }
  return publication;
}

}  // namespace valmere::tools
