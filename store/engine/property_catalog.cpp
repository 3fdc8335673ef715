// Look-ups over both registries, and the rule by which a published property finds its owner.
#include "store/engine/property_catalog.h"

#include "store/property/property_key.h"

namespace valmere {

std::string PropertyCatalog::SubscriptionKey(const Property& property) const {
  const std::string_view component =
      property.OfComponent() ? property.component() : own_component_->guid();
  return PropertyKey(component, property.group_guid(), property.guid()).Text();
}

std::shared_ptr<Property> PropertyCatalog::Find(const PropertyAddress& address) const {
  if (IsOwnComponent(address.component)) return FindOwn(address);
  return FindPublished(address);
}

bool PropertyCatalog::Has(const Property& property) const {
  const PropertyAddress address{property.component(), property.group_guid(), property.guid()};
  if (!property.OfComponent()) return FindOwn(address).get() == &property;
  return FindPublished(address).get() == &property;
}

// Empty also for a property that is being withdrawn right now. Where the owner has gone and its own
// thread has not said so yet, the client that published the property last takes its place at once.
std::shared_ptr<ClientConnection> PropertyCatalog::OwnerOf(const PropertyAddress& address) {
  const auto found = FindPublished(address);
  auto owner = found ? found->connection() : nullptr;
  if (!owner || !components_.HasHeirs() || CanOwn(*owner)) return owner;
  return components_.TakeOver(found, *owner);
}

// A component that reopened its handle may publish before the thread of the old one has noticed its
// end. A client that publishes over a living owner's property is remembered as an heir. Either
// fails only when the owner's thread, or another publisher, was quicker. A property without an
// owner was withdrawn after it had been found.
PropertyCatalog::Published PropertyCatalog::FindReported(
    const PropertyAddress& address, bool available,
    const std::shared_ptr<ClientConnection>& publisher) {
  for (;;) {
    auto found = FindPublished(address);
    if (!found) return found;
    const auto owner = found->connection();
    if (!owner) continue;
    if (owner == publisher) return found;
    const bool lives = CanOwn(*owner);
    if (lives && !available) return found;
    publisher->set_has_published();
    if (lives ? components_.AddHeir(found, *owner, publisher)
              : components_.Reassign(found, *owner, publisher))
      return found;
  }
}

}  // namespace valmere
