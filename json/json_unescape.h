// The content of a JSON string as the text that it stands for.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "json/parse_stop.h"

namespace valmere {

// The size of the escape that `text` begins with, if it is one that a double-quoted string may
// hold; else 0.
std::size_t EscapeSize(std::string_view text);

// Resolves the escapes of `content`, the text between the quotes. An unknown escape is dropped with
// its backslash, and so is a backslash at the end. Each \u escape becomes UTF-8 by itself:
// surrogates are not combined. A \u that no hexadecimal number follows throws
// std::invalid_argument "invalid stoul argument". ParseStopped.
std::string UnescapeJson(std::string_view content, const ParseStop& stop = {});

}  // namespace valmere
