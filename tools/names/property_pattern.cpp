// The shell's own matching, so that users have no other to learn.
#include "tools/names/property_pattern.h"

#include <fnmatch.h>

#include <algorithm>

#include "tools/names/name_resolver.h"

namespace valmere::tools {
namespace {

using client::Property;

bool MatchesPattern(const std::string& pattern, const Property& property) {
  if (Matches(pattern, property)) return true;
  const std::string in_group = property.group_name + "/" + property.name;
  for (const std::string& name : {property.name, in_group, FullName(property)})
    if (fnmatch(pattern.c_str(), name.c_str(), 0) == 0) return true;
  return false;
}

}  // namespace

bool PropertyPatterns::Match(const Property& property) const {
  return patterns_.empty() ||
         std::any_of(patterns_.begin(), patterns_.end(),
                     [&](const std::string& pattern) { return MatchesPattern(pattern, property); });
}

std::vector<const Property*> PropertyPatterns::Pick(const std::vector<Property>& properties) const {
  std::vector<const Property*> picked;
  for (const Property& property : properties)
    if (Match(property)) picked.push_back(&property);
  return picked;
}

}  // namespace valmere::tools
