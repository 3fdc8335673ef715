#include "json/json_number.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <string>

namespace valmere::test {
namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();

TEST(JsonNumber, ReadsIntegers) {
  EXPECT_EQ(IntegerFromToken("0"), 0);
  EXPECT_EQ(IntegerFromToken("42"), 42);
  EXPECT_EQ(IntegerFromToken("+42"), 42);
  EXPECT_EQ(IntegerFromToken("-42"), -42);
  EXPECT_EQ(IntegerFromToken("-0"), 0);
  EXPECT_EQ(IntegerFromToken("000000000000000000000000000017"), 17);
}

TEST(JsonNumber, LimitsIntegersTo32Bits) {
  EXPECT_EQ(IntegerFromToken("2147483647"), 2147483647);
  EXPECT_EQ(IntegerFromToken("2147483648"), 2147483647);
  EXPECT_EQ(IntegerFromToken("4294967296"), 2147483647);
  EXPECT_EQ(IntegerFromToken("-2147483648"), -2147483647 - 1);
  EXPECT_EQ(IntegerFromToken("-2147483649"), -2147483647 - 1);
  EXPECT_EQ(IntegerFromToken(std::string(1000, '9')), 2147483647);
  EXPECT_EQ(IntegerFromToken("-" + std::string(1000, '9')), -2147483647 - 1);
}

TEST(JsonNumber, ReadsFloatsAsTheCLibraryDoes) {
  for (const char* token : {"1.5",
                            "+1.5",
                            "-1.5",
                            "1.",
                            ".5",
                            "-.5",
                            "+.5e1",
                            "1e5",
                            "1E+5",
                            "1e-5",
                            "-0.0",
                            "0.1",
                            "123456789.123456789",
                            "1.7976931348623157e308",
                            "2.2250738585072014e-308",
                            "5e-324",
                            "1e400",
                            "-1e400",
                            "1e-400",
                            "-1e-400",
                            "0e999999999999",
                            "0.0e-99999999999",
                            "0.000000000000000000000001e-310",
                            "123456789012345678901234567890e290",
                            "1e99999999999999999999",
                            "1e-99999999999999999999",
                            "4.9e-324",
                            "2e-324"}) {
    const double expected = std::strtod(token, nullptr);
    EXPECT_EQ(FloatFromToken(token), expected) << token;
    EXPECT_EQ(std::signbit(FloatFromToken(token)), std::signbit(expected)) << token;
  }
  EXPECT_EQ(FloatFromToken("1e309"), kInfinity);
  EXPECT_EQ(FloatFromToken("-1e309"), -kInfinity);
  EXPECT_EQ(FloatFromToken(std::string(400, '1') + ".0"), kInfinity);
  EXPECT_EQ(FloatFromToken("0." + std::string(400, '0') + "1"), 0.0);
  // Far from 1 by its zeros and by its exponent, which all but make up for each other.
  EXPECT_EQ(FloatFromToken("0." + std::string(1329, '0') + "1e1000"), 0.0);
  EXPECT_EQ(FloatFromToken("0." + std::string(999, '0') + "1e1330"), kInfinity);
}

TEST(JsonNumber, ReadsLongFloatsAsTheCLibraryDoes) {
  const std::string nines(1000, '9');
  const std::string zeros(1000, '0');
  // Half way between two doubles, as far as the last digit tells.
  const std::string tie = "9007199254740993";
  for (const std::string& token :
       {nines + "." + nines + "e-990", "." + zeros + "123e1001", tie + "." + zeros,
        tie + "." + zeros + "1", tie + zeros + "0e-1001", tie + zeros + "1e-1001",
        "1e" + zeros + "17", "1e-" + zeros + "17", "1e" + nines, "1e-" + nines, zeros + ".5",
        "-" + zeros + "." + zeros, zeros + "1e309", "." + zeros + "1e1310",
        "24703282292062327208" + zeros + "e-1343", "24703282292062327209" + zeros + "e-1343"}) {
    const double expected = std::strtod(token.c_str(), nullptr);
    EXPECT_EQ(FloatFromToken(token), expected) << token;
    EXPECT_EQ(std::signbit(FloatFromToken(token)), std::signbit(expected)) << token;
  }
}

TEST(JsonNumber, ReadsTokensWithoutADigitAsZero) {
  for (const char* token : {"-", "+", ".", "+.", "-.", "e5", "E+5", "-e5", "+e-5", ".e5"}) {
    EXPECT_EQ(FloatFromToken(token), 0.0) << token;
    EXPECT_FALSE(std::signbit(FloatFromToken(token))) << token;
  }
}

}  // namespace
}  // namespace valmere::test
