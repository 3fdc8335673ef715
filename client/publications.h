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

// Purpose: the published properties with what their owner last said of them, and what of that the
// service has not been told yet.
// Owner: a session.
// Threads: under the session's lock.
class Publications {
 public:
  // What is left to tell.
  struct Untold {
    std::vector<Property> withdrawn;
    std::vector<Property> published;

    bool empty() const { return withdrawn.empty() && published.empty(); }
  };

  // Adds the properties, or replaces them together with their callback. `told` says whether the
  // service is about to hear of it.
  void Put(std::span<const Property> properties, const std::shared_ptr<const SetCallback>& on_set,
           bool told);
  // Does nothing for a property that is not there.
  void Update(const SetRequest& update, bool told);
  void Remove(const PropertyAddress& address, bool told);
  // The service has forgotten everything.
  void ForgetTold();
  // What it has not been told, which counts as told from now on; in the order of publication.
  Untold TakeUntold();

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
    bool told = false;
    std::uint64_t number = 0;  // in the order in which they were published
  };

  std::unordered_map<PropertyAddress, Entry, AddressHash> entries_;
  std::uint64_t last_number_ = 0;
  std::vector<std::shared_ptr<const SetCallback>> released_;
  std::vector<Property> withdrawn_;  // that the service was told of and not of their end
};

}  // namespace valmere::client
