// Addresses as keys. Internal to the library.
#pragma once

#include <cstddef>
#include <functional>
#include <string>

#include "client/property.h"

namespace valmere::client {

struct AddressHash {
  std::size_t operator()(const PropertyAddress& address) const {
    const std::hash<std::string> hash;
    return (hash(address.component) * 31 + hash(address.group_guid)) * 31 + hash(address.guid);
  }
};

}  // namespace valmere::client
