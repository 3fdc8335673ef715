// The records that messages are made of and taken apart into. All are views: the texts belong to
// the message, the property or the caller that the record was filled from, which must outlive it.
#pragma once

#include <string_view>

namespace valmere {

inline constexpr std::string_view kStatusSuccessful = "Successful";
inline constexpr std::string_view kStatusNotFound = "Property Not Found";
inline constexpr std::string_view kStatusNoLongerAvailable = "Property No Longer Available";

inline constexpr std::string_view kUnknownGroup = "Unknown Group";
inline constexpr std::string_view kUnknownProperty = "Unknown Property";
inline constexpr std::string_view kInvalidValue = "Invalid Value";

// The address of a property in a request.
struct PropertyAddress {
  std::string_view component;
  std::string_view group_guid;
  std::string_view guid;
};

struct PropertySetRecord {
  std::string_view guid;
  std::string_view group_guid;
  std::string_view component;
  std::string_view value;
};

// One answer to a get, one published change, or one publication of a component.
struct PropertyResponseRecord {
  std::string_view group_guid;
  std::string_view group_name;
  std::string_view guid;
  std::string_view name;
  std::string_view value;
  std::string_view status;
  std::string_view component;
  std::string_view component_name;
};

// The answer to a get of an unknown property. The component's display string is the placeholder of
// the group: receivers rely on it.
inline PropertyResponseRecord UnknownPropertyRecord(const PropertyAddress& address,
                                                    std::string_view status) {
  return {address.group_guid, kUnknownGroup, address.guid,      kUnknownProperty,
          kInvalidValue,      status,        address.component, kUnknownGroup};
}

}  // namespace valmere
