// The index under its lock. Handles are copied or moved out, so that values are read, and
// properties and connections let go, outside it.
#include "store/component_registry.h"

namespace valmere {

// A refused handle is the caller's argument still, and is let go after the lock.
// NOLINTNEXTLINE(performance-unnecessary-value-param)
bool ComponentRegistry::Add(Handle property) {
  const ScopedLock hold(index_lock_);
  return index_.Add(property);
}

ComponentRegistry::Handle ComponentRegistry::Find(std::string_view guid,
                                                  std::string_view group_guid,
                                                  std::string_view component) const {
  const ScopedLock hold(index_lock_);
  return index_.Find(PropertyKey(component, group_guid, guid));
}

void ComponentRegistry::ListGroup(std::string_view group_guid, std::vector<Handle>& out) const {
  const ScopedLock hold(index_lock_);
  index_.ListGroup(group_guid, out);
}

void ComponentRegistry::ListAll(std::vector<Handle>& out) const {
  const ScopedLock hold(index_lock_);
  index_.ListAll(out);
}

ComponentRegistry::Handle ComponentRegistry::Remove(std::string_view component,
                                                    std::string_view group_guid,
                                                    std::string_view guid) {
  const ScopedLock hold(index_lock_);
  return index_.Remove(PropertyKey(component, group_guid, guid));
}

bool ComponentRegistry::Reassign(const Handle& property, const ClientConnection& from,
                                 std::shared_ptr<ClientConnection> to) {
  const ScopedLock hold(index_lock_);
  const PropertyKey key(property->component(), property->group_guid(), property->guid());
  if (index_.Find(key) != property || !property->PublishedOn(from)) return false;
  property->set_connection(std::move(to));
  return true;
}

ComponentRegistry::Arrivals ComponentRegistry::RemoveOwnedBy(const ClientConnection& connection) {
  const ScopedLock hold(index_lock_);
  return index_.RemoveIf(
      [&](const ComponentProperty& property) { return property.PublishedOn(connection); });
}

}  // namespace valmere
