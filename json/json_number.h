// The values of the parser's number tokens.
#pragma once

#include <cstdint>
#include <string_view>

#include "json/parse_stop.h"

namespace valmere {

// A token may have as many bytes as a message. Both throw ParseStopped.

// The value of an optional sign and decimal digits, limited to the range of a 32-bit integer.
std::int64_t IntegerFromToken(std::string_view token, const ParseStop& stop = {});

// The value of a float token, with a point as its decimal sign whatever the process's locale. A
// token without a digit before its exponent is 0. Too large is infinite, too small is 0, with the
// token's sign.
double FloatFromToken(std::string_view token, const ParseStop& stop = {});

}  // namespace valmere
