// Runs between backslashes are copied as a whole. The four bytes of a \u escape are read as strtoul
// reads them, because a single-quoted string may hold anything there: white space, a sign and "0x"
// may stand before the digits, and the number ends at the first byte that is not a digit.
#include "json/json_unescape.h"

#include <algorithm>
#include <stdexcept>

namespace valmere {

namespace {

constexpr std::size_t kUnicodeDigits = 4;

int HexDigit(char byte) {
  if (byte >= '0' && byte <= '9') return byte - '0';
  if (byte >= 'a' && byte <= 'f') return byte - 'a' + 10;
  if (byte >= 'A' && byte <= 'F') return byte - 'A' + 10;
  return -1;
}

bool IsHexDigit(char byte) {
  return HexDigit(byte) >= 0;
}

// Only the low 16 bits are kept: they are the same for every width of unsigned long.
unsigned CodeUnit(std::string_view text) {
  text.remove_prefix(std::min(text.find_first_not_of(" \t\n\v\f\r"), text.size()));
  const bool negative = text.starts_with('-');
  if (negative || text.starts_with('+')) text.remove_prefix(1);
  if ((text.starts_with("0x") || text.starts_with("0X")) && text.size() > 2 && IsHexDigit(text[2]))
    text.remove_prefix(2);
  if (text.empty() || !IsHexDigit(text[0])) throw std::invalid_argument("invalid stoul argument");
  unsigned value = 0;
  for (; !text.empty() && IsHexDigit(text[0]); text.remove_prefix(1))
    value = value * 16 + static_cast<unsigned>(HexDigit(text[0]));
  return (negative ? 0 - value : value) & 0xFFFF;
}

void AppendUtf8(unsigned unit, std::string& out) {
  const auto trailing = [unit](unsigned shift) {
    return static_cast<char>(0x80 | (unit >> shift & 0x3F));
  };
  if (unit < 0x80) {
    out += static_cast<char>(unit);
  } else if (unit < 0x800) {
    out += static_cast<char>(0xC0 | unit >> 6);
    out += trailing(0);
  } else {
    out += static_cast<char>(0xE0 | unit >> 12);
    out += trailing(6);
    out += trailing(0);
  }
}

void AppendEscape(char letter, std::string& out) {
  static constexpr std::string_view kLetters = "\"\\/bfnrt";
  static constexpr std::string_view kBytes = "\"\\/\b\f\n\r\t";
  if (const std::size_t at = kLetters.find(letter); at != std::string_view::npos) out += kBytes[at];
}

}  // namespace

std::size_t EscapeSize(std::string_view text) {
  constexpr std::size_t kUnicodeSize = 2 + kUnicodeDigits;
  if (text.size() < 2 || text[0] != '\\') return 0;
  if (text[1] != 'u') return std::string_view("\"\\/bfnrt").find(text[1]) != text.npos ? 2 : 0;
  const std::string_view digits = text.substr(2, kUnicodeDigits);
  const bool whole =
      digits.size() == kUnicodeDigits && std::all_of(digits.begin(), digits.end(), IsHexDigit);
  return whole ? kUnicodeSize : 0;
}

std::string UnescapeJson(std::string_view content, const ParseStop& stop) {
  std::size_t backslash = content.find('\\');
  if (backslash == std::string_view::npos) return std::string(content);
  std::string text;
  text.reserve(content.size());
  for (std::size_t escapes = 0; backslash != std::string_view::npos; ++escapes) {
    if (escapes % ParseStop::kValuesBetweenPauses == 0) stop.Pause();
    text.append(content.substr(0, backslash));
    content.remove_prefix(backslash + 1);
    if (content.empty()) return text;
    const char letter = content[0];
    content.remove_prefix(1);
    if (letter == 'u') {
      AppendUtf8(CodeUnit(content.substr(0, kUnicodeDigits)), text);
      content.remove_prefix(std::min(kUnicodeDigits, content.size()));
    } else {
      AppendEscape(letter, text);
    }
    backslash = content.find('\\');
  }
  text.append(content);
  return text;
}

}  // namespace valmere
