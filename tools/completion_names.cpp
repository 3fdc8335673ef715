// Every form that a property may be called by is counted once for each property that it could mean;
// only those that begin with what was typed matter.
#include "tools/completion_names.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <unordered_map>

namespace valmere::tools {
namespace {

using client::Property;

constexpr std::size_t kForms = 3;
using Forms = std::array<std::string, kForms>;

// Shortest first.
Forms FormsOf(const Property& property) {
  return {property.name, property.group_name + "/" + property.name,
          property.component_name + "/" + property.group_name + "/" + property.name};
}

std::string GuidsOf(const Property& property) {
  return property.component + "/" + property.group_guid + "/" + property.guid;
}

bool CanBeTyped(std::string_view text) {
  return !text.empty() && std::none_of(text.begin(), text.end(), [](char character) {
    const auto byte = static_cast<unsigned char>(character);
    return byte < 0x20 || byte == 0x7f;
  });
}

// The property that a form means, or null when it could be several.
using Meanings = std::unordered_map<std::string, const Property*>;

void Count(const std::string& form, const Property& property, Meanings& meanings) {
  const auto [entry, is_new] = meanings.try_emplace(form, &property);
  if (!is_new && entry->second != &property) entry->second = nullptr;
}

}  // namespace

std::vector<std::string> NameCandidates(std::string_view typed,
                                        std::span<const Property> properties) {
  Meanings meanings;
  std::vector<Forms> forms;
  forms.reserve(properties.size());
  for (const Property& property : properties) {
    for (const std::string& form : forms.emplace_back(FormsOf(property))) {
      if (form.starts_with(typed)) Count(form, property, meanings);
    }
    if (property.guid.starts_with(typed)) Count(property.guid, property, meanings);
  }
  std::vector<std::string> names;
  std::vector<std::string> guids;
  for (std::size_t i = 0; i < properties.size(); ++i) {
    const auto shortest =
        std::find_if(forms[i].begin(), forms[i].end(), [&](const std::string& form) {
          return CanBeTyped(form) && form.starts_with(typed) && meanings.at(form) != nullptr;
        });
    if (shortest != forms[i].end())
      names.push_back(std::move(*shortest));
    else if (std::string form = GuidsOf(properties[i]); form.starts_with(typed))
      guids.push_back(std::move(form));
  }
  // GUIDs begin with letters too; whoever types the beginning of a name wants none.
  if (typed.empty() || names.empty()) names.insert(names.end(), guids.begin(), guids.end());
  std::sort(names.begin(), names.end());
  return names;
}

}  // namespace valmere::tools
