// What a message asks for, as lists.
#pragma once

#include <vector>

#include "protocol/message/property_message.h"

namespace valmere::test {

inline std::vector<PropertySetRecord> SetRequestsOf(const PropertyMessage& message) {
  std::vector<PropertySetRecord> records;
  message.ForEachSetRequest([&](const PropertySetRecord& record) {
    records.push_back(record);
    return true;
  });
  return records;
}

inline std::vector<PropertyAddress> GetRequestsOf(const PropertyMessage& message) {
  std::vector<PropertyAddress> addresses;
  message.ForEachGetRequest([&](const PropertyAddress& address) {
    addresses.push_back(address);
    return true;
  });
  return addresses;
}

inline std::vector<PropertyAddress> SubscribeRequestsOf(const PropertyMessage& message) {
  std::vector<PropertyAddress> addresses;
  message.ForEachSubscribeRequest([&](const PropertyAddress& address) {
    addresses.push_back(address);
    return true;
  });
  return addresses;
}

inline std::vector<PropertyResponseRecord> GetResponsesOf(const PropertyMessage& message) {
  std::vector<PropertyResponseRecord> records;
  message.ForEachPublication([&](const PropertyResponseRecord& record) {
    records.push_back(record);
    return true;
  });
  return records;
}

}  // namespace valmere::test
