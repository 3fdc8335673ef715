// A listener holds no property and no client alive: it looks for the observation when it is called.
#include "store/engine/observation.h"

#include <utility>

#include "store/engine/pending_updates.h"
#include "store/engine/property_catalog.h"
#include "store/property/property_key.h"

namespace valmere {

std::shared_ptr<Observation> Observation::Make(std::shared_ptr<const PropertyCatalog> catalog,
                                               std::shared_ptr<SubscriberList> subscribers,
                                               std::shared_ptr<PendingUpdates> pending) {
  std::shared_ptr<Observation> made(
      new Observation(std::move(catalog), std::move(subscribers), std::move(pending)));
  made->listener_ = std::make_shared<const PropertyListener>(
      [self = std::weak_ptr(made)](const std::shared_ptr<Property>& changed) {
        if (const auto alive = self.lock()) alive->Changed(changed);
      });
  return made;
}

Observation::Observation(std::shared_ptr<const PropertyCatalog> catalog,
                         std::shared_ptr<SubscriberList> subscribers,
                         std::shared_ptr<PendingUpdates> pending)
    : catalog_(std::move(catalog)),
      subscribers_(std::move(subscribers)),
      pending_(std::move(pending)) {}

void Observation::DeclareQuiet(std::string_view component, std::string_view group_guid,
                               std::string_view guid) {
  const ScopedLock hold(observe_lock_);
  quiet_keys_.insert(PropertyKey(component, group_guid, guid).Text());
}

// The lock makes a second subscriber wait until the listener is in place: a value that it reads
// after its subscription is then not older than those that will be published to it.
void Observation::Observe(const std::shared_ptr<Property>& property) {
  if (property->observed()) return;
  const ScopedLock hold(observe_lock_);
  if (property->observed()) return;
  if (IsQuiet(*property)) {
    pending_->periodic.Add(property);
    // It may have gone since it was found; then nothing else takes it off the list.
    if (!catalog_->Has(*property)) pending_->periodic.Remove(property);
  } else {
    property->AddSharedListener(listener_);
  }
  property->set_observed();
}

bool Observation::IsQuiet(const Property& property) const {
  return !quiet_keys_.empty() && quiet_keys_.contains(catalog_->SubscriptionKey(property));
}

void Observation::Changed(const std::shared_ptr<Property>& property) {
  if (subscribers_->Any()) pending_->PushChange(property);
}

void Observation::ObserveIfWanted(const std::shared_ptr<Property>& property) {
  if (!subscribers_->Any()) return;
  const std::string key = catalog_->SubscriptionKey(*property);
  bool wanted = false;
  {
    const ScopedLock hold(subscribers_->lock);
    wanted = subscribers_->Wants(key);
  }
  if (wanted) Observe(property);
}

void Observation::ObserveNamed(const PropertyAddress& address) {
  if (catalog_->IsOwnComponent(address.component)) {
    if (const auto own = catalog_->FindOwn(address)) Observe(own);
  }
  if (const auto published = catalog_->FindPublished(address)) Observe(published);
}

void Observation::ObserveAll(const std::atomic<bool>& stop) {
  catalog_->ForEach([&](const std::shared_ptr<Property>& property) {
    if (stop.load(std::memory_order_relaxed)) return false;
    Observe(property);
    return true;
  });
}

}  // namespace valmere
