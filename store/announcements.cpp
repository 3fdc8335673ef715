// Within a pass the new come before the vanished. That is the order of events for a property that
// comes and goes, and the wrong one for a component that leaves and is back before the pass: its
// subscribers would end up believing that the properties are gone. Those wait for one pass more.
#include "store/announcements.h"

#include <algorithm>
#include <string_view>
#include <unordered_map>
#include <utility>

namespace valmere {

void Announcements::AddNew(std::shared_ptr<Property> property) {
  const ScopedLock hold(lock_);
  waiting_.added.push_back(std::move(property));
}

void Announcements::AddVanished(std::shared_ptr<Property> property) {
  const ScopedLock hold(lock_);
  waiting_.vanished.push_back(std::move(property));
}

Announcements::Taken Announcements::Take() {
  const ScopedLock hold(lock_);
  Handles returned = TakeReturned(waiting_);
  return std::exchange(waiting_, Taken{std::move(returned), {}});
}

// Takes out of the added those of whom another property, of the same key, has vanished, unless they
// have vanished as well.
Announcements::Handles Announcements::TakeReturned(Taken& taken) {
  if (taken.added.empty() || taken.vanished.empty()) return {};
  std::unordered_multimap<std::string_view, const Property*> vanished;
  for (const auto& property : taken.vanished)
    vanished.emplace(property->key(), property.get());
  const auto stays = [&](const std::shared_ptr<Property>& added) {
    const auto [first, last] = vanished.equal_range(added->key());
    return !added->OfComponent() || first == last ||
           std::any_of(first, last, [&](const auto& entry) { return entry.second == added.get(); });
  };
  Handles returned;
  returned.reserve(taken.added.size());  // nothing throws from here on
  for (auto& added : taken.added) {
    if (!stays(added)) returned.push_back(std::move(added));
  }
  std::erase(taken.added, nullptr);
  return returned;
}

}  // namespace valmere
