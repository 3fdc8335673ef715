// From what a user types to one property.
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <variant>

#include "client/property.h"
#include "tools/process/exit_code.h"

namespace valmere::tools {

// "component/group/name".
std::string FullName(const client::Property& property);

// True when `name` is the property's name, "group/name" or "component/group/name"; a GUID may stand
// for each of the three. Names are compared byte by byte and may contain a slash themselves.
bool Matches(std::string_view name, const client::Property& property);

// The one property that `name` matches. A Failure of kExitNoSuchProperty when there is none, naming
// those that may have been meant, and of kExitUsage, naming the candidates, when there are several.
std::variant<const client::Property*, Failure> Resolve(
    std::string_view name, std::span<const client::Property> properties);

}  // namespace valmere::tools
