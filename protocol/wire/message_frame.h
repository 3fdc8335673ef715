// The frame: 16 identifier bytes, the length of the text as a little-endian 32-bit number, the text
// of one JSON object. Plain constants, so that every program that speaks it can include them.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

namespace valmere {

inline constexpr std::array<unsigned char, 16> kStreamFormatIdentifier = {
    0xb3, 0xec, 0x09, 0x9a, 0x22, 0x92, 0x48, 0xfa, 0x83, 0xd0, 0x06, 0x84, 0x0b, 0xc9, 0x91, 0x02};

inline constexpr std::size_t kLengthFieldBytes = 4;
inline constexpr std::size_t kFrameHeaderBytes = kStreamFormatIdentifier.size() + kLengthFieldBytes;
// The longest text that a receiver takes; a sender checks nothing.
inline constexpr std::uint32_t kMaximumMessageBytes = 0x400000;

inline std::uint32_t DecodeLength(const unsigned char* field) {
  return static_cast<std::uint32_t>(field[0]) | static_cast<std::uint32_t>(field[1]) << 8 |
         static_cast<std::uint32_t>(field[2]) << 16 | static_cast<std::uint32_t>(field[3]) << 24;
}

// Starts a frame at the end of `out` with a header that has no length yet. The text follows.
inline void BeginFrame(std::string& out) {
  out.append(reinterpret_cast<const char*>(kStreamFormatIdentifier.data()),
             kStreamFormatIdentifier.size());
  out.append(kLengthFieldBytes, '\0');
}

// Ends the frame that fills `out` from its first byte: the header gets the length of the text.
inline void EndFrame(std::string& out) {
  const auto length = static_cast<std::uint32_t>(out.size() - kFrameHeaderBytes);
  for (std::size_t i = 0; i < kLengthFieldBytes; ++i)
    out[kStreamFormatIdentifier.size() + i] = static_cast<char>(length >> (8 * i) & 0xff);
}

}  // namespace valmere
