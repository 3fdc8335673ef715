// The index under its lock. Handles are copied or moved out, so that values are read, and
// properties and connections released, outside it.
#include "store/property/component_registry.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace valmere {
namespace {

template <class List, class Condition>
void MoveIf(List& from, List& to, Condition condition) {
  for (auto place = from.begin(); place != from.end();) {
    const auto moved = place++;
    if (condition(*moved)) to.splice(to.end(), from, moved);
  }
}

}  // namespace

// A refused handle is still the caller's argument, and is released after the lock.
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
  const Handle passed = place.last;  // released after the lock
  const ScopedLock hold(index_lock_);
  return index_.ListAll(place, out);
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
  return property->PublishedOn(owner) && index_.Has(*property);
}

bool ComponentRegistry::AddHeir(const Handle& property, const ClientConnection& owner,
                                Connection heir) {
  Heirs dropped, added;
  const ScopedLock hold(index_lock_);
  if (!IsOwnedBy(property, owner)) return false;
  const auto place = heirs_.find(property.get());
  if (place != heirs_.end()) {
    Heirs& known = place->second;
    const auto own = std::find(known.begin(), known.end(), heir);
    if (own != known.end()) {
      known.splice(known.end(), known, own);
      return true;
    }
  }
  added.push_back(std::move(heir));
  Heirs& heirs = heirs_[property.get()];
  MoveIf(heirs, dropped, [&](const Connection& other) { return !can_own_(*other); });
  heirs.splice(heirs.end(), added);
  CountContested();
  return true;
}

bool ComponentRegistry::Reassign(const Handle& property, const ClientConnection& owner,
                                 Connection to) {
  Heirs dropped;
  const ScopedLock hold(index_lock_);
  if (!IsOwnedBy(property, owner)) return false;
  ForgetHeir(*property, to.get(), dropped);
  property->SwapConnection(to);
  return true;
}

ComponentRegistry::Connection ComponentRegistry::TakeOver(const Handle& property,
                                                          const ClientConnection& owner) {
  Heirs dropped;
  const ScopedLock hold(index_lock_);
  if (IsOwnedBy(property, owner)) GiveToHeir(*property, dropped);
  return property->connection();
}

bool ComponentRegistry::GiveToHeir(ComponentProperty& property, Heirs& dropped) {
  const auto place = heirs_.find(&property);
  if (place == heirs_.end()) return false;
  Heirs& heirs = place->second;
  while (!heirs.empty() && !can_own_(*heirs.back()))
    dropped.splice(dropped.end(), heirs, std::prev(heirs.end()));
  const bool given = !heirs.empty();
  if (given) {
    property.SwapConnection(heirs.back());
    dropped.splice(dropped.end(), heirs, std::prev(heirs.end()));
  }
  if (heirs.empty()) heirs_.erase(place);
  CountContested();
  return given;
}

void ComponentRegistry::ForgetHeir(const ComponentProperty& property, const ClientConnection* heir,
                                   Heirs& dropped) {
  const auto place = heirs_.find(&property);
  if (place == heirs_.end()) return;
  MoveIf(place->second, dropped, [&](const Connection& other) { return other.get() == heir; });
  if (place->second.empty()) heirs_.erase(place);
  CountContested();
}

bool ComponentRegistry::RemoveOwnedBy(const ClientConnection& connection, Place& place,
                                      Removed& removed) {
  const Handle passed = place.last;  // released after the lock
  Heirs dropped;
  const ScopedLock hold(index_lock_);
  // The index knows nothing of the lock that guards it, so the analysis can't see it held here.
  return index_.RemoveIf(place, removed,
                         [&](ComponentProperty& property) NO_THREAD_SAFETY_ANALYSIS {
                           if (property.PublishedOn(connection))
                             return !GiveToHeir(property, dropped);
                           ForgetHeir(property, &connection, dropped);
                           return false;
                         });
}

}  // namespace valmere
