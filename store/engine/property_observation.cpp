// Whose changes reach the publisher: a property gets its listener when the first subscription wants
// it, so that nobody pays for changes that no one asked for.
#include <utility>
#include <vector>

#include "store/engine/property_engine.h"
#include "store/property/property_key.h"

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
    publisher_->PublishPeriodically(property);
    // It may have vanished since it was found; then nobody else takes it off the list.
    if (!IsRegistered(*property)) publisher_->PublishNoLonger(property);
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

bool PropertyEngine::IsRegistered(const Property& property) const {
  if (!property.OfComponent())
    return local_.Find(property.group_guid(), property.guid()).get() == &property;
  return components_.Find(property.guid(), property.group_guid(), property.component()).get() ==
         &property;
}

void PropertyEngine::Changed(const std::shared_ptr<Property>& property) {
  if (!subscribers_->Any()) return;
  if (property->OfComponent()) {
    publisher_->PushComponentChange(property);
  } else {
    publisher_->PushChange(property);
  }
}

void PropertyEngine::ObserveAll(const std::atomic<bool>& stop) {
  ObserveAllOf(local_, stop);
  ObserveAllOf(components_, stop);
}

template <class Registry>
void PropertyEngine::ObserveAllOf(const Registry& registry, const std::atomic<bool>& stop) {
  std::vector<typename Registry::Handle> step;
  typename Registry::Place place;
  bool more = true;
  while (more) {
    step.clear();
    more = registry.ListAll(place, step);
    for (const auto& property : step) {
      if (stop.load(std::memory_order_relaxed)) return;
      Observe(property);
    }
  }
}

void PropertyEngine::ObserveNamed(const PropertyAddress& address) {
  if (IsOwnComponent(address.component)) {
    if (const auto own = local_.Find(address.group_guid, address.guid)) Observe(own);
  }
  const auto published = components_.Find(address.guid, address.group_guid, address.component);
  if (published) Observe(published);
}

bool PropertyEngine::IsWanted(const Property& property) {
  const std::string key = SubscriptionKey(property);
  const ScopedLock hold(subscribers_->lock);
  return subscribers_->Wants(key);
}

}  // namespace valmere
