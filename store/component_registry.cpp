// The index under its lock. Handles are copied or moved out, so that values are read, and
// properties and connections let go, outside it.
#include "store/component_registry.h"

#include <new>
#include <utility>

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

bool ComponentRegistry::ListGroup(std::string_view group_guid, std::uint64_t& next,
                                  std::vector<Handle>& out) const {
  const ScopedLock hold(index_lock_);
  return index_.ListGroup(group_guid, next, out);
}

bool ComponentRegistry::ListAll(Place& place, std::vector<Handle>& out) const {
  const Handle passed = place.last;  // let go after the lock
  const ScopedLock hold(index_lock_);
  return index_.Walk(place, [&](const Handle& property) { out.push_back(property); });
}

std::size_t ComponentRegistry::size() const {
  const ScopedLock hold(index_lock_);
  return index_.size();
}

ComponentRegistry::Handle ComponentRegistry::Remove(std::string_view component,
                                                    std::string_view group_guid,
                                                    std::string_view guid) {
  Heirs forgotten;
  const ScopedLock hold(index_lock_);
  Handle removed = index_.Remove(PropertyKey(component, group_guid, guid));
  const auto heirs = heirs_.find(removed.get());
  if (heirs != heirs_.end()) {
    forgotten.swap(heirs->second);
    heirs_.erase(heirs);
    CountContested();
  }
  return removed;
}

bool ComponentRegistry::IsOwnedBy(const Handle& property, const ClientConnection& owner) const {
  const PropertyKey key(property->component(), property->group_guid(), property->guid());
  return property->PublishedOn(owner) && index_.Find(key) == property;
}

bool ComponentRegistry::AddHeir(const Handle& property, const ClientConnection& owner,
                                Connection heir) {
  const ScopedLock hold(index_lock_);
  if (!IsOwnedBy(property, owner)) return false;
  Heirs& heirs = heirs_[property.get()];
  CountContested();
  if (!heirs.empty() && heirs.back() == heir) return true;
  if (std::erase(heirs, heir) == 0)
    std::erase_if(heirs, [&](const Connection& other) { return !can_own_(*other); });
  try {
    heirs.push_back(std::move(heir));
  } catch (const std::bad_alloc&) {
    ForgetHeir(*property, nullptr);  // an empty list is none
    throw;
  }
  return true;
}

bool ComponentRegistry::Reassign(const Handle& property, const ClientConnection& owner,
                                 Connection to) {
  const ScopedLock hold(index_lock_);
  if (!IsOwnedBy(property, owner)) return false;
  ForgetHeir(*property, to.get());
  property->set_connection(std::move(to));
  return true;
}

ComponentRegistry::Connection ComponentRegistry::TakeOver(const Handle& property,
                                                          const ClientConnection& owner) {
  const ScopedLock hold(index_lock_);
  if (IsOwnedBy(property, owner)) GiveToHeir(*property);
  return property->connection();
}

bool ComponentRegistry::GiveToHeir(ComponentProperty& property) {
  const auto place = heirs_.find(&property);
  if (place == heirs_.end()) return false;
  Heirs& heirs = place->second;
  while (!heirs.empty() && !can_own_(*heirs.back()))
    heirs.pop_back();
  const bool given = !heirs.empty();
  if (given) {
    property.set_connection(std::move(heirs.back()));
    heirs.pop_back();
  }
  if (heirs.empty()) heirs_.erase(place);
  CountContested();
  return given;
}

void ComponentRegistry::ForgetHeir(const ComponentProperty& property,
                                   const ClientConnection* heir) {
  const auto place = heirs_.find(&property);
  if (place == heirs_.end()) return;
  std::erase_if(place->second, [&](const Connection& other) { return other.get() == heir; });
  if (place->second.empty()) heirs_.erase(place);
  CountContested();
}

bool ComponentRegistry::RemoveOwnedBy(const ClientConnection& connection, Place& place,
                                      Arrivals& removed) {
  const Handle passed = place.last;  // let go after the lock
  const ScopedLock hold(index_lock_);
  // The index knows nothing of the lock that guards it, and so can't be seen to hold it here.
  return index_.RemoveIf(place, removed, [&](const Handle& property) NO_THREAD_SAFETY_ANALYSIS {
    if (property->PublishedOn(connection)) return !GiveToHeir(*property);
    ForgetHeir(*property, &connection);
    return false;
  });
}

}  // namespace valmere
