// Every property that there is: the service's own and those that components have published.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "net/client_connection.h"
#include "protocol/wire/property_records.h"
#include "store/property/component_registry.h"
#include "store/property/local_registry.h"
#include "store/property/string_property.h"

namespace valmere {

// Purpose: finds properties as clients name them, and the client that owns a published one.
// Owner: shared by the parts of the property engine.
// Threads: any; a client publishes and leaves on the one thread that serves it.
// Errors: std::bad_alloc, with nothing changed.
class PropertyCatalog {
 public:
  using Own = LocalRegistry::Handle;
  using Published = ComponentRegistry::Handle;
  using Place = ComponentRegistry::Place;
  using Removed = ComponentRegistry::Removed;

  explicit PropertyCatalog(std::shared_ptr<StringProperty> own_component)
      : own_component_(std::move(own_component)), components_(CanOwn) {}

  // The component of the service's own properties.
  const Property& own_component() const { return *own_component_; }
  bool IsOwnComponent(std::string_view component) const {
    return component == own_component_->guid();
  }
  // The key that a subscriber to the property has named.
  std::string SubscriptionKey(const Property& property) const;

  // False, and nothing is registered, when there is one of that key.
  bool AddOwn(Own property) { return local_.Add(std::move(property)); }
  bool AddPublished(Published property) { return components_.Add(std::move(property)); }

  // Each is empty when there is none. Find looks in the registry that the component names.
  Own FindOwn(const PropertyAddress& address) const {
    return local_.Find(address.group_guid, address.guid);
  }
  Published FindPublished(const PropertyAddress& address) const {
    return components_.Find(address.guid, address.group_guid, address.component);
  }
  std::shared_ptr<Property> Find(const PropertyAddress& address) const;
  // Whether the property is still what its registry has under its key.
  bool Has(const Property& property) const;

  std::size_t size() const { return local_.size() + components_.size(); }
  // Both give handles to `visit`, the service's own first, with no lock held, until it returns
  // false; false then. A group's come in the order of registration, all by ascending group GUID.
  template <class Visit>
  bool ForEach(Visit visit) const;
  template <class Visit>
  bool ForEachOfGroup(std::string_view group_guid, Visit visit) const;

  // The client that sets of a published property go to; empty when there is none.
  std::shared_ptr<ClientConnection> OwnerOf(const PropertyAddress& address);
  // The published property that `publisher` has just reported, or empty. It becomes the owner where
  // the last one has gone, and the heir of one that lives if the property is `available`.
  Published FindReported(const PropertyAddress& address, bool available,
                         const std::shared_ptr<ClientConnection>& publisher);

  // Takes a published property out; empty when there is none.
  Published Remove(const PropertyAddress& address) {
    return components_.Remove(address.component, address.group_guid, address.guid);
  }
  // One step of a client's leave, as the registry takes it. False when it was the last step.
  bool RemoveOwnedBy(const ClientConnection& client, Place& place, Removed& removed) {
    return components_.RemoveOwnedBy(client, place, removed);
  }

 private:
  // As far as is known.
  static bool CanOwn(const ClientConnection& client) { return client.IsOpen(); }
  template <class Registry, class Visit>
  static bool ForEachOf(const Registry& registry, Visit& visit);
  template <class Registry, class Visit>
  static bool ForEachOfGroupOf(const Registry& registry, std::string_view group_guid, Visit& visit);

  const std::shared_ptr<StringProperty> own_component_;
  LocalRegistry local_;
  ComponentRegistry components_;
};

template <class Visit>
bool PropertyCatalog::ForEach(Visit visit) const {
  return ForEachOf(local_, visit) && ForEachOf(components_, visit);
}

template <class Visit>
bool PropertyCatalog::ForEachOfGroup(std::string_view group_guid, Visit visit) const {
  return ForEachOfGroupOf(local_, group_guid, visit) &&
         ForEachOfGroupOf(components_, group_guid, visit);
}

// Step by step, so that others get at the registry in between.
template <class Registry, class Visit>
bool PropertyCatalog::ForEachOf(const Registry& registry, Visit& visit) {
  std::vector<typename Registry::Handle> step;
  step.reserve(PropertyIndex<Property>::kStep);
  typename Registry::Place place;
  bool more = true;
  while (more) {
    step.clear();
    more = registry.ListAll(place, step);
    for (const auto& property : step)
      if (!visit(property)) return false;
  }
  return true;
}

template <class Registry, class Visit>
bool PropertyCatalog::ForEachOfGroupOf(const Registry& registry, std::string_view group_guid,
                                       Visit& visit) {
  std::vector<typename Registry::Handle> step;
  std::uint64_t next = 0;
  bool more = true;
  while (more) {
    step.clear();
    more = registry.ListGroup(group_guid, next, step);
    for (const auto& property : step)
      if (!visit(property)) return false;
  }
  return true;
}

}  // namespace valmere
