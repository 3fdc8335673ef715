// A property: an identity, a value with a text form, and the listeners to its changes.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "driver/sync/live_counters.h"
#include "driver/sync/lock.h"
#include "store/property/listener_list.h"
#include "store/property/property_identity.h"

namespace valmere {

// Purpose: what all kinds of property have in common; each kind adds its value and its text form.
// Owner: shared by its registry, closures of listeners and pending updates.
// Threads: any; announcements run on the thread that changed the value.
// Errors: NotifyChanged throws std::bad_weak_ptr once the last owner has released it and
// std::bad_function_call for an empty callable; what a listener throws comes through.
class Property : public std::enable_shared_from_this<Property> {
 public:
  using Listener = PropertyListener;
  using SharedListener = ListenerList::SharedListener;

  // Bits of the attribute.
  static constexpr std::uint32_t kRestored = 2;  // takes its value from the property file
  static constexpr std::uint32_t kSettable = 8;  // clients may set it

  virtual ~Property();
  Property(const Property&) = delete;
  Property& operator=(const Property&) = delete;

  // The value in text form.
  virtual std::string ToString() const = 0;
  // Takes the value that the text stands for, and announces it if it is a change.
  virtual void SetFromString(std::string text) = 0;
  // Takes the value without announcing it.
  virtual void SetFromStringSilently(std::string text) = 0;
  // The text that replies and published updates carry.
  virtual std::string GetValueString() const;
  // Calls the listeners in the order in which they were added, then the keyed callbacks in
  // ascending order of key; the latter under this property's own lock.
  virtual void NotifyChanged();

  std::string_view guid() const { return identity_.guid(); }
  std::string_view name() const { return identity_.name(); }
  std::string_view group_guid() const { return identity_.group_guid(); }
  std::string_view group_name() const { return identity_.group_name(); }
  // What the property is registered under; of texts that live as long as the property.
  PropertyKey key() const { return identity_.key(); }
  int CompareKey(const PropertyKey& other) const { return identity_.key().Compare(other); }
  // Of all that its registry has taken, the how manieth it was. The registry's, under its lock.
  std::uint64_t arrival() const { return arrival_; }
  void set_arrival(std::uint64_t arrival) { arrival_ = arrival; }

  // Of a client component's property; both empty for one of the service's own.
  bool OfComponent() const { return identity_.OfComponent(); }
  std::string_view component() const { return identity_.component(); }
  std::string_view component_name() const { return identity_.component_name(); }

  std::uint32_t attribute() const { return attribute_.load(std::memory_order_relaxed); }
  void set_attribute(std::uint32_t bits) { attribute_.store(bits, std::memory_order_relaxed); }

  // Whether the one listener that serves all subscribers is attached.
  bool observed() const { return observed_.load(std::memory_order_acquire); }
  void set_observed() { observed_.store(true, std::memory_order_release); }

  // Listeners stay as long as the property does.
  void AddListener(Listener listener) { listeners_.Append(std::move(listener)); }
  // One that several properties have in common, which is kept once.
  void AddSharedListener(SharedListener listener) { listeners_.AppendShared(std::move(listener)); }

  // For an owner that replaces or removes its callback while the property lives: a listener stays.
  // One callback per key; a second one under the same key takes the first one's place. A callback
  // may change the set that it is called from; it must not wait for another thread that does.
  void SetKeyedCallback(std::uint32_t key, Listener callback);
  void RemoveKeyedCallback(std::uint32_t key);

 protected:
  // Only the factories of the value types can name this, so that no property escapes being shared.
  struct MakeToken {
    explicit MakeToken() = default;
  };

  explicit Property(PropertyIdentity identity) : identity_(std::move(identity)) {}

  const PropertyIdentity& identity() const { return identity_; }

 private:
  struct KeyedCallbacks;

  KeyedCallbacks& MakeKeyedCallbacks();

  [[no_unique_address]] LiveProperties counted_;
  const PropertyIdentity identity_;
  std::uint64_t arrival_ = 0;
  ListenerList listeners_;
  // With its lock, made when it is first used: few properties ever need one.
  std::atomic<KeyedCallbacks*> keyed_callbacks_{nullptr};
  std::atomic<std::uint32_t> attribute_{kRestored | kSettable};
  std::atomic<bool> observed_{false};
};

}  // namespace valmere
