// The strings that tell one property from all others.
#pragma once

#include <cstdint>
#include <memory>
#include <string_view>

#include "store/property/identity_scope.h"
#include "store/property/property_key.h"

namespace valmere {

// Purpose: holds a property's identity strings: its GUID and name, and a handle on those of its
// group and component, which it has in common with others.
// Owner: the property; every view lives as long as the identity does.
// Threads: constant after construction; any thread reads without a lock.
// Errors: construction throws std::bad_alloc.
class PropertyIdentity {
 public:
  // Of a property that the service itself owns.
  PropertyIdentity(std::string_view guid, std::string_view name, std::string_view group_guid,
                   std::string_view group_name)
      : PropertyIdentity(guid, name, IdentityScope(group_guid, group_name)) {}
  // Of a property of a client component.
  PropertyIdentity(std::string_view guid, std::string_view name, std::string_view group_guid,
                   std::string_view group_name, std::string_view component,
                   std::string_view component_name)
      : PropertyIdentity(
            guid, name,
            IdentityScope(IdentityScope(component, component_name), group_guid, group_name)) {}

  std::string_view guid() const { return {text_.get(), guid_size_}; }
  std::string_view name() const { return {text_.get() + guid_size_, name_size_}; }
  std::string_view group_guid() const { return group_.guid(); }
  std::string_view group_name() const { return group_.name(); }
  bool OfComponent() const { return group_.has_around(); }
  // Both empty for a property of the service's own.
  std::string_view component() const { return group_.around_guid(); }
  std::string_view component_name() const { return group_.around_name(); }

  // The group GUID and the GUID; of a component's property, the component before them.
  PropertyKey key() const {
    return OfComponent() ? PropertyKey(component(), group_guid(), guid())
                         : PropertyKey(group_guid(), guid());
  }

 private:
  PropertyIdentity(std::string_view guid, std::string_view name, IdentityScope group);

  IdentityScope group_;
  std::uint32_t guid_size_;
  std::uint32_t name_size_;
  std::unique_ptr<char[]> text_;  // the GUID, then the name
};

}  // namespace valmere
