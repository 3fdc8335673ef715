// Within a pass the new come before the vanished. That is the order of events for a property that
// comes and goes, and the wrong one for a component that leaves and is back before the pass: its
// subscribers would end up with the properties gone. Those wait for one pass more.
//
// The lock is held only to add one and to exchange the lists for empty ones: a thread that
// announces a property must not wait until tens of thousands have been sorted.
#include "store/engine/announcements.h"

#include <exception>
#include <iterator>
#include <set>
#include <unordered_set>
#include <utility>

namespace valmere {

void Announcements::Add(std::shared_ptr<Property>& property, Handles& waiting,
                        std::uint64_t& lost) {
  if (waiting.size() < kMostWaiting)
    waiting.push_back(std::move(property));
  else
    ++lost;
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): a dropped handle is released after the lock
void Announcements::AddNew(std::shared_ptr<Property> property) {
  const ScopedLock hold(lock_);
  Add(property, waiting_.added, waiting_.lost_added);
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): a dropped handle is released after the lock
void Announcements::AddVanished(std::shared_ptr<Property> property) {
  const ScopedLock hold(lock_);
  Add(property, waiting_.vanished, waiting_.lost_vanished);
}

Announcements::Taken Announcements::Take(const std::atomic<bool>& stop) {
  if (sorted_) Fetch();
  Handles returned = TakeReturned(stop);
  if (stop.load()) return {};
  sorted_ = true;
  return std::exchange(fetched_, Taken{std::move(returned), {}});
}

// What waited for this pass comes before what is new in it.
void Announcements::Fetch() {
  Handles before = std::exchange(fetched_.added, {});
  try {
    const ScopedLock hold(lock_);
    if (!before.empty()) before.reserve(before.size() + waiting_.added.size());
    std::swap(fetched_, waiting_);
  } catch (const std::exception&) {
    fetched_.added = std::move(before);
    throw;
  }
  sorted_ = false;
  if (before.empty()) return;
  std::move(fetched_.added.begin(), fetched_.added.end(), std::back_inserter(before));
  fetched_.added = std::move(before);
}

// Takes out of the added properties those that replace one of the same key that has vanished,
// unless they have vanished as well.
Announcements::Handles Announcements::TakeReturned(const std::atomic<bool>& stop) {
  if (fetched_.added.empty() || fetched_.vanished.empty()) return {};
  std::set<PropertyKey> keys;
  std::unordered_set<const Property*> vanished;
  for (const auto& property : fetched_.vanished) {
    if (stop.load(std::memory_order_relaxed)) return {};
    keys.insert(property->key());
    vanished.insert(property.get());
  }
  Handles returned;
  returned.reserve(fetched_.added.size());  // nothing throws from here on
  for (auto& added : fetched_.added) {
    if (stop.load(std::memory_order_relaxed)) return {};
    if (added->OfComponent() && keys.contains(added->key()) && !vanished.contains(added.get()))
      returned.push_back(std::move(added));
  }
  std::erase(fetched_.added, nullptr);
  return returned;
}

}  // namespace valmere
