// The checksum is the rest that the bytes, seen as a polynomial over GF(2), leave on division by
// P = x^16 + x^15 + x^2 + 1. Taking it bit by bit or byte by byte from a table makes every step
// wait for the one before. But squaring is linear over GF(2), so P^64 = x^1024 + x^960 + x^128 + 1
// has four terms too, all at multiples of 64 bits, and P divides it: dividing by P^64 first doesn't
// change the rest. That division moves whole 64-bit words: a word adds itself to the words 1, 14
// and 16 places later and is gone. What is left are 128 bytes, which the table then takes. A word
// is only moved and XORed, so neither the order of bits in a byte nor of bytes in a word matters.
#include "persist/file/crc16.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>

namespace valmere {
namespace {

using Word = std::uint64_t;
constexpr std::size_t kDegreeInWords = 16;
constexpr std::size_t kChunkWords = 128;

constexpr std::array<std::uint16_t, 256> MakeTable() {
  std::array<std::uint16_t, 256> table{};
  for (unsigned byte = 0; byte < 256; ++byte) {
    unsigned crc = byte;
    for (int bit = 0; bit < 8; ++bit)
      crc = (crc >> 1) ^ ((crc & 1u) != 0 ? 0xA001u : 0u);
    table[byte] = static_cast<std::uint16_t>(crc);
  }
  return table;
}
constexpr std::array<std::uint16_t, 256> kTable = MakeTable();

unsigned ByTable(unsigned crc, const char* bytes, std::size_t size) {
  for (std::size_t i = 0; i < size; ++i)
    crc = (crc >> 8) ^ kTable[(crc ^ static_cast<unsigned char>(bytes[i])) & 0xFF];
  return crc;
}

// What a division by P^64 leaves of `count` leading words, to be added to the 128 bytes after them.
std::array<Word, kDegreeInWords> Fold(const char* bytes, std::size_t count) {
  // The quotient; its first 16 words are the last ones of the chunk before.
  std::array<Word, kDegreeInWords + kChunkWords> quotient{};
  while (count > 0) {
    const std::size_t chunk = std::min(count, kChunkWords);
    Word last = quotient[kDegreeInWords - 1];
    for (std::size_t i = 0; i < chunk; ++i) {
      Word word;
      std::memcpy(&word, bytes + i * sizeof word, sizeof word);
      last ^= word ^ quotient[i + 2] ^ quotient[i];
      quotient[i + kDegreeInWords] = last;
    }
    std::memmove(quotient.data(), quotient.data() + chunk, kDegreeInWords * sizeof(Word));
    bytes += chunk * sizeof(Word);
    count -= chunk;
  }
  std::array<Word, kDegreeInWords> rest{};
  for (std::size_t i = 0; i < kDegreeInWords; ++i)
    rest[i] = quotient[i] ^ (i < kDegreeInWords - 2 ? quotient[i + 2] : 0);
  rest[0] ^= quotient[kDegreeInWords - 1];
  return rest;
}

}  // namespace

std::uint16_t Crc16(std::string_view bytes) noexcept {
  constexpr std::size_t kRestBytes = kDegreeInWords * sizeof(Word);
  const char* at = bytes.data();
  std::size_t size = bytes.size();
  unsigned crc = 0;
  if (size >= 2 * kRestBytes) {
    const std::size_t folded = size / sizeof(Word) - kDegreeInWords;
    const std::array<Word, kDegreeInWords> rest = Fold(at, folded);
    at += folded * sizeof(Word);
    char bytes_of_rest[kRestBytes];
    std::memcpy(bytes_of_rest, rest.data(), kRestBytes);
    for (std::size_t i = 0; i < kRestBytes; ++i)
      bytes_of_rest[i] = static_cast<char>(bytes_of_rest[i] ^ at[i]);
    crc = ByTable(crc, bytes_of_rest, kRestBytes);
    at += kRestBytes;
    size -= folded * sizeof(Word) + kRestBytes;
  }
  return static_cast<std::uint16_t>(~ByTable(crc, at, size));
}

}  // namespace valmere
