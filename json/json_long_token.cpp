// A message may be one token. It is read piece by piece here, and between pieces the parse may be
// stopped.
#include "json/json_long_token.h"

#include <algorithm>

#include "json/json_unescape.h"

namespace valmere {
namespace {

constexpr std::size_t kPiece = ParseStop::kBytesBetweenPauses;

// The position of the first byte from `at` on for which `wanted` does not hold.
template <class Wanted>
std::size_t SkipWhile(std::string_view text, std::size_t at, const ParseStop& stop, Wanted wanted) {
  for (;;) {
    const std::size_t piece_end = std::min(text.size(), at + kPiece);
    while (at < piece_end && wanted(text[at]))
      ++at;
    if (at < piece_end || at == text.size()) return at;
    stop.Pause();
  }
}

bool IsDigit(char byte) {
  return byte >= '0' && byte <= '9';
}

bool IsSign(char byte) {
  return byte == '+' || byte == '-';
}

char ByteAt(std::string_view text, std::size_t at) {
  return at < text.size() ? text[at] : '\0';
}

LongToken IfLong(LongToken::Kind kind, std::size_t size) {
  return size > kPiece ? LongToken{kind, size} : LongToken{};
}

std::size_t SkipDigits(std::string_view text, std::size_t at, const ParseStop& stop) {
  return SkipWhile(text, at, stop, IsDigit);
}

// `at` when no exponent stands there.
std::size_t SkipExponent(std::string_view text, std::size_t at, const ParseStop& stop) {
  if (ByteAt(text, at) != 'e' && ByteAt(text, at) != 'E') return at;
  const std::size_t digits = at + (IsSign(ByteAt(text, at + 1)) ? 2 : 1);
  const std::size_t end = SkipDigits(text, digits, stop);
  return end > digits ? end : at;
}

LongToken LongNumber(std::string_view text, const ParseStop& stop) {
  const std::size_t start = IsSign(text[0]) ? 1 : 0;
  const std::size_t whole = SkipDigits(text, start, stop);
  std::size_t mantissa = whole;
  if (ByteAt(text, whole) == '.') mantissa = SkipDigits(text, whole + 1, stop);
  const std::size_t end = SkipExponent(text, mantissa, stop);
  return IfLong(end > whole ? LongToken::Kind::kFloat : LongToken::Kind::kInteger, end);
}

LongToken LongBlanks(std::string_view text, const ParseStop& stop) {
  const auto is_blank = [](char byte) { return byte == ' ' || byte == '\t'; };
  return IfLong(LongToken::Kind::kBlanks, SkipWhile(text, 0, stop, is_blank));
}

LongToken LongSingleQuoted(std::string_view text) {
  const std::size_t close = text.find('\'', 1);  // far faster than byte by byte
  if (close == std::string_view::npos) return {LongToken::Kind::kUnclosedString, 1};
  return IfLong(LongToken::Kind::kSingleQuoted, close + 1);
}

LongToken LongDoubleQuoted(std::string_view text, const ParseStop& stop) {
  std::size_t looked = 0;
  std::size_t at = 1;
  for (;;) {
    at = SkipWhile(text, at, stop, [](char byte) { return byte != '"' && byte != '\\'; });
    if (ByteAt(text, at) == '"') return IfLong(LongToken::Kind::kDoubleQuoted, at + 1);
    const std::size_t escape = EscapeSize(text.substr(at));
    if (escape == 0) return IfLong(LongToken::Kind::kBrokenString, at);
    at += escape;
    if (at - looked > kPiece) {
      stop.Pause();
      looked = at;
    }
  }
}

}  // namespace

LongToken internal::MeasureLongToken(std::string_view text, bool in_broken_string,
                                     const ParseStop& stop) {
  switch (text[0]) {
    case '\'':
      return LongSingleQuoted(text);
    case '"':
      return in_broken_string ? LongToken{} : LongDoubleQuoted(text, stop);
    case ' ':
    case '\t':
      return LongBlanks(text, stop);
    default:
      return LongNumber(text, stop);
  }
}

}  // namespace valmere
