// A change is announced to two kinds of listener. The list of listeners only grows and is walked
// without a lock, so a listener may do anything, as setting further properties. The
// keyed callbacks can be replaced and removed, which takes a lock, held while they are called: once
// RemoveKeyedCallback has returned, that callback runs no more.
#include "store/property/property.h"

#include <map>
#include <utility>

namespace valmere {

struct Property::KeyedCallbacks {
  Lock lock;
  std::map<std::uint32_t, Listener> by_key GUARDED_BY(lock);
};

Property::~Property() {
  delete keyed_callbacks_.load(std::memory_order_acquire);
}

std::string Property::GetValueString() const {
  return ToString();
}

void Property::NotifyChanged() {
  listeners_.Walk([this](const Listener& listener) { listener(shared_from_this()); });

  KeyedCallbacks* keyed = keyed_callbacks_.load(std::memory_order_acquire);
  if (keyed == nullptr) return;
  const ScopedLock hold(keyed->lock);
  for (auto at = keyed->by_key.begin(); at != keyed->by_key.end();) {
    const std::uint32_t key = at->first;
    const Listener callback = at->second;  // a copy: the callback may remove its own entry
    callback(shared_from_this());
    at = keyed->by_key.upper_bound(key);
  }
}

void Property::SetKeyedCallback(std::uint32_t key, Listener callback) {
  KeyedCallbacks& keyed = MakeKeyedCallbacks();
  const ScopedLock hold(keyed.lock);
  keyed.by_key.insert_or_assign(key, std::move(callback));
}

void Property::RemoveKeyedCallback(std::uint32_t key) {
  KeyedCallbacks* keyed = keyed_callbacks_.load(std::memory_order_acquire);
  if (keyed == nullptr) return;
  const ScopedLock hold(keyed->lock);
  keyed->by_key.erase(key);
}

Property::KeyedCallbacks& Property::MakeKeyedCallbacks() {
  KeyedCallbacks* present = keyed_callbacks_.load(std::memory_order_acquire);
  if (present != nullptr) return *present;
  auto made = std::make_unique<KeyedCallbacks>();
  // Of two threads that come here at once, one installs its set and the other uses that.
  if (!keyed_callbacks_.compare_exchange_strong(present, made.get())) return *present;
  return *made.release();
}

}  // namespace valmere
