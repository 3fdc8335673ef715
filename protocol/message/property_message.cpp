// Builders and parsers of the top-level keys; what an entry looks like is for entries.h.
#include "protocol/message/property_message.h"

namespace valmere {

void PropertyMessage::SubscribeAll() {
  object_[keys::kSubscribeAll] = JsonValue(true);
}

void PropertyMessage::AddSubscribeEntry(const PropertyAddress& address) {
  JsonValue& entries = object_[keys::kSubscribeRequests];
  if (entries.kind() != JsonKind::kArray) entries = JsonValue::Array();
  entries.Append(EntryOf(address));
}

void PropertyMessage::SubscribeList(std::span<const PropertyAddress> addresses) {
  object_[keys::kSubscribeRequests] = EntriesOf(addresses);
}

void PropertyMessage::SetRequests(std::span<const PropertySetRecord> records) {
  object_[keys::kSetRequests] = EntriesOf(records);
}

void PropertyMessage::GetResponses(std::span<const PropertyResponseRecord> records) {
  object_[keys::kGetResponses] = EntriesOf(records);
}

const JsonValue* PropertyMessage::EntriesUnder(std::string_view key) const {
  const JsonValue* const entries = object_.Find(key);
  return entries != nullptr && entries->kind() == JsonKind::kArray ? entries : nullptr;
}

std::size_t PropertyMessage::Count(std::string_view key) const {
  const JsonValue* const entries = EntriesUnder(key);
  return entries != nullptr ? entries->size() : 0;
}

}  // namespace valmere
