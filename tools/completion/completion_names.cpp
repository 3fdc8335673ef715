// Every form that a property may be called by is counted once for each property that it could mean;
// only those that begin with what was typed matter.
#include "tools/completion/completion_names.h"

#include <algorithm>
#include <cstddef>
#include <unordered_map>

namespace valmere::tools {
namespace {

using client::Property;

// Shortest first. The text is one for all: few of the forms are looked at again.
constexpr std::size_t kNameForms = 3;
void WriteForm(const Property& property, std::size_t form, std::string& text) {
  text.clear();
  if (form > 1) text.append(property.component_name).push_back('/');
  if (form > 0) text.append(property.group_name).push_back('/');
  text.append(property.name);
}

void WriteGuids(const Property& property, std::string& text) {
  text.assign(property.component).push_back('/');
  text.append(property.group_guid).push_back('/');
  text.append(property.guid);
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

// The meanings of all forms that begin with what was typed.
Meanings MeaningsOf(std::string_view typed, std::span<const Property> properties) {
  Meanings meanings;
  std::string text;
  for (const Property& property : properties) {
    for (std::size_t form = 0; form < kNameForms; ++form) {
      WriteForm(property, form, text);
      if (text.starts_with(typed)) Count(text, property, meanings);
    }
    if (property.guid.starts_with(typed)) Count(property.guid, property, meanings);
  }
  return meanings;
}

// Leaves the shortest form that means the property alone in `text`; false when there is none.
bool WriteName(const Property& property, std::string_view typed, const Meanings& meanings,
               std::string& text) {
  for (std::size_t form = 0; form < kNameForms; ++form) {
    WriteForm(property, form, text);
    if (text.starts_with(typed) && CanBeTyped(text) && meanings.at(text) != nullptr) return true;
  }
  return false;
}

}  // namespace

std::vector<std::string> NameCandidates(std::string_view typed,
                                        std::span<const Property> properties) {
  const Meanings meanings = MeaningsOf(typed, properties);
  std::vector<std::string> names;
  std::vector<std::string> guids;
  std::string text;
  for (const Property& property : properties) {
    if (WriteName(property, typed, meanings, text)) {
      names.push_back(text);
      continue;
    }
    WriteGuids(property, text);
    if (text.starts_with(typed)) guids.push_back(text);
  }
  // GUIDs begin with letters too; a user who types the beginning of a name wants none.
  if (typed.empty() || names.empty()) names.insert(names.end(), guids.begin(), guids.end());
  std::sort(names.begin(), names.end());
  return names;
}

}  // namespace valmere::tools
