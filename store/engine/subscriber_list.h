// The clients that subscribed to changes.
#pragma once

#include <atomic>
#include <cstddef>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "driver/sync/lock.h"
#include "net/client_connection.h"

namespace valmere {

// Purpose: one client's subscription: the keys (component ":" group GUID ":" GUID) that it named.
// With no key at all it is one to every property. The bytes of the keys are charged to the client's
// account, before they are given to the subscriber and until they go.
// Owner: the SubscriberList; a thread that writes to the client without the list's lock shares it.
// Threads: under the list's lock; write_lock keeps replies and notifications of this client apart.
// It is taken under the list's, but may be held for longer.
struct Subscriber : std::enable_shared_from_this<Subscriber> {
  using Keys = std::set<std::string, std::less<>>;

  explicit Subscriber(std::shared_ptr<ClientConnection> client) : connection(std::move(client)) {}
  ~Subscriber() { ReleaseKeys(*connection, keys); }
  Subscriber(const Subscriber&) = delete;
  Subscriber& operator=(const Subscriber&) = delete;

  // What a key takes, about.
  static std::size_t BytesOf(std::string_view key) { return 96 + key.size(); }
  static void ReleaseKeys(ClientConnection& client, const Keys& gone);

  const std::shared_ptr<ClientConnection> connection;
  Keys keys;
  Lock write_lock;
};

// Purpose: the subscribers in the order in which they registered.
// Owner: shared by the property engine and its publisher.
// Threads: any, holding `lock` over the calls and for as long as what they return is used.
// Errors: std::bad_alloc.
class SubscriberList {
 public:
  using Entries = std::vector<std::shared_ptr<Subscriber>>;

  static constexpr std::size_t kStep = 256;

  Lock lock;

  // Null when the client has no entry.
  Subscriber* Find(const ClientConnection& client) REQUIRES(lock);
  // Registers the client with the keys, or moves some of them to its entry: about kStep, because
  // other threads wait for the lock. Those that are left are to be added by further calls. When
  // memory runs out nothing has changed.
  Subscriber& Add(const std::shared_ptr<ClientConnection>& client, Subscriber::Keys& keys)
      REQUIRES(lock);
  // The entry that was removed, or empty.
  std::shared_ptr<Subscriber> Remove(const ClientConnection& client) REQUIRES(lock);
  std::size_t size() const REQUIRES(lock) { return subscribers_.size(); }
  // True when a subscriber gets what happens to the property of this key.
  bool Wants(std::string_view key) const REQUIRES(lock);
  // Visits every subscriber in order; those for which `keep` returns false are removed and
  // returned, to be released after the lock. When `keep` throws, none is removed.
  template <class Keep>
  [[nodiscard]] Entries KeepIf(Keep keep) REQUIRES(lock);
  // Whether there is any, without the lock; a change at the same time may be seen or not.
  // Sequentially consistent: a client that subscribes while a value changes reads the new value, or
  // is seen by the thread that changes it.
  bool Any() const { return count_.load() != 0; }

 private:
  Subscriber& Register(const std::shared_ptr<ClientConnection>& client, Subscriber::Keys& keys)
      REQUIRES(lock);
  Entries RemoveFrom(Entries::iterator first) REQUIRES(lock);

  Entries subscribers_ GUARDED_BY(lock);
  std::unordered_map<const ClientConnection*, Subscriber*> by_client_ GUARDED_BY(lock);
  std::atomic<std::size_t> count_{0};
};

template <class Keep>
SubscriberList::Entries SubscriberList::KeepIf(Keep keep) {
  // Swapped, not moved: at no time is there an entry without a subscriber.
  auto kept = subscribers_.begin();
  for (auto& subscriber : subscribers_)
    if (keep(*subscriber)) (kept++)->swap(subscriber);
  return RemoveFrom(kept);
}

}  // namespace valmere
