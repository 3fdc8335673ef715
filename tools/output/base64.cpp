// Three bytes make four characters. Decoding takes exactly what encoding gives, so that each text
// of bytes has one form only.
#include "tools/output/base64.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>

namespace valmere::tools {
namespace {

constexpr std::string_view kDigits =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

void AppendGroup(std::string_view bytes, std::string& text) {
  std::uint32_t bits = 0;
  for (std::size_t i = 0; i < 3; ++i)
    bits = bits << 8 | (i < bytes.size() ? static_cast<unsigned char>(bytes[i]) : 0U);
  for (std::size_t i = 0; i < 4; ++i)
    text += i <= bytes.size() ? kDigits[bits >> (18 - 6 * i) & 0x3f] : '=';
}

// False when a character is no digit.
bool TakeGroup(std::string_view group, std::string& bytes) {
  const std::size_t digits = std::min(group.find('='), group.size());
  if (digits < 2) return false;
  std::uint32_t bits = 0;
  for (std::size_t i = 0; i < 4; ++i) {
    const std::size_t digit = i < digits ? kDigits.find(group[i]) : 0;
    if (digit == std::string_view::npos) return false;
    bits = bits << 6 | static_cast<std::uint32_t>(digit);
  }
  for (std::size_t i = 0; i + 1 < digits; ++i)
    bytes += static_cast<char>(bits >> (16 - 8 * i) & 0xff);
  return true;
}

}  // namespace

std::string EncodeBase64(std::string_view bytes) {
  std::string text;
  for (; !bytes.empty(); bytes.remove_prefix(std::min<std::size_t>(3, bytes.size())))
    AppendGroup(bytes.substr(0, 3), text);
  return text;
}

std::optional<std::string> DecodeBase64(std::string_view text) {
  if (text.size() % 4 != 0) return std::nullopt;
  std::string bytes;
  for (std::size_t i = 0; i < text.size(); i += 4)
    if (!TakeGroup(text.substr(i, 4), bytes)) return std::nullopt;
  if (EncodeBase64(bytes) != text) return std::nullopt;
  return bytes;
}

}  // namespace valmere::tools
