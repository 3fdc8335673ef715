// Numbers are read as the C library's atoi and atof read them where long has 32 bits, on every host
// alike: neither the width of long nor the locale may change what a message means.
#include "json/json_number.h"

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <limits>
#include <system_error>

namespace valmere {

namespace {

constexpr std::int64_t kLargest = std::numeric_limits<std::int32_t>::max();
constexpr std::int64_t kSmallest = std::numeric_limits<std::int32_t>::min();

// Far beyond the exponents of a double, far below an overflow.
constexpr std::int64_t kExponentLimit = 1'000'000'000;

std::int64_t ExponentOf(std::string_view exponent) {
  const bool negative = exponent.starts_with('-');
  if (negative || exponent.starts_with('+')) exponent.remove_prefix(1);
  std::int64_t value = 0;
  for (const char digit : exponent)
    value = std::min(value * 10 + (digit - '0'), kExponentLimit);
  return negative ? -value : value;
}

// Tells a number too large for a double from one too small: the place of its first digit other than
// zero, counted from the decimal point.
bool IsLarge(std::string_view number) {
  const std::size_t mantissa_end = std::min(number.find_first_of("eE"), number.size());
  const std::string_view mantissa = number.substr(0, mantissa_end);
  const std::size_t point = std::min(mantissa.find('.'), mantissa.size());
  const std::size_t first = mantissa.find_first_not_of("0.");
  const std::int64_t exponent =
      mantissa_end < number.size() ? ExponentOf(number.substr(mantissa_end + 1)) : 0;
  return static_cast<std::int64_t>(point) - static_cast<std::int64_t>(first) + exponent > 0;
}

}  // namespace

std::int64_t IntegerFromToken(std::string_view token) {
  const bool negative = token.starts_with('-');
  if (negative || token.starts_with('+')) token.remove_prefix(1);
  std::int64_t value = 0;
  for (const char digit : token)
    value = std::min(value * 10 + (digit - '0'), kLargest + 1);
  return negative ? std::max(-value, kSmallest) : std::min(value, kLargest);
}

double FloatFromToken(std::string_view token) {
  const bool negative = token.starts_with('-');
  if (negative || token.starts_with('+')) token.remove_prefix(1);
  double value = 0;
  const auto [end, error] = std::from_chars(token.data(), token.data() + token.size(), value);
  if (error == std::errc::invalid_argument) return 0;
  if (error == std::errc::result_out_of_range)
    value = IsLarge(token) ? std::numeric_limits<double>::infinity() : 0;
  return negative ? -value : value;
}

}  // namespace valmere
