// One atomic word holds the value. Setting exchanges it, so that comparing and storing are one step
// and each change is announced by the thread that made it, once.
#include "store/property/bool_property.h"

#include <utility>

namespace valmere {

bool ParseBool(std::string& text) {
  if (text.size() != 4 && text.size() != 5) return true;
  for (char& c : text)
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  return text != "false";
}

std::shared_ptr<BoolProperty> BoolProperty::Make(bool value, std::string_view guid,
                                                 std::string_view name, std::string_view group_guid,
                                                 std::string_view group_name) {
  return std::make_shared<BoolProperty>(MakeToken(), value,
                                        PropertyIdentity(guid, name, group_guid, group_name));
}

BoolProperty::BoolProperty(MakeToken, bool value, PropertyIdentity identity)
    : Property(std::move(identity)), value_(value) {}

std::string BoolProperty::ToString() const {
  return GetValue() ? "True" : "False";
}

void BoolProperty::SetFromString(std::string text) {
  SetValue(ParseBool(text));
}

void BoolProperty::SetFromStringSilently(std::string text) {
  SetValueSilently(ParseBool(text));
}

void BoolProperty::SetValue(bool value) {
  if (value_.exchange(value) != value) NotifyChanged();
}

void BoolProperty::SetValueSilently(bool value) {
  value_.store(value);
}

bool BoolProperty::GetValue() const {
  return value_.load();
}

}  // namespace valmere
