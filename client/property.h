// Properties as clients see them.
#pragma once

#include <string>

namespace valmere::client {

inline constexpr char kSuccessful[] = "Successful";
inline constexpr char kNotFound[] = "Property Not Found";
inline constexpr char kNoLongerAvailable[] = "Property No Longer Available";

// Names one property. The GUIDs are upper-case texts, 8-4-4-4-12, compared byte by byte.
struct PropertyAddress {
  std::string component;  // the owning component's GUID
  std::string group_guid;
  std::string guid;

  bool operator==(const PropertyAddress&) const = default;
};

// One property with its value: an answer of the service, or what a component publishes.
struct Property {
  std::string group_guid;
  std::string group_name;
  std::string guid;
  std::string name;
  std::string value;
  std::string status = kSuccessful;
  std::string component;  // the owning component's GUID
  std::string component_name;

  bool found() const { return status == kSuccessful; }
  PropertyAddress address() const { return {component, group_guid, guid}; }
  bool operator==(const Property&) const = default;
};

// Asks the owner of a property for a new value.
struct SetRequest {
  PropertyAddress address;
  std::string value;

  bool operator==(const SetRequest&) const = default;
};

}  // namespace valmere::client
