// Requests that the service itself never sends.
#pragma once

#include <span>

#include "protocol/message/property_message.h"
#include "protocol/wire/message_keys.h"

namespace valmere::test {

// A message that can also be given what only clients ask for.
class RequestMessage : public PropertyMessage {
 public:
  void RequestAll() { object_[keys::kGetAll] = JsonValue(true); }
  void Disconnect() { object_[keys::kDisconnect] = JsonValue(true); }
  // A get entry has the shape of a subscribe entry.
  void GetRequests(std::span<const PropertyAddress> addresses) {
    PropertyMessage entries;
    entries.SubscribeList(addresses);
    object_[keys::kGetRequests] = *entries.object().Find(keys::kSubscribeRequests);
  }
};

}  // namespace valmere::test
