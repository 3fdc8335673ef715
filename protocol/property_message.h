// The messages of the property service: builders for what is sent, parsers for what came.
#pragma once

#include <vector>

#include "protocol/json_message.h"

namespace valmere {

// Purpose: fills and takes apart the top-level keys of one message.
// Owner, threads: those of JsonMessage.
// Errors: std::bad_alloc. Builders escape every text that they are given. Parsers read a missing key,
// a value that is no string and an entry that is no object as empty texts; a key that is absent or
// holds no array has no entries. What parsers return names texts inside this message.
class PropertyMessage : public JsonMessage {
 public:
  void SubscribeAll();
  void AddSubscribeEntry(const PropertyAddress& address) override;
  void SubscribeList(std::span<const PropertyAddress> addresses) override;
  void SetRequests(std::span<const PropertySetRecord> records);
  void GetResponses(std::span<const PropertyResponseRecord> records);

  bool Has(std::string_view key) const { return object_.Find(key) != nullptr; }
  std::vector<PropertySetRecord> ParseSetRequests() const;
  std::vector<PropertyAddress> ParseGetRequests() const;
  std::vector<PropertyAddress> ParseSubscribeRequests() const;
  std::vector<PropertyResponseRecord> ParseGetResponses() const;
};

}  // namespace valmere
