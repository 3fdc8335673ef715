// Bytes for people.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace valmere::tools {

// Lines of offset, 16 bytes in hexadecimal, and the same as characters.
std::vector<std::string> HexDump(std::string_view bytes);

}  // namespace valmere::tools
