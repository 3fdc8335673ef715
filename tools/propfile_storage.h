// Files of the desk, read whole and replaced whole.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include "tools/exit_code.h"

namespace valmere::tools {

// All bytes of a regular file.
std::variant<std::string, Failure> ReadWholeFile(const std::string& path);

// Puts `bytes` in the place of the file's content: they are written to a new file beside it, which
// then takes its name, so that whoever opens it finds the old content or the new one, whole. Mode
// and, where the user may, owner stay. A symbolic link stays one; what it leads to is replaced.
std::optional<Failure> ReplaceFile(const std::string& path, std::string_view bytes);

}  // namespace valmere::tools
