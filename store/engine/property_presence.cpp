// A property is announced with a lock held under which it can't go, and goes under the same lock.
#include "store/engine/property_presence.h"

#include <exception>
#include <string>
#include <utility>

#include "net/client_connection.h"
#include "persist/log/debug_switches.h"
#include "persist/log/log_line.h"
#include "persist/log/log_sink.h"
#include "store/engine/observation.h"
#include "store/engine/pending_updates.h"
#include "store/engine/property_catalog.h"

namespace valmere {
namespace {

std::shared_ptr<ComponentProperty> MakePublished(const PropertyResponseRecord& entry,
                                                 const std::shared_ptr<ClientConnection>& owner) {
  return ComponentProperty::Make(entry.value, entry.guid, entry.name, entry.group_guid,
                                 entry.group_name, entry.component, entry.component_name, owner);
}

void LogChangesOf(Property& property, const std::shared_ptr<LogSink>& log) {
  property.AddListener(
      [log = std::weak_ptr<LogSink>(log)](const std::shared_ptr<Property>& changed) {
        if (!IsOn(DebugZone::kProperty)) return;
        LogIn(DebugZone::kProperty, log.lock(), [&] {
          return "Property " + QuoteForLog(changed->name()) + " changes to " +
                 QuoteForLog(changed->GetValueString());
        });
      });
}

}  // namespace

PropertyPresence::PropertyPresence(std::shared_ptr<PropertyCatalog> catalog,
                                   std::shared_ptr<Observation> observation,
                                   std::shared_ptr<PendingUpdates> pending,
                                   std::shared_ptr<LogSink> log)
    : catalog_(std::move(catalog)),
      observation_(std::move(observation)),
      pending_(std::move(pending)),
      log_(std::move(log)) {}

bool PropertyPresence::AddOwn(const std::shared_ptr<Property>& property) {
  if (!catalog_->AddOwn(property)) return false;
  LogChangesOf(*property, log_);
  Appeared(property);
  return true;
}

bool PropertyPresence::Apply(const PropertyResponseRecord& entry,
                             const std::shared_ptr<ClientConnection>& sender) {
  if (entry.status == kStatusNotFound) return false;
  const PropertyAddress address{entry.component, entry.group_guid, entry.guid};
  const bool available = entry.status == kStatusSuccessful;
  const bool gone = entry.status == kStatusNoLongerAvailable;
  if (const auto found = catalog_->FindReported(address, available, sender)) {
    LogReported(*found, entry.value);
    const bool foreign = found->TakeValue(entry.value, *sender);
    if (gone) Withdraw(address);
    return foreign;
  }
  if (gone) {
    // It was not registered, but a client may have subscribed to it.
    pending_->announcements.AddVanished(MakePublished(entry, nullptr));
  } else if (available) {
    sender->set_has_published();
    const auto published = MakePublished(entry, sender);
    if (catalog_->AddPublished(published)) Appeared(published);
  }
  return false;
}

void PropertyPresence::LogReported(const Property& property, std::string_view value) const {
  if (!IsOn(DebugZone::kProperty) || property.GetValueString() == value) return;
  LogIn(DebugZone::kProperty, log_, [&] {
    return "Property " + QuoteForLog(property.name()) + " of " +
           QuoteForLog(property.component_name()) + " changes to " + QuoteForLog(value);
  });
}

void PropertyPresence::Appeared(const std::shared_ptr<Property>& property) {
  observation_->ObserveIfWanted(property);
  if (!property->OfComponent() && !announcing_.load()) return;
  const ScopedLock hold(presence_lock_);
  if (catalog_->Has(*property)) pending_->announcements.AddNew(property);
}

void PropertyPresence::Withdraw(const PropertyAddress& address) {
  const ScopedLock hold(presence_lock_);
  if (const auto property = catalog_->Remove(address)) Vanished(property);
}

// Other threads get the lock between two steps. One walk still finds everything: only the client's
// own thread, which is here, could make it the owner or an heir of a property behind the walk.
void PropertyPresence::WithdrawAllOf(const ClientConnection& client) noexcept {
  if (!client.has_published()) return;  // as most clients; the walk looks at every property
  PropertyCatalog::Place place;
  bool more = true;
  while (more && !client.ended()) {
    PropertyCatalog::Removed removed;  // released after the lock
    const ScopedLock hold(presence_lock_);
    more = catalog_->RemoveOwnedBy(client, place, removed);
    for (const auto& property : removed)
      Vanished(property);
  }
}

// The announcement may wait for a while; the client's stream is released now.
void PropertyPresence::Vanished(const std::shared_ptr<ComponentProperty>& property) noexcept {
  property->set_connection(nullptr);
  pending_->periodic.Remove(property);
  try {
    pending_->announcements.AddVanished(property);
  } catch (const std::exception&) {
    // No memory: it is withdrawn all the same, and the other properties of its client must be too.
  }
}

}  // namespace valmere
