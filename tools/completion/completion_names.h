// Names of properties to complete a word with.
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "client/property.h"

namespace valmere::tools {

// For each property the shortest text that begins with `typed` and names it alone: its name,
// group/name or component/group/name; component, group and property GUID where no name does, or
// where `typed` begins no name at all. In byte order. Names that can't be typed, because they hold
// control characters, are left out.
std::vector<std::string> NameCandidates(std::string_view typed,
                                        std::span<const client::Property> properties);

}  // namespace valmere::tools
