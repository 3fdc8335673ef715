// What components publish and withdraw, and to whom a property goes when its owner does.
#include <exception>
#include <utility>

#include "persist/log/debug_switches.h"
#include "persist/log/log_line.h"
#include "store/engine/property_engine.h"

namespace valmere {
namespace {

std::shared_ptr<ComponentProperty> MakePublished(const PropertyResponseRecord& entry,
                                                 const std::shared_ptr<ClientConnection>& owner) {
  return ComponentProperty::Make(entry.value, entry.guid, entry.name, entry.group_guid,
                                 entry.group_name, entry.component, entry.component_name, owner);
}

}  // namespace

// A component that reopened its handle may publish before the thread of the old one has noticed its
// end. Who publishes over a living owner's property is remembered as an heir. Either fails only when
// the owner's thread, or another publisher, was quicker. A property without an owner was withdrawn
// after it had been found.
std::shared_ptr<ComponentProperty> PropertyEngine::FindPublished(
    const PropertyResponseRecord& entry, const std::shared_ptr<ClientConnection>& publisher) {
  for (;;) {
    auto found = components_.Find(entry.guid, entry.group_guid, entry.component);
    if (!found) return found;
    const auto owner = found->connection();
    if (!owner) continue;
    if (owner == publisher) return found;
    const bool lives = CanOwn(*owner);
    if (lives && entry.status != kStatusSuccessful) return found;
    publisher->set_has_published();
    if (lives ? components_.AddHeir(found, *owner, publisher)
              : components_.Reassign(found, *owner, publisher))
      return found;
  }
}

void PropertyEngine::ApplyComponentEntry(const PropertyResponseRecord& entry,
                                         const std::shared_ptr<ClientConnection>& sender) {
  if (entry.status == kStatusNotFound) return;
  const bool gone = entry.status == kStatusNoLongerAvailable;
  if (const auto found = FindPublished(entry, sender)) {
    LogReported(*found, entry.value);
    found->SetValue(entry.value);
    if (gone) Withdraw({entry.component, entry.group_guid, entry.guid});
  } else if (gone) {
    // Nobody knew it, but somebody may have subscribed to it.
    publisher_->AnnounceVanished(MakePublished(entry, nullptr));
  } else if (entry.status == kStatusSuccessful) {
    sender->set_has_published();
    const auto published = MakePublished(entry, sender);
    if (components_.Add(published)) Appeared(published);
  }
}

void PropertyEngine::LogReported(const Property& property, std::string_view value) const {
  if (!IsOn(DebugZone::kProperty) || property.GetValueString() == value) return;
  LogIn(DebugZone::kProperty, log_, [&] {
    return "Property " + QuoteForLog(property.name()) + " of " +
           QuoteForLog(property.component_name()) + " changes to " + QuoteForLog(value);
  });
}

void PropertyEngine::Appeared(const std::shared_ptr<Property>& property) {
  if (subscribers_->Any() && IsWanted(*property)) Observe(property);
  if (!property->OfComponent() && !announcing_.load()) return;
  const ScopedLock hold(presence_lock_);
  if (IsRegistered(*property)) publisher_->AnnounceNew(property);
}

void PropertyEngine::Withdraw(const PropertyAddress& address) {
  const ScopedLock hold(presence_lock_);
  const auto property = components_.Remove(address.component, address.group_guid, address.guid);
  if (property) Vanished(property);
}

// Others are let in between two steps. One walk finds all the same: only the client's own thread,
// which is here, could make it the owner or an heir of what the walk has passed.
void PropertyEngine::WithdrawAllOf(const ClientConnection& client) noexcept {
  if (!client.has_published()) return;  // most clients; it takes a look at every property to tell
  ComponentRegistry::Place place;
  bool more = true;
  while (more && !client.ended()) {
    ComponentRegistry::Arrivals removed;  // let go without the lock
    const ScopedLock hold(presence_lock_);
    more = components_.RemoveOwnedBy(client, place, removed);
    for (const auto& [arrival, property] : removed)
      Vanished(property);
  }
}

// The announcement may wait for a while; the client's stream is not kept for it.
void PropertyEngine::Vanished(const std::shared_ptr<ComponentProperty>& property) noexcept {
  property->set_connection(nullptr);
  publisher_->PublishNoLonger(property);
  try {
    publisher_->AnnounceVanished(property);
  } catch (const std::exception&) {
    // No memory: it has gone all the same, and this may be all that its client leaves behind.
  }
}

}  // namespace valmere
