// What a session publishes. Internal to the library.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <unordered_map>
#include <vector>

#include "client/address_hash.h"
#include "client/property.h"

namespace valmere::client {

using SetCallback = std::function<void(const SetRequest&)>;

// Purpose: the published properties with what their owner last said of them, and what of that has
// not been sent to the service yet.
// Owner: a session.
// Threads: under the session's lock.
// Errors: std::bad_alloc, of what adds or gives out.
class Publications {
 public:
  // What is left to be sent.
  struct Unsent {
    std::vector<Property> withdrawn;
    std::vector<Property> published;

    bool empty() const { return withdrawn.empty() && published.empty(); }
  };

  // Adds the properties, or replaces them together with their callback. `sent` says whether
  // this is being sent to the service now.
  void Put(std::span<const Property> properties, const std::shared_ptr<const SetCallback>& on_set,
           bool sent);
  // Does nothing for a property that is not there.
  void Update(const SetRequest& update, bool sent);
  void Remove(const PropertyAddress& address, bool sent);
  // The service has forgotten everything.
  void MarkAllUnsent();
  // What was not sent, which counts as sent from now on; in the order of publication.
  Unsent TakeUnsent();

  // The callbacks of what was replaced or removed, to be destroyed without the lock.
  std::vector<std::shared_ptr<const SetCallback>> TakeReleased();

  bool Has(const PropertyAddress& address) const { return entries_.contains(address); }
  std::optional<Property> Find(const PropertyAddress& address) const;
  // Empty when the property is not published.
  std::shared_ptr<const SetCallback> CallbackOf(const PropertyAddress& address) const;

 private:
  struct Entry {
    Property property;
    std::shared_ptr<const SetCallback> on_set;
    bool sent = false;
    std::uint64_t number = 0;  // in the order in which they were published
  };

  std::unordered_map<PropertyAddress, Entry, AddressHash> entries_;
  std::uint64_t last_number_ = 0;
  std::vector<std::shared_ptr<const SetCallback>> released_;
  std::vector<Property> withdrawn_;  // whose publication was sent and whose end was not
};

}  // namespace valmere::client
