// The content of a JSON string as the text that it stands for.
#pragma once

#include <string>
#include <string_view>

namespace valmere {

// Resolves the escapes of `content`, the text between the quotes. An unknown escape is dropped with
// its backslash, and so is a backslash at the end. Each \u escape becomes UTF-8 by itself:
// surrogates are not combined. A \u that no hexadecimal number follows throws
// std::invalid_argument "invalid stoul argument".
std::string UnescapeJson(std::string_view content);

}  // namespace valmere
