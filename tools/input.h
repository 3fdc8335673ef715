// What a command reads beside its arguments.
#pragma once

#include <string>
#include <variant>

#include "tools/exit_code.h"

namespace valmere::tools {

// All of a file, or of standard input for "-". The failure names what could not be read; what had
// come until then is dropped, so that nobody acts on half of it.
std::variant<std::string, Failure> ReadInput(const std::string& path);

}  // namespace valmere::tools
