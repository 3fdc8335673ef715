// The text is an immutable snapshot that setters replace as a whole. Replies are built from
// thousands of texts while other threads set them; a reader that takes a snapshot waits for no
// setter and can't meet a half-written text.
#include "store/property/string_property.h"

#include <utility>

namespace valmere {

std::shared_ptr<StringProperty> StringProperty::Make(std::string_view value, std::string_view guid,
                                                     std::string_view name,
                                                     std::string_view group_guid,
                                                     std::string_view group_name) {
  return std::make_shared<StringProperty>(MakeToken(), value,
                                          PropertyIdentity(guid, name, group_guid, group_name));
}

StringProperty::StringProperty(MakeToken, std::string_view value, PropertyIdentity identity)
    : Property(std::move(identity)), text_(SharedText(value)) {
  value_lock();  // made before it is needed where nothing may throw
}

std::string StringProperty::ToString() const {
  return std::string(Snapshot().view());
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): the interface takes the text by value
void StringProperty::SetFromString(std::string text) {
  SetValue(text);
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): the interface takes the text by value
void StringProperty::SetFromStringSilently(std::string text) {
  StoreText(text);
}

void StringProperty::SetValue(std::string_view value) {
  if (Snapshot().view() == value) return;
  StoreText(value);
  NotifyChanged();
}

std::string StringProperty::GetValue() const {
  const ScopedLock hold(value_lock());
  return std::string(text_.Load().view());
}

void StringProperty::StoreText(std::string_view value) {
  SharedText text(value);
  const ScopedLock hold(value_lock());
  PutText(std::move(text));
}

}  // namespace valmere
