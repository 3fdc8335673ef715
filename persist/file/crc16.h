// The checksum that ends a property file.
#pragma once

#include <cstdint>
#include <string_view>

namespace valmere {

// CRC-16/MAXIM: polynomial 0x8005, least significant bit of each byte first, start 0, complemented
// at the end. "123456789" gives 0x44C2, no bytes at all give 0xFFFF.
std::uint16_t Crc16(std::string_view bytes) noexcept;

}  // namespace valmere
