// Tokens that are too long for the scanner's tables, which can't be stopped in the middle of one.
#pragma once

#include <cstddef>
#include <string_view>

#include "json/parse_stop.h"

namespace valmere {

// What a text begins with.
struct LongToken {
  enum class Kind {
    kNone,            // nothing long: for the tables
    kBlanks,          // passed over
    kUnclosedString,  // a single quote that no other follows; it alone is passed over
    kBrokenString,    // a double quote, passed over alone; its string is invalid from `size` on
    kDoubleQuoted,
    kSingleQuoted,
    kInteger,
    kFloat,
  };
  Kind kind = Kind::kNone;
  std::size_t size = 0;  // of what the kind names
};

inline bool MayBeginLongToken(char first) {
  switch (first) {
    case '"':
    case '\'':
    case ' ':
    case '\t':
    case '+':
    case '-':
    case '.':
    case 'e':
    case 'E':
      return true;
    default:
      return first >= '0' && first <= '9';
  }
}

namespace internal {
LongToken MeasureLongToken(std::string_view text, bool in_broken_string, const ParseStop& stop);
}

// What `text` begins with by the scanner's rules, if more than ParseStop::kBytesBetweenPauses must
// be read to know it. Inside a broken string no double-quoted one is searched for. ParseStopped.
inline LongToken FindLongToken(std::string_view text, bool in_broken_string,
                               const ParseStop& stop) {
  if (text.size() <= ParseStop::kBytesBetweenPauses || !MayBeginLongToken(text[0])) return {};
  return internal::MeasureLongToken(text, in_broken_string, stop);
}

}  // namespace valmere
