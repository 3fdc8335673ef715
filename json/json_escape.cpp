// Nearly no text needs escaping, so eight bytes at a time are looked over first and such a text is
// copied as a whole; the others are counted, and their room is taken in one step.
#include "json/json_escape.h"

#include <cstdint>
#include <cstring>

namespace valmere {

namespace {

constexpr std::uint64_t kEachByte = 0x0101010101010101;
constexpr char kHexDigits[] = "0123456789abcdef";

constexpr std::uint64_t AnyBelow(std::uint64_t word, std::uint64_t limit) {
  return (word - kEachByte * limit) & ~word & (kEachByte * 0x80);
}

constexpr std::uint64_t AnyEqual(std::uint64_t word, std::uint64_t byte) {
  return AnyBelow(word ^ (kEachByte * byte), 1);
}

constexpr bool NeedsEscape(unsigned char byte) {
  return byte < 0x20 || byte == '"' || byte == '\\';
}

constexpr std::size_t kWordBytes = sizeof(std::uint64_t);

bool WordNeedsEscape(const char* at) {
  std::uint64_t word;
  std::memcpy(&word, at, sizeof word);
  return (AnyBelow(word, 0x20) | AnyEqual(word, '"') | AnyEqual(word, '\\')) != 0;
}

// The last word overlaps the one before it.
bool NeedsEscape(std::string_view text) {
  if (text.size() < kWordBytes) {
    for (const char byte : text)
      if (NeedsEscape(static_cast<unsigned char>(byte))) return true;
    return false;
  }
  const char* const last = text.data() + text.size() - kWordBytes;
  for (const char* at = text.data(); at < last; at += kWordBytes)
    if (WordNeedsEscape(at)) return true;
  return WordNeedsEscape(last);
}

// The letter that stands after the backslash; 0 when the byte has no letter of its own.
constexpr char EscapeLetter(char byte) {
  switch (byte) {
    case '\b':
      return 'b';
    case '\t':
      return 't';
    case '\n':
      return 'n';
    case '\f':
      return 'f';
    case '\r':
      return 'r';
    case '"':
    case '\\':
      return byte;
    default:
      return 0;
  }
}

char* PutEscaped(char byte, char* to) {
  *to++ = '\\';
  if (const char letter = EscapeLetter(byte); letter != 0) {
    *to++ = letter;
    return to;
  }
  const auto value = static_cast<unsigned char>(byte);
  for (const char digit : {'u', '0', '0', kHexDigits[value >> 4], kHexDigits[value & 15]})
    *to++ = digit;
  return to;
}

}  // namespace

std::size_t EscapedSize(std::string_view text) {
  std::size_t size = text.size();
  for (const char byte : text)
    if (NeedsEscape(static_cast<unsigned char>(byte))) size += EscapeLetter(byte) != 0 ? 1 : 5;
  return size;
}

void AppendEscaped(std::string_view text, std::string& out) {
  if (!NeedsEscape(text)) {
    out.append(text);
    return;
  }
  const std::size_t before = out.size();
  out.resize(before + EscapedSize(text));
  char* to = out.data() + before;
  for (const char byte : text)
    if (NeedsEscape(static_cast<unsigned char>(byte)))
      to = PutEscaped(byte, to);
    else
      *to++ = byte;
}

std::string EscapeJson(std::string_view text) {
  std::string escaped;
  AppendEscaped(text, escaped);
  return escaped;
}

}  // namespace valmere
