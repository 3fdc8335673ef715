#include "store/property/uint_property.h"

#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/store/engine/start_gate.h"
#include "tests/store/property/change_counter.h"
#include "tests/support/test_thread.h"

namespace valmere::test {
namespace {

std::shared_ptr<UIntProperty> MakeNumber(std::uint32_t value) {
  return UIntProperty::Make(value, "GUID", "Name", "GROUP", "Group");
}

// What the standard error says that parsing `text` raises.
template <class Error>
std::string ErrorOf(std::string_view text) {
  try {
    ParseUInt(text);
  } catch (const Error& error) {
    return error.what();
  }
  return "none";
}

TEST(ParseUInt, ReadsTheNumberAtTheStart) {
  EXPECT_EQ(ParseUInt("0"), 0U);
  EXPECT_EQ(ParseUInt("42"), 42U);
  EXPECT_EQ(ParseUInt(" 42abc"), 42U);
  EXPECT_EQ(ParseUInt(" \t\n\v\f\r42"), 42U);
  EXPECT_EQ(ParseUInt("42 43"), 42U);
  EXPECT_EQ(ParseUInt("0x10"), 0U);
  EXPECT_EQ(ParseUInt("010"), 10U);
  EXPECT_EQ(ParseUInt("1.5"), 1U);
  EXPECT_EQ(ParseUInt(std::string_view("7\0008", 3)), 7U);
}

TEST(ParseUInt, TakesASign) {
  EXPECT_EQ(ParseUInt("+42"), 42U);
  EXPECT_EQ(ParseUInt(" -1"), 4294967295U);
  EXPECT_EQ(ParseUInt("-4294967295"), 1U);
  EXPECT_EQ(ParseUInt("-0"), 0U);
}

TEST(ParseUInt, RefusesATextWithoutADigit) {
  for (const char* text : {"", " ", "abc", "a1", "-", "+", "--1", "+-1", "- 1", "\xa0"}) {
    EXPECT_EQ(ErrorOf<std::invalid_argument>(text), "invalid stoul argument") << text;
  }
  EXPECT_EQ(ErrorOf<std::invalid_argument>(std::string_view("\0001", 2)), "invalid stoul argument");
}

TEST(ParseUInt, RefusesWhatDoesNotFit32Bits) {
  EXPECT_EQ(ParseUInt("4294967295"), 4294967295U);
  for (const char* text : {"4294967296", "-4294967296", "18446744073709551616",
                           "18446744073709551617", "4294967296abc"}) {
    EXPECT_EQ(ErrorOf<std::out_of_range>(text), "stoul argument out of range") << text;
  }
  EXPECT_EQ(ErrorOf<std::out_of_range>(std::string(100'000, '9')), "stoul argument out of range");
  EXPECT_EQ(ParseUInt(std::string(100'000, '0') + "1"), 1U);
}

TEST(UIntProperty, IsWrittenAsPlainDecimal) {
  EXPECT_EQ(MakeNumber(0)->ToString(), "0");
  EXPECT_EQ(MakeNumber(1000000)->ToString(), "1000000");
  EXPECT_EQ(MakeNumber(4294967295U)->GetValueString(), "4294967295");
}

TEST(UIntProperty, AnnouncesChangesOnly) {
  const auto number = MakeNumber(42);
  const ChangeCounter changes(*number);
  number->SetValue(42);
  number->SetFromString("+42");
  EXPECT_EQ(changes.count(), 0);
  number->SetFromString(" 43x");
  EXPECT_EQ(number->GetValue(), 43U);
  number->SetValue(44);
  EXPECT_EQ(changes.count(), 2);
}

TEST(UIntProperty, ChangesSilently) {
  const auto number = MakeNumber(42);
  const ChangeCounter changes(*number);
  number->SetFromStringSilently("-1");
  EXPECT_EQ(number->GetValue(), 4294967295U);
  EXPECT_EQ(changes.count(), 0);
}

TEST(UIntProperty, KeepsItsValueWhenATextCantBeTaken) {
  const auto number = MakeNumber(42);
  const ChangeCounter changes(*number);
  EXPECT_THROW(number->SetFromString("abc"), std::invalid_argument);
  EXPECT_THROW(number->SetFromString("4294967296"), std::out_of_range);
  EXPECT_THROW(number->SetFromStringSilently("abc"), std::invalid_argument);
  EXPECT_THROW(number->SetFromStringSilently("4294967296"), std::out_of_range);
  EXPECT_EQ(number->GetValue(), 42U);
  EXPECT_EQ(changes.count(), 0);
}

TEST(UIntProperty, AnnouncesOnceWhatSeveralThreadsSetAtOnce) {
  for (int round = 0; round < 100; ++round) {
    const auto number = MakeNumber(1);
    const ChangeCounter changes(*number);
    {
      StartGate gate(2);
      std::vector<TestThread> setters;
      for (int i = 0; i < 2; ++i) {
        setters.emplace_back([&] {
          gate.Pass();
          number->SetValue(2);
        });
      }
    }
    ASSERT_EQ(changes.count(), 1);
  }
}

}  // namespace
}  // namespace valmere::test
