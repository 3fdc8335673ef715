// A version 5 GUID is the first half of a SHA-1 of namespace and name with six bits replaced. SHA-1
// serves as a plain mixing function here; nothing depends on it being hard to reverse.
#include "tools/names/name_guid.h"

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>

namespace valmere::tools {
namespace {

constexpr unsigned char kNamespace[16] = {0x5b, 0x1e, 0x6c, 0x0a, 0x9e, 0x43, 0x4c, 0x55,
                                          0x9c, 0x63, 0x0b, 0x0f, 0x8e, 0x1d, 0x7a, 0x21};
constexpr std::size_t kBlockBytes = 64;

using Digest = std::array<std::uint32_t, 5>;

std::uint32_t WordAt(std::string_view bytes, std::size_t at) {
  std::uint32_t word = 0;
  for (std::size_t i = 0; i < 4; ++i)
    word = word << 8 | static_cast<unsigned char>(bytes[at + i]);
  return word;
}

std::array<std::uint32_t, 80> Schedule(std::string_view block) {
  std::array<std::uint32_t, 80> words{};
  for (std::size_t i = 0; i < 16; ++i)
    words[i] = WordAt(block, 4 * i);
  for (std::size_t i = 16; i < 80; ++i)
    words[i] = std::rotl(words[i - 3] ^ words[i - 8] ^ words[i - 14] ^ words[i - 16], 1);
  return words;
}

std::uint32_t Mix(std::size_t round, std::uint32_t b, std::uint32_t c, std::uint32_t d) {
  if (round < 20) return ((b & c) | (~b & d)) + 0x5a827999;
  if (round < 40) return (b ^ c ^ d) + 0x6ed9eba1;
  if (round < 60) return ((b & c) | (b & d) | (c & d)) + 0x8f1bbcdc;
  return (b ^ c ^ d) + 0xca62c1d6;
}

void Absorb(Digest& digest, std::string_view block) {
  const auto words = Schedule(block);
  auto [a, b, c, d, e] = digest;
  for (std::size_t i = 0; i < words.size(); ++i) {
    const std::uint32_t next = std::rotl(a, 5) + Mix(i, b, c, d) + e + words[i];
    e = d;
    d = c;
    c = std::rotl(b, 30);
    b = a;
    a = next;
  }
  digest[0] += a;
  digest[1] += b;
  digest[2] += c;
  digest[3] += d;
  digest[4] += e;
}

Digest Sha1(std::string bytes) {
  const std::uint64_t bits = std::uint64_t{bytes.size()} * 8;
  bytes += '\x80';
  bytes.append((kBlockBytes - (bytes.size() + 8) % kBlockBytes) % kBlockBytes, '\0');
  for (int shift = 56; shift >= 0; shift -= 8)
    bytes += static_cast<char>(bits >> shift & 0xff);
  Digest digest = {0x67452301, 0xefcdab89, 0x98badcfe, 0x10325476, 0xc3d2e1f0};
  for (std::size_t at = 0; at < bytes.size(); at += kBlockBytes)
    Absorb(digest, std::string_view(bytes).substr(at, kBlockBytes));
  return digest;
}

}  // namespace

std::string NameGuid(std::string_view name_space, std::string_view name) {
  Digest digest = Sha1(std::string(name_space) + std::string(name));
  digest[1] = (digest[1] & 0xffff0fff) | 0x5000;      // version
  digest[2] = (digest[2] & 0x3fffffff) | 0x80000000;  // variant
  std::string guid;
  for (std::size_t i = 0; i < 32; ++i) {
    if (i == 8 || i == 12 || i == 16 || i == 20) guid += '-';
    guid += "0123456789ABCDEF"[digest[i / 8] >> (28 - 4 * (i % 8)) & 0xf];
  }
  return guid;
}

std::string NameGuid(std::string_view name) {
  return NameGuid({reinterpret_cast<const char*>(kNamespace), sizeof(kNamespace)}, name);
}

}  // namespace valmere::tools
