// The properties that client components have published.
#pragma once

#include <memory>
#include <string_view>
#include <vector>

#include "driver/sync/lock.h"
#include "store/component_property.h"
#include "store/property_index.h"

namespace valmere {

// Purpose: finds published properties by (component, group GUID, GUID) and by group.
// Owner: the property engine.
// Threads: any.
// Errors: Add and the lists throw std::bad_alloc, with nothing changed.
class ComponentRegistry {
 public:
  using Handle = std::shared_ptr<ComponentProperty>;
  using Arrivals = PropertyIndex<ComponentProperty>::Arrivals;

  // False, and nothing is registered, when the component has one of that group GUID and GUID.
  bool Add(Handle property);
  // Empty when there is none.
  Handle Find(std::string_view guid, std::string_view group_guid, std::string_view component) const;
  // Both append: a group's properties, of all components, in the order in which they were
  // registered; all of them by ascending group GUID.
  void ListGroup(std::string_view group_guid, std::vector<Handle>& out) const;
  void ListAll(std::vector<Handle>& out) const;

  // Takes a property out of the look-up and of its group; empty when there is none.
  Handle Remove(std::string_view component, std::string_view group_guid, std::string_view guid);
  // Gives the property a new owner if it is still registered and still owned by `from`.
  bool Reassign(const Handle& property, const ClientConnection& from,
                std::shared_ptr<ClientConnection> to);
  // Takes out all that were published last on this connection. Asks for no memory.
  Arrivals RemoveOwnedBy(const ClientConnection& connection);

 private:
  mutable Lock index_lock_;  // a property's value lock may be taken under it
  PropertyIndex<ComponentProperty> index_ GUARDED_BY(index_lock_);
};

}  // namespace valmere
