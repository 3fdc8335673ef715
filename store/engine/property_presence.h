// Properties that come and go, and the announcements of both.
#pragma once

#include <atomic>
#include <memory>
#include <string_view>

#include "driver/sync/lock.h"
#include "protocol/wire/property_records.h"

namespace valmere {

class ClientConnection;
class ComponentProperty;
class LogSink;
class Observation;
struct PendingUpdates;
class Property;
class PropertyCatalog;

// Purpose: brings properties into the catalog and takes them out, and has both announced in the
// order in which they happen.
// Owner: the property engine.
// Threads: any; what one client publishes and withdraws, on the one thread that serves it.
// Errors: std::bad_alloc.
class PropertyPresence {
 public:
  // `log` may be empty.
  PropertyPresence(std::shared_ptr<PropertyCatalog> catalog,
                   std::shared_ptr<Observation> observation,
                   std::shared_ptr<PendingUpdates> pending, std::shared_ptr<LogSink> log);

  // From here on every property that comes is announced; the service's own that came before were
  // there from the start.
  void AnnounceFromNow() { announcing_.store(true); }
  // One of the service's own. False when there is one of its key.
  bool AddOwn(const std::shared_ptr<Property>& property) EXCLUDES(presence_lock_);
  // An entry in which a component reports a property of its own. True when it has put its value on
  // the property of another client.
  bool Apply(const PropertyResponseRecord& entry, const std::shared_ptr<ClientConnection>& sender)
      EXCLUDES(presence_lock_);
  // Takes away all that the client owned and that has no heir, as long as the session is not ended
  // by the service.
  void WithdrawAllOf(const ClientConnection& client) noexcept EXCLUDES(presence_lock_);

 private:
  void Appeared(const std::shared_ptr<Property>& property) EXCLUDES(presence_lock_);
  void Withdraw(const PropertyAddress& address) EXCLUDES(presence_lock_);
  void Vanished(const std::shared_ptr<ComponentProperty>& property) noexcept
      REQUIRES(presence_lock_);
  void LogReported(const Property& property, std::string_view value) const;

  const std::shared_ptr<PropertyCatalog> catalog_;
  const std::shared_ptr<Observation> observation_;
  const std::shared_ptr<PendingUpdates> pending_;
  const std::shared_ptr<LogSink> log_;
  std::atomic<bool> announcing_{false};

  // Keeps announcements in the order of events: that a property has come is announced only while
  // it is registered, and before it is announced as gone.
  Lock presence_lock_;
};

}  // namespace valmere
