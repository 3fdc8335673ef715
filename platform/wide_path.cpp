// UTF-16 to UTF-8 and back. Neither direction fails: what has no meaning in one form becomes the
// replacement character in the other, so that a damaged name simply names no file.
#include "platform/wide_path.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <utility>

namespace valmere::platform {
namespace {

constexpr char32_t kReplacement = 0xfffd;
constexpr char32_t kFirstBeyond16Bits = 0x10000;
constexpr char32_t kLast = 0x10ffff;

bool IsHighSurrogate(char32_t c) {
  return c >= 0xd800 && c <= 0xdbff;
}
bool IsLowSurrogate(char32_t c) {
  return c >= 0xdc00 && c <= 0xdfff;
}

// The first character of `path` and the number of units that it takes.
std::pair<char32_t, std::size_t> FirstOf(WidePathView path) {
  const char32_t first = path[0];
  if (IsHighSurrogate(first) && path.size() > 1 && IsLowSurrogate(path[1]))
    return {kFirstBeyond16Bits + ((first - 0xd800) << 10) + (path[1] - 0xdc00u), 2};
  if (IsHighSurrogate(first) || IsLowSurrogate(first)) return {kReplacement, 1};
  return {first, 1};
}

void AppendUtf8(std::string& text, char32_t c) {
  const auto trail = [&](unsigned shift) {
    text += static_cast<char>(0x80 | ((c >> shift) & 0x3f));
  };
  if (c < 0x80) {
    text += static_cast<char>(c);
  } else if (c < 0x800) {
    text += static_cast<char>(0xc0 | (c >> 6));
    trail(0);
  } else if (c < kFirstBeyond16Bits) {
    text += static_cast<char>(0xe0 | (c >> 12));
    trail(6), trail(0);
  } else {
    text += static_cast<char>(0xf0 | (c >> 18));
    trail(12), trail(6), trail(0);
  }
}

// The number of bytes of a character that begins with `lead`; 0 when no character does.
std::size_t SequenceLength(unsigned char lead) {
  if (lead < 0x80) return 1;
  if (lead >= 0xc2 && lead <= 0xdf) return 2;
  if (lead >= 0xe0 && lead <= 0xef) return 3;
  if (lead >= 0xf0 && lead <= 0xf4) return 4;
  return 0;
}

// The first character of `text` and the number of bytes that it takes. Overlong forms, surrogates
// and what lies beyond the last character are no UTF-8.
std::pair<char32_t, std::size_t> FirstOf(std::string_view text) {
  constexpr std::array<unsigned char, 5> kLeadBits = {0, 0x7f, 0x1f, 0x0f, 0x07};
  constexpr std::array<char32_t, 5> kSmallest = {0, 0, 0x80, 0x800, kFirstBeyond16Bits};
  const auto lead = static_cast<unsigned char>(text[0]);
  const std::size_t length = SequenceLength(lead);
  if (length == 0 || length > text.size()) return {kReplacement, 1};
  char32_t c = lead & kLeadBits[length];
  for (std::size_t i = 1; i < length; ++i) {
    const auto byte = static_cast<unsigned char>(text[i]);
    if ((byte & 0xc0) != 0x80) return {kReplacement, 1};
    c = (c << 6) | (byte & 0x3fu);
  }
  if (c < kSmallest[length] || c > kLast || IsHighSurrogate(c) || IsLowSurrogate(c))
    return {kReplacement, 1};
  return {c, length};
}

}  // namespace

std::string NarrowPath(WidePathView path) {
  std::string text;
  text.reserve(path.size());
  while (!path.empty()) {
    const auto [c, units] = FirstOf(path);
    AppendUtf8(text, c);
    path.remove_prefix(units);
  }
  return text;
}

WidePath WidenPath(std::string_view text) {
  WidePath path;
  path.reserve(text.size());
  while (!text.empty()) {
    const auto [c, bytes] = FirstOf(text);
    if (c < kFirstBeyond16Bits) {
      path += static_cast<char16_t>(c);
    } else {
      path += static_cast<char16_t>(0xd800 + ((c - kFirstBeyond16Bits) >> 10));
      path += static_cast<char16_t>(0xdc00 + (c & 0x3ff));
    }
    text.remove_prefix(bytes);
  }
  return path;
}

WidePath NormalPath(WidePathView path) {
  WidePath normal;
  while (!path.empty()) {
    const WidePathView name = path.substr(0, path.find_first_of(u"/\\"));
    path.remove_prefix(std::min(name.size() + 1, path.size()));
    if (name.empty() || name == u".") continue;
    if (name == u"..")
      normal.resize(normal.find_last_of(u'/') == WidePath::npos ? 0 : normal.find_last_of(u'/'));
    else
      normal.append(1, u'/').append(name);
  }
  return normal;
}

}  // namespace valmere::platform
