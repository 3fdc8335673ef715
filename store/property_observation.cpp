// Whose changes reach the publisher: a property gets its listener when the first subscription wants
// it, so that nobody pays for changes that no one asked for.
#include <exception>
#include <utility>
#include <vector>

#include "store/property_engine.h"
#include "store/property_key.h"

namespace valmere {

void PropertyEngine::DeclareQuiet(std::string_view component, std::string_view group_guid,
                                  std::string_view guid) {
  const ScopedLock hold(observe_lock_);
  quiet_keys_.insert(PropertyKey(component, group_guid, guid).Text());
}

std::string PropertyEngine::SubscriptionKey(const Property& property) const {
  const std::string_view component =
      property.OfComponent() ? property.component() : own_component_->guid();
  return PropertyKey(component, property.group_guid(), property.guid()).Text();
}

// The lock makes a second subscriber wait until the listener is in place: what it reads after its
// subscription is then not older than what it will be told.
void PropertyEngine::Observe(const std::shared_ptr<Property>& property) {
  if (property->observed()) return;
  const ScopedLock hold(observe_lock_);
  if (property->observed()) return;
  if (IsQuiet(*property)) {
    publisher_.PublishPeriodically(property);
    // It may have vanished since it was found; then nobody else takes it off the list.
    if (!IsRegistered(property)) publisher_.PublishNoLonger(property);
  } else {
    property->AddListener([engine = weak_from_this()](const std::shared_ptr<Property>& changed) {
      if (const auto alive = engine.lock()) alive->Changed(changed);
    });
  }
  property->set_observed();
}

bool PropertyEngine::IsQuiet(const Property& property) const {
  return !quiet_keys_.empty() && quiet_keys_.contains(SubscriptionKey(property));
}

bool PropertyEngine::IsRegistered(const std::shared_ptr<Property>& property) const {
  const std::string_view component =
      property->OfComponent() ? property->component() : own_component_->guid();
  return FindAny({component, property->group_guid(), property->guid()}) == property;
}

void PropertyEngine::Changed(const std::shared_ptr<Property>& property) {
  if (!subscribers_.Any()) return;
  if (property->OfComponent()) {
    publisher_.PushComponentChange(property);
  } else {
    publisher_.PushChange(property);
  }
}

void PropertyEngine::ObserveAll() {
  std::vector<std::shared_ptr<Property>> own;
  local_.ListAll(own);
  for (const auto& property : own)
    Observe(property);
  std::vector<std::shared_ptr<ComponentProperty>> published;
  components_.ListAll(published);
  for (const auto& property : published)
    Observe(property);
}

void PropertyEngine::ObserveNamed(std::span<const PropertyAddress> addresses) {
  for (const PropertyAddress& address : addresses) {
    if (const auto property = FindAny(address)) Observe(property);
  }
}

void PropertyEngine::Appeared(const std::shared_ptr<Property>& property) {
  if (subscribers_.Any() && IsWanted(*property)) Observe(property);
  if (!property->OfComponent() && !announcing_.load()) return;
  const ScopedLock hold(presence_lock_);
  if (IsRegistered(property)) publisher_.AnnounceNew(property);
}

void PropertyEngine::Withdraw(const PropertyAddress& address) {
  const ScopedLock hold(presence_lock_);
  const auto property = components_.Remove(address.component, address.group_guid, address.guid);
  if (property) Vanished(property);
}

void PropertyEngine::WithdrawAllOf(const ClientConnection& client) noexcept {
  if (!client.has_published()) return;  // most clients; it takes a look at every property to tell
  const ScopedLock hold(presence_lock_);
  for (const auto& [arrival, property] : components_.RemoveOwnedBy(client))
    Vanished(property);
}

// The announcement may wait for a while; the client's stream is not kept for it.
void PropertyEngine::Vanished(const std::shared_ptr<ComponentProperty>& property) noexcept {
  property->set_connection(nullptr);
  publisher_.PublishNoLonger(property);
  try {
    publisher_.AnnounceVanished(property);
  } catch (const std::exception&) {
    // No memory: it has gone all the same, and this may be all that its client leaves behind.
  }
}

bool PropertyEngine::IsWanted(const Property& property) {
  const std::string key = SubscriptionKey(property);
  const ScopedLock hold(subscribers_.lock);
  return subscribers_.Wants(key);
}

}  // namespace valmere
