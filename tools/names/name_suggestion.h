// What a user may have meant.
#pragma once

#include <span>
#include <string_view>
#include <vector>

#include "client/property.h"

namespace valmere::tools {

// The properties whose names are nearest to a name that is none, at most five; none when nothing is
// near. Pointers into `properties`.
std::vector<const client::Property*> NearestTo(std::string_view name,
                                               std::span<const client::Property> properties);

}  // namespace valmere::tools
