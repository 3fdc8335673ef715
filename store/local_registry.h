// The properties that the service itself owns.
#pragma once

#include <memory>
#include <string_view>
#include <vector>

#include "driver/sync/lock.h"
#include "store/property.h"
#include "store/property_index.h"

namespace valmere {

// Purpose: finds the service's own properties by (group GUID, GUID) and by group.
// Owner: the service; properties are never taken out of it.
// Threads: any.
// Errors: Add and the lists throw std::bad_alloc.
class LocalRegistry {
 public:
  using Handle = std::shared_ptr<Property>;

  // False, and nothing is registered, when one of that group GUID and GUID is there already.
  bool Add(Handle property);
  // Empty when there is none.
  Handle Find(std::string_view group_guid, std::string_view guid) const;
  // Both append: a group's properties in the order in which they were registered, all of them by
  // ascending group GUID.
  void ListGroup(std::string_view group_guid, std::vector<Handle>& out) const;
  void ListAll(std::vector<Handle>& out) const;

 private:
  mutable Lock index_lock_;  // nothing else is taken under it
  PropertyIndex<Property> index_ GUARDED_BY(index_lock_);
};

}  // namespace valmere
