// The properties that client components have published.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <list>
#include <memory>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "driver/sync/lock.h"
#include "store/property/component_property.h"
#include "store/property/property_index.h"

namespace valmere {

// Purpose: finds published properties by (component, group GUID, GUID) and by group, and knows the
// heirs of each: the clients that published it later, the last of which becomes the owner when the
// present one goes.
// Owner: the property engine.
// Threads: any; a client publishes and leaves on one thread, so only as an heir does it become an
// owner on another.
// Errors: Add, AddHeir and the lists throw std::bad_alloc, with nothing changed.
class ComponentRegistry {
 public:
  using Connection = std::shared_ptr<ClientConnection>;
  using Handle = std::shared_ptr<ComponentProperty>;
  using Place = PropertyIndex<ComponentProperty>::Place;
  using Removed = PropertyIndex<ComponentProperty>::Removed;
  // Whether a client can own a property. Asked under the index lock.
  using CanOwn = bool (*)(const ClientConnection&);

  explicit ComponentRegistry(CanOwn can_own) : can_own_(can_own) {}

  // False, and nothing is registered, when the component has one of that group GUID and GUID.
  bool Add(Handle property);
  // Empty when there is none.
  Handle Find(std::string_view guid, std::string_view group_guid, std::string_view component) const;
  // Each is one step of a walk and appends up to PropertyIndex::kStep properties: of a group, of
  // all components, in the order in which they were registered, and of all, by ascending group
  // GUID. False when it was the last step.
  bool ListGroup(std::string_view group_guid, std::uint64_t& next, std::vector<Handle>& out) const;
  bool ListAll(Place& place, std::vector<Handle>& out) const;
  std::size_t size() const;

  // Takes a property out of the look-up and of its group, and forgets its heirs; empty when there
  // is none.
  Handle Remove(std::string_view component, std::string_view group_guid, std::string_view guid);

  // All three do nothing, and the first two return false, unless the property is still registered
  // and still owned by `owner`. Makes `heir`, which has published it too, the last of its heirs.
  bool AddHeir(const Handle& property, const ClientConnection& owner, Connection heir);
  // Gives the property a new owner.
  bool Reassign(const Handle& property, const ClientConnection& owner, Connection to);
  // Gives the property of an owner that has gone to its last heir; the owner then, or empty.
  Connection TakeOver(const Handle& property, const ClientConnection& owner);
  // Whether there are heirs at all.
  bool HasHeirs() const { return contested_.load(std::memory_order_relaxed) != 0; }

  // One step of a client's leave, over up to PropertyIndex::kStep properties: it is no heir any
  // more, and a property that it owned goes to the last heir or, where there is none, is taken out
  // and added to `removed`. Allocates nothing. False when it was the last step.
  bool RemoveOwnedBy(const ClientConnection& connection, Place& place, Removed& removed);

 private:
  // In the order of their last publications. A list, so that removed handles can be released after
  // the lock without an allocation.
  using Heirs = std::list<Connection>;

  bool IsOwnedBy(const Handle& property, const ClientConnection& owner) const REQUIRES(index_lock_);
  // Both move the handles that they remove to `dropped`, which is released after the lock.
  bool GiveToHeir(ComponentProperty& property, Heirs& dropped) REQUIRES(index_lock_);
  void ForgetHeir(const ComponentProperty& property, const ClientConnection* heir, Heirs& dropped)
      REQUIRES(index_lock_);
  void CountContested() REQUIRES(index_lock_) { contested_.store(heirs_.size()); }

  const CanOwn can_own_;
  mutable Lock index_lock_;  // a property's value lock and a client's stream may be asked under it
  PropertyIndex<ComponentProperty> index_ GUARDED_BY(index_lock_);
  // Of the few properties that have heirs. One entry for a client and a property.
  std::unordered_map<const ComponentProperty*, Heirs> heirs_ GUARDED_BY(index_lock_);
  std::atomic<std::size_t> contested_{0};  // how many properties have heirs
};

}  // namespace valmere
