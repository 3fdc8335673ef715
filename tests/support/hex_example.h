// The worked examples of the format descriptions.
#pragma once

#include <fstream>
#include <stdexcept>
#include <string>

namespace valmere::test {

// The bytes of the first block that the file fences with "```hex". Each of its lines is an offset,
// two blanks, up to sixteen bytes of two digits each, and the same bytes as characters.
inline std::string HexExample(const std::string& path) {
  std::ifstream file(path);
  std::string line;
  while (std::getline(file, line) && line != "```hex") {
  }
  std::string bytes;
  while (std::getline(file, line) && line != "```") {
    const std::string digits = line.substr(6, 47);
    for (std::size_t at = 0; at + 1 < digits.size() && digits[at] != ' '; at += 3)
      bytes.push_back(static_cast<char>(std::stoi(digits.substr(at, 2), nullptr, 16)));
  }
  if (bytes.empty()) throw std::runtime_error("no example in " + path);
  return bytes;
}

}  // namespace valmere::test
