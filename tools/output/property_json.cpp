// JSON is UTF-8, values are bytes: what is no UTF-8 goes under a key of its own, so that a reader
// can't mistake one for the other.
#include "tools/output/property_json.h"

#include "tools/output/base64.h"
#include "tools/output/text.h"

namespace valmere::tools {
namespace {

using client::Property;

constexpr char kBase64Suffix[] = "_base64";

}  // namespace

void AddText(Json& object, const std::string& key, std::string_view text) {
  if (IsUtf8(text))
    object[key] = text;
  else
    object[key + kBase64Suffix] = EncodeBase64(text);
}

std::optional<std::string> FindText(const Json& object, const std::string& key) {
  if (const auto found = object.find(key); found != object.end()) {
    if (!found->is_string()) return std::nullopt;
    return found->get<std::string>();
  }
  const auto encoded = object.find(key + kBase64Suffix);
  if (encoded == object.end() || !encoded->is_string()) return std::nullopt;
  return DecodeBase64(encoded->get<std::string>());
}

Json ToJson(const Property& property) {
  Json object = Json::object();
  AddText(object, "component", property.component_name);
  AddText(object, "group", property.group_name);
  AddText(object, "name", property.name);
  AddText(object, "value", property.value);
  AddText(object, "status", property.status);
  AddText(object, "component_guid", property.component);
  AddText(object, "group_guid", property.group_guid);
  AddText(object, "guid", property.guid);
  return object;
}

Json ToExport(const Property& property) {
  Json object = ToJson(property);
  object.erase("status");
  return object;
}

std::optional<Property> FromExport(const Json& object) {
  if (!object.is_object()) return std::nullopt;
  const auto value = FindText(object, "value");
  const auto component = FindText(object, "component_guid");
  const auto group = FindText(object, "group_guid");
  const auto guid = FindText(object, "guid");
  if (!value || !component || !group || !guid) return std::nullopt;
  Property property;
  property.value = *value;
  property.component = *component;
  property.group_guid = *group;
  property.guid = *guid;
  property.component_name = FindText(object, "component").value_or(property.component);
  property.group_name = FindText(object, "group").value_or(property.group_guid);
  property.name = FindText(object, "name").value_or(property.guid);
  return property;
}

}  // namespace valmere::tools
