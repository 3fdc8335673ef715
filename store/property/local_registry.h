// The properties that the service itself owns.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include "driver/sync/lock.h"
#include "store/property/property.h"
#include "store/property/property_index.h"

namespace valmere {

// Purpose: finds the service's own properties by (group GUID, GUID) and by group.
// Owner: the service; properties are never taken out of it.
// Threads: any.
// Errors: Add and the lists throw std::bad_alloc.
class LocalRegistry {
 public:
  using Handle = std::shared_ptr<Property>;
  using Place = PropertyIndex<Property>::Place;

  // False, and nothing is registered, when one of that group GUID and GUID is there already.
  bool Add(Handle property);
  // Empty when there is none.
  Handle Find(std::string_view group_guid, std::string_view guid) const;
  // Each is one step of a walk and appends up to PropertyIndex::kStep properties: of a group, in
  // the order in which they were registered, and of all, by ascending group GUID. False when it was
  // the last step.
  bool ListGroup(std::string_view group_guid, std::uint64_t& next, std::vector<Handle>& out) const;
  bool ListAll(Place& place, std::vector<Handle>& out) const;
  std::size_t size() const;

 private:
  mutable Lock index_lock_;  // nothing else is taken under it
  PropertyIndex<Property> index_ GUARDED_BY(index_lock_);
};

}  // namespace valmere
