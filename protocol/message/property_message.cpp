// Entries and their keys. A property's two GUIDs travel as one text, joined by a colon.
#include "protocol/message/property_message.h"

#include <string>
#include <string_view>
#include <utility>

#include "json/json_escape.h"
#include "protocol/wire/message_keys.h"

namespace valmere {
namespace {

JsonValue EscapedText(std::string_view text) {
  return JsonValue(EscapeJson(text));
}

JsonValue AddressEntry(std::string_view component, std::string_view group_guid,
                       std::string_view guid) {
  std::string joined;
  joined.reserve(group_guid.size() + 1 + guid.size());
  joined.append(group_guid).append(1, ':').append(guid);
  JsonValue entry = JsonValue::Object();
  entry[keys::kComponent] = EscapedText(component);
  entry[keys::kGuid] = EscapedText(joined);
  return entry;
}

JsonValue AddressEntries(std::span<const PropertyAddress> addresses) {
  JsonValue entries = JsonValue::Array();
  for (const PropertyAddress& address : addresses)
    entries.Append(AddressEntry(address.component, address.group_guid, address.guid));
  return entries;
}

std::string_view TextOf(const JsonValue& entry, std::string_view key) {
  const JsonValue* value = entry.Find(key);
  return value != nullptr ? std::string_view(value->text()) : std::string_view();
}

struct GuidPair {
  std::string_view group_guid;
  std::string_view guid;
};

// Without a colon both GUIDs are the whole text.
GuidPair SplitGuid(std::string_view text) {
  const std::size_t colon = text.find(':');
  if (colon == std::string_view::npos) return {text, text};
  return {text.substr(0, colon), text.substr(colon + 1)};
}

}  // namespace

void PropertyMessage::SubscribeAll() {
  object_[keys::kSubscribeAll] = JsonValue(true);
}

void PropertyMessage::AddSubscribeEntry(const PropertyAddress& address) {
  JsonValue& entries = object_[keys::kSubscribeRequests];
  if (entries.kind() != JsonKind::kArray) entries = JsonValue::Array();
  entries.Append(AddressEntry(address.component, address.group_guid, address.guid));
}

void PropertyMessage::SubscribeList(std::span<const PropertyAddress> addresses) {
  object_[keys::kSubscribeRequests] = AddressEntries(addresses);
}

void PropertyMessage::SetRequests(std::span<const PropertySetRecord> records) {
  JsonValue entries = JsonValue::Array();
  for (const PropertySetRecord& record : records) {
    JsonValue entry = AddressEntry(record.component, record.group_guid, record.guid);
    entry[keys::kValue] = EscapedText(record.value);
    entries.Append(std::move(entry));
  }
  object_[keys::kSetRequests] = std::move(entries);
}

void PropertyMessage::GetResponses(std::span<const PropertyResponseRecord> records) {
  JsonValue entries = JsonValue::Array();
  for (const PropertyResponseRecord& record : records) {
    JsonValue entry = AddressEntry(record.component, record.group_guid, record.guid);
    entry[keys::kComponentString] = EscapedText(record.component_name);
    entry[keys::kGroupString] = EscapedText(record.group_name);
    entry[keys::kNameString] = EscapedText(record.name);
    entry[keys::kStatus] = EscapedText(record.status);
    entry[keys::kValue] = EscapedText(record.value);
    entries.Append(std::move(entry));
  }
  object_[keys::kGetResponses] = std::move(entries);
}

const JsonValue* PropertyMessage::EntriesUnder(std::string_view key) const {
  const JsonValue* const entries = object_.Find(key);
  return entries != nullptr && entries->kind() == JsonKind::kArray ? entries : nullptr;
}

std::size_t PropertyMessage::Count(std::string_view key) const {
  const JsonValue* const entries = EntriesUnder(key);
  return entries != nullptr ? entries->size() : 0;
}

PropertySetRecord PropertyMessage::SetRecordOf(const JsonValue& entry) {
  const GuidPair pair = SplitGuid(TextOf(entry, keys::kGuid));
  return {pair.guid, pair.group_guid, TextOf(entry, keys::kComponent), TextOf(entry, keys::kValue)};
}

PropertyAddress PropertyMessage::AddressOf(const JsonValue& entry) {
  const GuidPair pair = SplitGuid(TextOf(entry, keys::kGuid));
  return {TextOf(entry, keys::kComponent), pair.group_guid, pair.guid};
}

PropertyResponseRecord PropertyMessage::ResponseRecordOf(const JsonValue& entry) {
  const GuidPair pair = SplitGuid(TextOf(entry, keys::kGuid));
  return {pair.group_guid,
          TextOf(entry, keys::kGroupString),
          pair.guid,
          TextOf(entry, keys::kNameString),
          TextOf(entry, keys::kValue),
          TextOf(entry, keys::kStatus),
          TextOf(entry, keys::kComponent),
          TextOf(entry, keys::kComponentString)};
}

}  // namespace valmere
