// Numbers are read as the C library's atoi and atof read them where long has 32 bits, on every host
// alike: neither the width of long nor the locale may change what a message means.
#include "json/json_number.h"

#include <algorithm>
#include <array>
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

// More decimal digits than are needed to tell any double from its neighbours; of the digits after
// them it only matters whether they are zero.
constexpr std::size_t kMostDigits = 800;

// Checks for a stop now and then while a token is read.
class Walk {
 public:
  explicit Walk(const ParseStop& stop) : stop_(stop) {}
  void Step() {
    if (++steps_ % ParseStop::kBytesBetweenPauses == 0) stop_.Pause();
  }

 private:
  const ParseStop& stop_;
  std::size_t steps_ = 0;
};

bool TakeSign(std::string_view& token) {
  const bool negative = token.starts_with('-');
  if (negative || token.starts_with('+')) token.remove_prefix(1);
  return negative;
}

std::int64_t ExponentOf(std::string_view exponent, Walk& walk) {
  const bool negative = TakeSign(exponent);
  std::int64_t value = 0;
  for (const char digit : exponent) {
    value = std::min(value * 10 + (digit - '0'), kExponentLimit);
    walk.Step();
  }
  return negative ? -value : value;
}

// A number as 0.DIGITS times ten to the power of `exponent`, with no more digits than matter.
// Without digits it is zero. It asks for no memory: the generated parser can't be left by an
// exception.
class Decimal {
 public:
  bool empty() const { return size_ == 0; }
  void Add(char digit) {
    if (size_ < kMostDigits)
      digits_[size_++] = digit;
    else if (digit != '0' && size_ == kMostDigits)
      digits_[size_++] = '1';
  }
  double Value() const {
    std::array<char, kMostDigits + kSpare> text;
    char* end = text.data();
    *end++ = '.';
    end = std::copy_n(digits_.data(), size_, end);
    *end++ = 'e';
    end = std::to_chars(end, text.data() + text.size(), exponent).ptr;
    double value = 0;
    if (std::from_chars(text.data(), end, value).ec != std::errc::result_out_of_range) return value;
    return exponent > 0 ? std::numeric_limits<double>::infinity() : 0;
  }

  std::int64_t exponent = 0;

 private:
  // For the point, one digit more, and an exponent.
  static constexpr std::size_t kSpare = 32;

  std::array<char, kMostDigits + 1> digits_{};
  std::size_t size_ = 0;
};

bool IsExponentLetter(char byte) {
  return byte == 'e' || byte == 'E';
}

// Of digits with at most one point among them; cuts them off `number`.
Decimal TakeMantissa(std::string_view& number, Walk& walk) {
  Decimal decimal;
  bool behind_point = false;
  for (; !number.empty() && !IsExponentLetter(number[0]); number.remove_prefix(1)) {
    const char byte = number[0];
    walk.Step();
    if (byte == '.') {
      behind_point = true;
      continue;
    }
    const bool leading_zero = byte == '0' && decimal.empty();
    if (!behind_point && !leading_zero) ++decimal.exponent;
    if (behind_point && leading_zero) --decimal.exponent;
    if (!leading_zero) decimal.Add(byte);
  }
  return decimal;
}

// For numbers that are long, or beyond the range of a double.
double FloatOfDecimal(std::string_view number, const ParseStop& stop) {
  Walk walk(stop);
  Decimal decimal = TakeMantissa(number, walk);
  if (decimal.empty()) return 0;
  if (!number.empty()) decimal.exponent += ExponentOf(number.substr(1), walk);
  return decimal.Value();
}

bool HasMantissa(std::string_view number) {
  const std::size_t first = number.starts_with('.') ? 1 : 0;
  return first < number.size() && number[first] >= '0' && number[first] <= '9';
}

}  // namespace

std::int64_t IntegerFromToken(std::string_view token, const ParseStop& stop) {
  Walk walk(stop);
  const bool negative = TakeSign(token);
  std::int64_t value = 0;
  for (const char digit : token) {
    value = std::min(value * 10 + (digit - '0'), kLargest + 1);
    walk.Step();
  }
  return negative ? std::max(-value, kSmallest) : std::min(value, kLargest);
}

double FloatFromToken(std::string_view token, const ParseStop& stop) {
  const bool negative = TakeSign(token);
  if (!HasMantissa(token)) return 0;
  double value = 0;
  auto error = std::errc::result_out_of_range;
  if (token.size() <= kMostDigits)
    error = std::from_chars(token.data(), token.data() + token.size(), value).ec;
  if (error == std::errc::result_out_of_range) value = FloatOfDecimal(token, stop);
  return negative ? -value : value;
}

}  // namespace valmere
