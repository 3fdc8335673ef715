// The index under its lock. Handles are copied out, so that values are read outside it.
#include "store/local_registry.h"

namespace valmere {

// A refused handle is the caller's argument still, and is let go after the lock.
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

void LocalRegistry::ListGroup(std::string_view group_guid, std::vector<Handle>& out) const {
  const ScopedLock hold(index_lock_);
  index_.ListGroup(group_guid, out);
}

void LocalRegistry::ListAll(std::vector<Handle>& out) const {
  const ScopedLock hold(index_lock_);
  index_.ListAll(out);
}

}  // namespace valmere
