// A name is not cut at its slashes, because every part of it may contain some: each property is
// asked whether the name could mean it.
#include "tools/names/name_resolver.h"

#include <vector>

#include "tools/names/name_suggestion.h"

namespace valmere::tools {
namespace {

using client::Property;

// Takes `part` and a slash from the front of `name`.
bool TakePart(std::string_view& name, std::string_view part) {
  if (!name.starts_with(part) || name.size() == part.size() || name[part.size()] != '/')
    return false;
  name.remove_prefix(part.size() + 1);
  return true;
}

bool MatchesName(std::string_view name, const Property& property) {
  return name == property.name || name == property.guid;
}

bool MatchesGroup(std::string_view name, const Property& property) {
  for (const std::string& group : {property.group_name, property.group_guid}) {
    std::string_view rest = name;
    if (TakePart(rest, group) && MatchesName(rest, property)) return true;
  }
  return false;
}

std::string Quoted(std::string_view name) {
  std::string text = "\"";
  return text.append(name).append("\"");
}

std::string Candidates(std::string_view name, const std::vector<const Property*>& matches) {
  std::string text = Quoted(name) + " is ambiguous; it could be";
  for (const Property* match : matches) {
    text.append("\n  ").append(FullName(*match)).append("  (").append(match->component).append("/");
    text.append(match->group_guid).append("/").append(match->guid).append(")");
  }
  return text;
}

std::string Unknown(std::string_view name, std::span<const Property> properties) {
  std::string text = "no property " + Quoted(name);
  const auto nearest = NearestTo(name, properties);
  if (!nearest.empty()) text += "; did you mean";
  for (const Property* property : nearest)
    text.append("\n  ").append(FullName(*property));
  return text;
}

}  // namespace

std::string FullName(const Property& property) {
  return property.component_name + "/" + property.group_name + "/" + property.name;
}

bool Matches(std::string_view name, const Property& property) {
  if (MatchesName(name, property) || MatchesGroup(name, property)) return true;
  for (const std::string& component : {property.component_name, property.component}) {
    std::string_view rest = name;
    if (TakePart(rest, component) && MatchesGroup(rest, property)) return true;
  }
  return false;
}

std::variant<const Property*, Failure> Resolve(std::string_view name,
                                               std::span<const Property> properties) {
  std::vector<const Property*> matches;
  for (const Property& property : properties)
    if (Matches(name, property)) matches.push_back(&property);
  if (matches.size() == 1) return matches.front();
  if (matches.empty()) return Failure{kExitNoSuchProperty, Unknown(name, properties)};
  return Failure{kExitUsage, Candidates(name, matches)};
}

}  // namespace valmere::tools
