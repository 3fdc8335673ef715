// Properties as JSON objects; docs/formats/cli-json.md describes them.
#pragma once

#include <nlohmann/json.hpp>

#include <optional>
#include <string>
#include <string_view>

#include "client/property.h"

namespace valmere::tools {

using Json = nlohmann::ordered_json;

// Adds a member `key`, or `key`_base64 when the text is no UTF-8.
void AddText(Json& object, const std::string& key, std::string_view text);
// The text that AddText added; nothing when there is none.
std::optional<std::string> FindText(const Json& object, const std::string& key);

// Names, value, status and GUIDs.
Json ToJson(const client::Property& property);
// The same without the status.
Json ToExport(const client::Property& property);
// Nothing when a GUID or the value is missing; names may be.
std::optional<client::Property> FromExport(const Json& object);

}  // namespace valmere::tools
