// Order for the notifications, a hash map for the look-up that every reply makes.
#include "store/subscriber_list.h"

#include <algorithm>
#include <exception>
#include <iterator>
#include <utility>

#include "store/property_key.h"

namespace valmere {

Subscriber* SubscriberList::Find(const ClientConnection& client) {
  const auto place = by_client_.find(&client);
  return place != by_client_.end() ? place->second : nullptr;
}

Subscriber& SubscriberList::Add(const std::shared_ptr<ClientConnection>& client,
                                std::span<const PropertyAddress> addresses) {
  // Made before the entry: one that memory ran out for would be a subscription to all.
  std::set<std::string, std::less<>> named;
  for (const PropertyAddress& address : addresses)
    named.insert(PropertyKey(address.component, address.group_guid, address.guid).Text());
  Subscriber* subscriber = Find(*client);
  if (subscriber == nullptr) {
    subscribers_.push_back(std::make_unique<Subscriber>(client));
    subscriber = subscribers_.back().get();
    try {
      by_client_.emplace(client.get(), subscriber);
    } catch (const std::exception&) {
      subscribers_.pop_back();
      throw;
    }
    count_.store(subscribers_.size());
  }
  subscriber->keys.merge(named);
  return *subscriber;
}

bool SubscriberList::Wants(std::string_view key) const {
  return std::any_of(subscribers_.begin(), subscribers_.end(), [&](const auto& subscriber) {
    return subscriber->keys.empty() || subscriber->keys.contains(key);
  });
}

std::unique_ptr<Subscriber> SubscriberList::Remove(const ClientConnection& client) {
  if (by_client_.erase(&client) == 0) return nullptr;
  const auto place = std::find_if(subscribers_.begin(), subscribers_.end(), [&](const auto& entry) {
    return entry->connection.get() == &client;
  });
  std::unique_ptr<Subscriber> removed = std::move(*place);
  subscribers_.erase(place);
  count_.store(subscribers_.size());
  return removed;
}

SubscriberList::Entries SubscriberList::RemoveFrom(Entries::iterator first) {
  if (first == subscribers_.end()) return {};
  Entries removed(std::make_move_iterator(first), std::make_move_iterator(subscribers_.end()));
  subscribers_.erase(first, subscribers_.end());
  for (const auto& subscriber : removed)
    by_client_.erase(subscriber->connection.get());
  count_.store(subscribers_.size());
  return removed;
}

}  // namespace valmere
