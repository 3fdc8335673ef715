// The entries of messages as JSON values: a record written as an entry, and read from one.
#pragma once

#include <span>
#include <string>
#include <string_view>

#include "json/json_value.h"
#include "protocol/wire/property_records.h"

namespace valmere {

// The two GUIDs of a property travel as one text, joined by a colon.
struct GuidPair {
  std::string_view group_guid;
  std::string_view guid;
};
std::string JoinGuid(std::string_view group_guid, std::string_view guid);
// Splits at the first colon. Without one both GUIDs are the whole text.
GuidPair SplitGuid(std::string_view joined);

// The entry of a record. Every text is escaped, because the JSON writer writes texts as they are.
JsonValue EntryOf(const PropertyAddress& address);
JsonValue EntryOf(const PropertySetRecord& record);
JsonValue EntryOf(const PropertyResponseRecord& record);

// An array of the entries of all records, in their order.
template <class Record>
JsonValue EntriesOf(std::span<const Record> records) {
  JsonValue entries = JsonValue::Array();
  for (const Record& record : records)
    entries.Append(EntryOf(record));
  return entries;
}

// The record of an entry; its texts are the entry's. A missing key, a value that is no string and
// an entry that is no object give empty texts.
PropertyAddress ReadAddress(const JsonValue& entry);
PropertySetRecord ReadSetRecord(const JsonValue& entry);
PropertyResponseRecord ReadResponseRecord(const JsonValue& entry);

}  // namespace valmere
