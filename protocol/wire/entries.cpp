// The one place that knows which key of an entry holds which text of a record.
#include "protocol/wire/entries.h"

#include <cstddef>

#include "json/json_escape.h"
#include "protocol/wire/message_keys.h"

namespace valmere {
namespace {

JsonValue EscapedText(std::string_view text) {
  return JsonValue(EscapeJson(text));
}

std::string_view TextOf(const JsonValue& entry, std::string_view key) {
  const JsonValue* const value = entry.Find(key);
  return value != nullptr ? value->text() : std::string_view();
}

GuidPair GuidsOf(const JsonValue& entry) {
  return SplitGuid(TextOf(entry, keys::kGuid));
}

}  // namespace

std::string JoinGuid(std::string_view group_guid, std::string_view guid) {
  std::string joined;
  joined.reserve(group_guid.size() + 1 + guid.size());
  joined.append(group_guid).append(1, ':').append(guid);
  return joined;
}

GuidPair SplitGuid(std::string_view joined) {
  const std::size_t colon = joined.find(':');
  if (colon == std::string_view::npos) return {joined, joined};
  return {joined.substr(0, colon), joined.substr(colon + 1)};
}

JsonValue EntryOf(const PropertyAddress& address) {
  JsonValue entry = JsonValue::Object();
  entry[keys::kComponent] = EscapedText(address.component);
  entry[keys::kGuid] = EscapedText(JoinGuid(address.group_guid, address.guid));
  return entry;
}

JsonValue EntryOf(const PropertySetRecord& record) {
  JsonValue entry = EntryOf(PropertyAddress{record.component, record.group_guid, record.guid});
  entry[keys::kValue] = EscapedText(record.value);
  return entry;
}

JsonValue EntryOf(const PropertyResponseRecord& record) {
  JsonValue entry = EntryOf(PropertyAddress{record.component, record.group_guid, record.guid});
  entry[keys::kComponentString] = EscapedText(record.component_name);
  entry[keys::kGroupString] = EscapedText(record.group_name);
  entry[keys::kNameString] = EscapedText(record.name);
  entry[keys::kStatus] = EscapedText(record.status);
  entry[keys::kValue] = EscapedText(record.value);
  return entry;
}

PropertyAddress ReadAddress(const JsonValue& entry) {
  const GuidPair guids = GuidsOf(entry);
  return {TextOf(entry, keys::kComponent), guids.group_guid, guids.guid};
}

PropertySetRecord ReadSetRecord(const JsonValue& entry) {
  const GuidPair guids = GuidsOf(entry);
  return {guids.guid, guids.group_guid, TextOf(entry, keys::kComponent),
          TextOf(entry, keys::kValue)};
}

PropertyResponseRecord ReadResponseRecord(const JsonValue& entry) {
  const GuidPair guids = GuidsOf(entry);
  return {guids.group_guid,
          TextOf(entry, keys::kGroupString),
          guids.guid,
          TextOf(entry, keys::kNameString),
          TextOf(entry, keys::kValue),
          TextOf(entry, keys::kStatus),
          TextOf(entry, keys::kComponent),
          TextOf(entry, keys::kComponentString)};
}

}  // namespace valmere
