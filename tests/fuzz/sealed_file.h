// Property files as fuzz targets and their mutator make them.
#pragma once

#include <string>
#include <string_view>

#include "persist/file/crc16.h"
#include "persist/file/property_file.h"

namespace valmere::test {

inline constexpr platform::WidePathView kMainFile = u"/Store/Properties.ini";
inline constexpr platform::WidePathView kOverrideFile = u"/Store/Override.ini";

// The trailer that the body must have.
inline std::string TrailerOf(std::string_view body) {
  const unsigned crc = Crc16(body);
  return {static_cast<char>(crc & 0xFF), static_cast<char>(crc >> 8)};
}

inline std::string Sealed(std::string_view body) {
  return std::string(body) + TrailerOf(body);
}

// Whether each line of the body is complete, well formed and the only one of its key, when `map` is
// what was read of it.
inline bool HasOneLineForEach(std::string_view body, const PropertyMap& map) {
  std::size_t lines = 0;
  for (const char byte : body)
    if (byte == '\n') ++lines;
  return lines == map.size() && (body.empty() || body.back() == '\n');
}

}  // namespace valmere::test
