// GUIDs for what has only a name.
#pragma once

#include <string>
#include <string_view>

namespace valmere::tools {

// The name-based GUID (RFC 4122, version 5) of `name` in our namespace
// 5B1E6C0A-9E43-4C55-9C63-0B0F8E1D7A21, in upper case. The same name always has the same
// GUID, everywhere.
std::string NameGuid(std::string_view name);

// The same in a namespace given as 16 bytes.
std::string NameGuid(std::string_view name_space, std::string_view name);

}  // namespace valmere::tools
