// The messages of the property service: builders for what is sent, parsers for what came.
#pragma once

#include <cstddef>
#include <span>
#include <string_view>

#include "protocol/message/json_message.h"
#include "protocol/wire/entries.h"
#include "protocol/wire/message_keys.h"

namespace valmere {

// Purpose: builds and parses the top-level keys of one message.
// Owner, threads: those of JsonMessage.
// Errors: std::bad_alloc. Builders escape every text that they are given. Parsers read a missing
// key, a value that is no string and an entry that is no object as empty texts; a key that is
// absent or holds no array has no entries. The records that parsers give refer to texts inside this
// message.
class PropertyMessage : public JsonMessage {
 public:
  // The service itself sends SubscribeAll alone, and renders its replies as EntryFrames; the other
  // builders are for components that speak to it.
  void SubscribeAll();
  void AddSubscribeEntry(const PropertyAddress& address) override;
  void SubscribeList(std::span<const PropertyAddress> addresses) override;
  void SetRequests(std::span<const PropertySetRecord> records);
  void GetResponses(std::span<const PropertyResponseRecord> records);

  bool Has(std::string_view key) const { return object_.Find(key) != nullptr; }
  // The number of entries under the key.
  std::size_t Count(std::string_view key) const;

  // Each passes the entries to `take`, in their order, until that returns false, and then returns
  // false. A message may hold two million entries: no list of them is made.
  template <class Take>
  bool ForEachSetRequest(Take take) const {
    return ForEach(keys::kSetRequests, take, ReadSetRecord);
  }
  template <class Take>
  bool ForEachGetRequest(Take take) const {
    return ForEach(keys::kGetRequests, take, ReadAddress);
  }
  template <class Take>
  bool ForEachSubscribeRequest(Take take) const {
    return ForEach(keys::kSubscribeRequests, take, ReadAddress);
  }
  template <class Take>
  bool ForEachPublication(Take take) const {
    return ForEach(keys::kGetResponses, take, ReadResponseRecord);
  }

 private:
  template <class Take, class Parse>
  bool ForEach(std::string_view key, Take& take, Parse parse) const {
    const JsonValue* const entries = EntriesUnder(key);
    const std::size_t count = entries != nullptr ? entries->size() : 0;
    for (std::size_t i = 0; i < count; ++i)
      if (!take(parse(entries->At(i)))) return false;
    return true;
  }
  // Null when the key is absent or holds no array.
  const JsonValue* EntriesUnder(std::string_view key) const;
};

}  // namespace valmere
