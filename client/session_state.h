// What the parts of a session share. Internal to the library.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <memory>
#include <unordered_set>
#include <vector>

#include "client/address_hash.h"
#include "client/link.h"
#include "client/mutex.h"
#include "client/property.h"
#include "client/publications.h"
#include "client/result.h"
#include "client/session.h"

namespace valmere::client {

// A subscription as its session knows it.
struct SubscriptionEntry {
  const bool to_all;
  const std::unordered_set<PropertyAddress, AddressHash> addresses;
  const Session::ChangeCallback callback;
};

enum class SessionPhase { kRestoring, kConnected, kLost, kEnded };

// Purpose: whether a session is connected and by which links, what it is subscribed to and what it
// publishes. All of it changes together, so one lock guards it. The lock is held to look and to
// note, never over a callback, a send or a wait for the service.
// Owner: the SessionCore; it outlives the parts that refer to it.
// Threads: any.
// Errors: values.
struct SessionState {
  // The link for requests, if the session is connected.
  Result<std::shared_ptr<Link>> ConnectedRequests() EXCLUDES(lock);
  // What calls give while the session is not connected.
  Error NotConnected() const REQUIRES(lock);
  // Closes the links, and does not wait for them. Calls that wait on one return at once.
  void CloseLinks() REQUIRES(lock);

  Mutex lock;
  std::condition_variable phase_changed;  // to kLost and kEnded
  SessionPhase phase GUARDED_BY(lock) = SessionPhase::kRestoring;
  Error lost_by GUARDED_BY(lock){ErrorKind::kConnectionLost, "connection lost: not connected yet"};
  // Counts the attempts to connect; what comes on a link of an older one is dropped.
  std::uint64_t epoch GUARDED_BY(lock) = 0;

  std::shared_ptr<Link> requests GUARDED_BY(lock);
  std::shared_ptr<Link> changes GUARDED_BY(lock);
  bool changes_to_all GUARDED_BY(lock) = false;
  // While `changes` is replaced: first the next one, then the one before.
  std::shared_ptr<Link> other_changes GUARDED_BY(lock);

  std::vector<std::shared_ptr<SubscriptionEntry>> subscriptions GUARDED_BY(lock);
  Publications publications GUARDED_BY(lock);
};

}  // namespace valmere::client
