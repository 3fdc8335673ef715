// Entries and their keys. A property's two GUIDs travel as one text, joined by a colon.
#include "protocol/property_message.h"

#include <string>
#include <string_view>
#include <utility>

#include "json/json_escape.h"
#include "protocol/message_keys.h"

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

// Calls `take` with each entry of the array under `key`.
template <class Take>
void ForEachEntry(const JsonValue& object, std::string_view key, Take take) {
  const JsonValue* entries = object.Find(key);
  if (entries == nullptr || entries->kind() != JsonKind::kArray) return;
  for (std::size_t i = 0; i < entries->size(); ++i)
    take(entries->At(i));
}

std::size_t EntryCount(const JsonValue& object, std::string_view key) {
  const JsonValue* entries = object.Find(key);
  return entries != nullptr ? entries->size() : 0;
}

std::vector<PropertyAddress> ParseAddresses(const JsonValue& object, std::string_view key) {
  std::vector<PropertyAddress> addresses;
  addresses.reserve(EntryCount(object, key));
  ForEachEntry(object, key, [&](const JsonValue& entry) {
    const GuidPair pair = SplitGuid(TextOf(entry, keys::kGuid));
    addresses.push_back({TextOf(entry, keys::kComponent), pair.group_guid, pair.guid});
  });
  return addresses;
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

std::vector<PropertySetRecord> PropertyMessage::ParseSetRequests() const {
  std::vector<PropertySetRecord> records;
  records.reserve(EntryCount(object_, keys::kSetRequests));
  ForEachEntry(object_, keys::kSetRequests, [&](const JsonValue& entry) {
    const GuidPair pair = SplitGuid(TextOf(entry, keys::kGuid));
    records.push_back(
        {pair.guid, pair.group_guid, TextOf(entry, keys::kComponent), TextOf(entry, keys::kValue)});
  });
  return records;
}

std::vector<PropertyAddress> PropertyMessage::ParseGetRequests() const {
  return ParseAddresses(object_, keys::kGetRequests);
}

std::vector<PropertyAddress> PropertyMessage::ParseSubscribeRequests() const {
  return ParseAddresses(object_, keys::kSubscribeRequests);
}

std::vector<PropertyResponseRecord> PropertyMessage::ParseGetResponses() const {
  std::vector<PropertyResponseRecord> records;
  records.reserve(EntryCount(object_, keys::kGetResponses));
  ForEachEntry(object_, keys::kGetResponses, [&](const JsonValue& entry) {
    const GuidPair pair = SplitGuid(TextOf(entry, keys::kGuid));
    records.push_back({pair.group_guid, TextOf(entry, keys::kGroupString), pair.guid,
                       TextOf(entry, keys::kNameString), TextOf(entry, keys::kValue),
                       TextOf(entry, keys::kStatus), TextOf(entry, keys::kComponent),
                       TextOf(entry, keys::kComponentString)});
  });
  return records;
}

}  // namespace valmere
