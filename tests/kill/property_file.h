// The property file as a plain reader sees it, which shares no code with the service.
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace valmere::test {

struct PropertyFile {
  std::string fault;                         // empty for a sound file
  std::map<std::string, std::string> lines;  // values by all that stands before their "="
};

// A sound file has a good checksum, whole lines, and each left side once.
PropertyFile ReadPropertyFile(const std::string& path);

// Writes a sound file; the lines in the order that is given. Throws std::runtime_error.
void WritePropertyFile(const std::string& path, const std::vector<std::string>& lines);

}  // namespace valmere::test
