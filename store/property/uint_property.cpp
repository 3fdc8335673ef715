// The text rules are those of a platform whose unsigned long has 32 bits. They are written out
// here, so that they hold where it has 64, and in every locale.
#include "store/property/uint_property.h"

#include <algorithm>
#include <limits>
#include <stdexcept>
#include <utility>

namespace valmere {
namespace {

bool IsDigit(char c) {
  return c >= '0' && c <= '9';
}

}  // namespace

std::uint32_t ParseUInt(std::string_view text) {
  constexpr std::uint32_t kLargest = std::numeric_limits<std::uint32_t>::max();
  text.remove_prefix(std::min(text.find_first_not_of(" \t\n\v\f\r"), text.size()));
  const bool minus = text.starts_with('-');
  if (minus || text.starts_with('+')) text.remove_prefix(1);
  if (text.empty() || !IsDigit(text.front())) throw std::invalid_argument("invalid stoul argument");

  std::uint64_t magnitude = 0;
  for (; !text.empty() && IsDigit(text.front()); text.remove_prefix(1)) {
    magnitude = magnitude * 10 + static_cast<std::uint64_t>(text.front() - '0');
    if (magnitude > kLargest) throw std::out_of_range("stoul argument out of range");
  }
  const auto number = static_cast<std::uint32_t>(magnitude);
  return minus ? 0 - number : number;
}

std::shared_ptr<UIntProperty> UIntProperty::Make(std::uint32_t value, std::string_view guid,
                                                 std::string_view name, std::string_view group_guid,
                                                 std::string_view group_name) {
  return std::make_shared<UIntProperty>(MakeToken(), value,
                                        PropertyIdentity(guid, name, group_guid, group_name));
}

UIntProperty::UIntProperty(MakeToken, std::uint32_t value, PropertyIdentity identity)
    : Property(std::move(identity)), value_(value) {}

std::string UIntProperty::ToString() const {
  return std::to_string(GetValue());
}

void UIntProperty::SetFromString(std::string text) {
  SetValue(ParseUInt(text));
}

void UIntProperty::SetFromStringSilently(std::string text) {
  value_.store(ParseUInt(text));
}

void UIntProperty::SetValue(std::uint32_t value) {
  if (value_.exchange(value) != value) NotifyChanged();
}

}  // namespace valmere
