// A publication that was sent leaves a note behind when it goes, until its end is sent too.
#include "client/publications.h"

#include <algorithm>
#include <utility>

namespace valmere::client {

void Publications::Put(std::span<const Property> properties,
                       const std::shared_ptr<const SetCallback>& on_set, bool sent) {
  for (const Property& property : properties) {
    Entry& entry = entries_[property.address()];
    if (entry.number == 0) entry.number = ++last_number_;
    entry.property = property;
    entry.sent = sent;
    released_.push_back(std::exchange(entry.on_set, on_set));
  }
}

void Publications::Update(const SetRequest& update, bool sent) {
  const auto found = entries_.find(update.address);
  if (found == entries_.end()) return;
  found->second.property.value = update.value;
  found->second.sent = sent;
}

void Publications::Remove(const PropertyAddress& address, bool sent) {
  const auto found = entries_.find(address);
  if (found == entries_.end()) return;
  if (!sent && found->second.sent) withdrawn_.push_back(std::move(found->second.property));
  released_.push_back(std::move(found->second.on_set));
  entries_.erase(found);
}

void Publications::MarkAllUnsent() {
  withdrawn_.clear();
  for (auto& [address, entry] : entries_)
    entry.sent = false;
}

Publications::Unsent Publications::TakeUnsent() {
  Unsent unsent;
  unsent.withdrawn.swap(withdrawn_);
  std::vector<const Entry*> entries;
  for (auto& [address, entry] : entries_)
    if (!std::exchange(entry.sent, true)) entries.push_back(&entry);
  std::ranges::sort(entries, {}, &Entry::number);
  for (const Entry* entry : entries)
    unsent.published.push_back(entry->property);
  return unsent;
}

std::vector<std::shared_ptr<const SetCallback>> Publications::TakeReleased() {
  return std::exchange(released_, {});
}

std::optional<Property> Publications::Find(const PropertyAddress& address) const {
  const auto found = entries_.find(address);
  if (found == entries_.end()) return std::nullopt;
  return found->second.property;
}

std::shared_ptr<const SetCallback> Publications::CallbackOf(const PropertyAddress& address) const {
  const auto found = entries_.find(address);
  return found == entries_.end() ? nullptr : found->second.on_set;
}

}  // namespace valmere::client
