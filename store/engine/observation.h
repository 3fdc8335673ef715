// Which properties have their changes published.
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <string_view>

#include "driver/sync/lock.h"
#include "protocol/wire/property_records.h"
#include "store/engine/subscriber_list.h"
#include "store/property/property.h"

namespace valmere {

struct PendingUpdates;
class PropertyCatalog;

// Purpose: gives a property its one listener when the first subscription wants it, so that changes
// that no client asked for cost nothing.
// Owner: shared by the property engine and its presence; the listeners and the publisher hold it
// weakly.
// Threads: any.
// Errors: std::bad_alloc, with the property at work not observed.
class Observation : public std::enable_shared_from_this<Observation> {
 public:
  static std::shared_ptr<Observation> Make(std::shared_ptr<const PropertyCatalog> catalog,
                                           std::shared_ptr<SubscriberList> subscribers,
                                           std::shared_ptr<PendingUpdates> pending);

  // A property of this key announces no changes: subscribers get it at every period's end. Called
  // before a client subscribes to it.
  void DeclareQuiet(std::string_view component, std::string_view group_guid, std::string_view guid)
      EXCLUDES(observe_lock_);
  // A property that has come: observed if a subscriber wants it.
  void ObserveIfWanted(const std::shared_ptr<Property>& property)
      EXCLUDES(observe_lock_, subscribers_->lock);
  // In both registries: a component may publish under the service's own GUID.
  void ObserveNamed(const PropertyAddress& address) EXCLUDES(observe_lock_);
  // Leaves off when `stop` goes up.
  void ObserveAll(const std::atomic<bool>& stop) EXCLUDES(observe_lock_);

 private:
  Observation(std::shared_ptr<const PropertyCatalog> catalog,
              std::shared_ptr<SubscriberList> subscribers, std::shared_ptr<PendingUpdates> pending);
  // Once, however many subscribe.
  void Observe(const std::shared_ptr<Property>& property) EXCLUDES(observe_lock_);
  bool IsQuiet(const Property& property) const REQUIRES(observe_lock_);
  void Changed(const std::shared_ptr<Property>& property);

  const std::shared_ptr<const PropertyCatalog> catalog_;
  const std::shared_ptr<SubscriberList> subscribers_;
  const std::shared_ptr<PendingUpdates> pending_;
  Property::SharedListener listener_;  // constant once Make has returned

  // Held while a property gets its listener.
  Lock observe_lock_;
  std::set<std::string, std::less<>> quiet_keys_ GUARDED_BY(observe_lock_);
};

}  // namespace valmere
