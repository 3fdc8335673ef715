// A property as the entry of a reply or of a published change.
#pragma once

#include <string_view>

#include "protocol/wire/property_records.h"
#include "store/property/property.h"

namespace valmere {

// The views are into the property, `own_component` and `value`. A property of the service's own has
// `own_component` as its component.
inline PropertyResponseRecord RecordOf(const Property& property, std::string_view value,
                                       std::string_view status, const Property& own_component) {
  PropertyResponseRecord record{
      property.group_guid(), property.group_name(), property.guid(), property.name(), value, status,
      own_component.guid(),  own_component.name()};
  if (property.OfComponent()) {
    record.component = property.component();
    record.component_name = property.component_name();
  }
  return record;
}

}  // namespace valmere
