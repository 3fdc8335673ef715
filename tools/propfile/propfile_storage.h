// Files of the desk, read whole and replaced whole.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include "tools/process/exit_code.h"

namespace valmere::tools {

// True when the name is taken, if only by a link that leads nowhere.
bool IsThere(const std::string& path);

// All bytes of a regular file; of one that has more than `most`, that many of its beginning.
std::variant<std::string, Failure> ReadWholeFile(const std::string& path,
                                                 std::size_t most = SIZE_MAX);

// Puts `bytes` in the place of the file's content: they are written to a new file beside it, which
// then takes its name, so that a reader finds the old content or the new one, whole. Mode and,
// where the user may, owner stay. A symbolic link stays one; what it leads to is replaced. The file
// and its name are on the disk when it is done; nothing is left of a failure.
std::optional<Failure> ReplaceFile(const std::string& path, std::string_view bytes);

// The same for a file that is not there yet, which gets the mode of the file `like`. Fails where
// there is one.
std::optional<Failure> CreateFile(const std::string& path, const std::string& like,
                                  std::string_view bytes);

}  // namespace valmere::tools
