// Property files for tests, made without the code that they test.
#pragma once

#include <string>
#include <string_view>

#include "platform/wide_path.h"

namespace valmere::test {

inline constexpr platform::WidePathView kPropertyFile = u"/Store/ValmereProperties.ini";
inline constexpr platform::WidePathView kOverrideFile = u"/Store/ValmerePropertiesOverride.ini";

// The checksum as the file format defines it, bit by bit.
inline unsigned BitwiseCrc16(std::string_view bytes) {
  unsigned crc = 0;
  for (const char character : bytes)
    for (unsigned bit = 0; bit < 8; ++bit) {
      const unsigned data = static_cast<unsigned char>(character) >> bit & 1u;
      crc = (data ^ (crc & 1u)) != 0 ? (crc >> 1) ^ 0xA001u : crc >> 1;
    }
  return ~crc & 0xFFFFu;
}

// The body and its trailer.
inline std::string WithTrailer(std::string body) {
  const unsigned crc = BitwiseCrc16(body);
  body.push_back(static_cast<char>(crc & 0xFF));
  body.push_back(static_cast<char>(crc >> 8));
  return body;
}

// As many lines of the service's own shape as asked for.
inline std::string ManyLines(int count) {
  std::string body;
  for (int i = 0; i < count; ++i) {
    const std::string number = std::to_string(100000 + i);
    body += "99A61D40-20CE-41EA-A579-EB92C6ED94C6:CD31503F-4949-40E1-BA2C-B2A88C" + number +
            "|General:Setting " + number + "=" + std::to_string(i) + "\n";
  }
  return body;
}

}  // namespace valmere::test
