// Property addresses as keys of ordered maps.
#pragma once

#include <tuple>

#include "client/property.h"

namespace valmere::tools {

struct AddressOrder {
  bool operator()(const client::PropertyAddress& left, const client::PropertyAddress& right) const {
    return std::tie(left.component, left.group_guid, left.guid) <
           std::tie(right.component, right.group_guid, right.guid);
  }
};

}  // namespace valmere::tools
