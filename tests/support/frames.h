// Frames as tests write them: byte by byte, without the code that they test.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace valmere::test {

inline std::string IdentifierBytes() {
  return {"\xb3\xec\x09\x9a\x22\x92\x48\xfa\x83\xd0\x06\x84\x0b\xc9\x91\x02", 16};
}

inline std::string LengthBytes(std::uint32_t length) {
  std::string bytes;
  for (int i = 0; i < 4; ++i, length /= 256)
    bytes.push_back(static_cast<char>(length % 256));
  return bytes;
}

// The three fields of a frame, each a piece of its own.
inline std::vector<std::string> FieldsOf(std::string_view text) {
  return {IdentifierBytes(), LengthBytes(static_cast<std::uint32_t>(text.size())),
          std::string(text)};
}

inline std::string FrameOf(std::string_view text) {
  return IdentifierBytes() + LengthBytes(static_cast<std::uint32_t>(text.size())) +
         std::string(text);
}

}  // namespace valmere::test
