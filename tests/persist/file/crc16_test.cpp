#include "persist/file/crc16.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "tests/persist/file/property_file_samples.h"

namespace valmere::test {
namespace {

std::string Noise(std::size_t size) {
  std::string bytes;
  std::uint32_t state = 12345;
  while (bytes.size() < size) {
    state = state * 1664525u + 1013904223u;
    bytes.push_back(static_cast<char>(state >> 24));
  }
  return bytes;
}

TEST(Crc16, GivesThePublishedCheckValues) {
  EXPECT_EQ(Crc16("123456789"), 0x44C2);
  EXPECT_EQ(Crc16(""), 0xFFFF);
  EXPECT_EQ(Crc16("a|b=1\n"), 0xA7BD);
}

TEST(Crc16, EqualsTheBitwiseDefinitionAtEverySizeAndOffset) {
  const std::string noise = Noise(3000);
  for (std::size_t size = 0; size < 2600; ++size) {
    const std::string_view bytes = std::string_view(noise).substr(size % 11, size);
    ASSERT_EQ(Crc16(bytes), BitwiseCrc16(bytes)) << size;
  }
}

TEST(Crc16, EqualsTheBitwiseDefinitionForALargeFile) {
  const std::string noise = Noise(1'000'003);
  EXPECT_EQ(Crc16(noise), BitwiseCrc16(noise));
}

TEST(Crc16, SeesEverySingleFlippedBit) {
  std::string bytes = Noise(700);
  const std::uint16_t crc = Crc16(bytes);
  for (std::size_t bit = 0; bit < bytes.size() * 8; ++bit) {
    bytes[bit / 8] = static_cast<char>(bytes[bit / 8] ^ (1 << bit % 8));
    ASSERT_NE(Crc16(bytes), crc) << bit;
    bytes[bit / 8] = static_cast<char>(bytes[bit / 8] ^ (1 << bit % 8));
  }
}

}  // namespace
}  // namespace valmere::test
