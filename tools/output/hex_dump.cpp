#include "tools/output/hex_dump.h"

#include <cstdio>

namespace valmere::tools {

std::vector<std::string> HexDump(std::string_view bytes) {
  constexpr std::size_t kPerLine = 16;
  std::vector<std::string> lines;
  for (std::size_t offset = 0; offset < bytes.size(); offset += kPerLine) {
    char number[32];
    std::snprintf(number, sizeof(number), "%04zX ", offset);
    std::string line = number;
    std::string characters;
    for (const char byte : bytes.substr(offset, kPerLine)) {
      const auto value = static_cast<unsigned char>(byte);
      std::snprintf(number, sizeof(number), " %02X", value);
      line += number;
      characters += value >= 0x20 && value < 0x7f ? byte : '.';
    }
    line.append(3 * (kPerLine - characters.size()) + 2, ' ');
    lines.push_back(line + characters);
  }
  return lines;
}

}  // namespace valmere::tools
