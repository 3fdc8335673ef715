// Order for the notifications, a hash map for the look-up that every reply makes.
#include "store/engine/subscriber_list.h"

#include <algorithm>
#include <exception>
#include <iterator>
#include <utility>

namespace valmere {

void Subscriber::ReleaseKeys(ClientConnection& client, const Keys& gone) {
  ClientAccount* const account = client.account();
  if (account == nullptr) return;
  for (const std::string& key : gone)
    account->Release(BytesOf(key));
}

Subscriber* SubscriberList::Find(const ClientConnection& client) {
  const auto place = by_client_.find(&client);
  return place != by_client_.end() ? place->second : nullptr;
}

// It gets its keys last: after an exception before that, the caller still has them, and no entry
// without them is left, which would be a subscription to all.
Subscriber& SubscriberList::Register(const std::shared_ptr<ClientConnection>& client,
                                     Subscriber::Keys& keys) {
  subscribers_.push_back(std::make_shared<Subscriber>(client));
  Subscriber& subscriber = *subscribers_.back();
  try {
    by_client_.emplace(client.get(), &subscriber);
  } catch (const std::exception&) {
    subscribers_.pop_back();
    throw;
  }
  subscriber.keys.swap(keys);
  count_.store(subscribers_.size());
  return subscriber;
}

Subscriber& SubscriberList::Add(const std::shared_ptr<ClientConnection>& client,
                                Subscriber::Keys& keys) {
  Subscriber* const subscriber = Find(*client);
  if (subscriber == nullptr) return Register(client, keys);
  if (subscriber->keys.empty()) subscriber->keys.swap(keys);
  for (std::size_t left = kStep; left != 0 && !keys.empty(); --left) {
    const auto added = subscriber->keys.insert(keys.extract(keys.begin()));
    ClientAccount* const account = added.inserted ? nullptr : client->account();
    if (account != nullptr) account->Release(Subscriber::BytesOf(added.node.value()));
  }
  return *subscriber;
}

bool SubscriberList::Wants(std::string_view key) const {
  return std::any_of(subscribers_.begin(), subscribers_.end(), [&](const auto& subscriber) {
    return subscriber->keys.empty() || subscriber->keys.contains(key);
  });
}

std::shared_ptr<Subscriber> SubscriberList::Remove(const ClientConnection& client) {
  if (by_client_.erase(&client) == 0) return nullptr;
  const auto place = std::find_if(subscribers_.begin(), subscribers_.end(), [&](const auto& entry) {
    return entry->connection.get() == &client;
  });
  std::shared_ptr<Subscriber> removed = std::move(*place);
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
