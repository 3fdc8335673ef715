// The line that --format asks for.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "client/property.h"

namespace valmere::tools {

// What is wrong with a format; nothing when it can be used.
std::optional<std::string> CheckFormat(std::string_view format);

// `format` with %c, %g and %n as the names of component, group and property, %C, %G and %N as their
// GUIDs, %v as the value, %t as the status and %% as a percent sign; \n, \t, \0 and \\ stand for a
// line feed, a tabulator, a NUL and a backslash. The format has passed CheckFormat.
std::string Format(std::string_view format, const client::Property& property);

}  // namespace valmere::tools
