// The index under its lock. Handles are copied out, so that values are read outside it.
#include "store/property/local_registry.h"

namespace valmere {

// A refused handle is still the caller's argument, and is released after the lock.
// NOLINTNEXTLINE(performance-unnecessary-value-param)
bool LocalRegistry::Add(Handle property) {
  const ScopedLock hold(index_lock_);
  return index_.Add(property);
}

LocalRegistry::Handle LocalRegistry::Find(std::string_view group_guid,
                                          std::string_view guid) const {
  const ScopedLock hold(index_lock_);
  return index_.Find(PropertyKey(group_guid, guid));
}

bool LocalRegistry::ListGroup(std::string_view group_guid, std::uint64_t& next,
                              std::vector<Handle>& out) const {
  const ScopedLock hold(index_lock_);
  return index_.ListGroup(group_guid, next, out);
}

bool LocalRegistry::ListAll(Place& place, std::vector<Handle>& out) const {
  const ScopedLock hold(index_lock_);
  return index_.ListAll(place, out);
}

std::size_t LocalRegistry::size() const {
  const ScopedLock hold(index_lock_);
  return index_.size();
}

}  // namespace valmere
