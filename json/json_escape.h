// Escaping of outside text for the content of a JSON string.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace valmere {

// Appends `text` with double quote, backslash and the bytes below 0x20 escaped; every other byte,
// the slash and the bytes from 0x7F on included, stays as it is. The text is taken as bytes, not as
// UTF-8. `text` must not lie in `out`.
void AppendEscaped(std::string_view text, std::string& out);
// How many bytes that appends.
std::size_t EscapedSize(std::string_view text);
std::string EscapeJson(std::string_view text);

}  // namespace valmere
