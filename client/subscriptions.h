// What a session is subscribed to. Internal to the library.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "client/deadline.h"
#include "client/dispatcher.h"
#include "client/link.h"
#include "client/property.h"
#include "client/result.h"
#include "client/session.h"
#include "client/session_links.h"
#include "client/session_state.h"
#include "client/timed_mutex.h"

namespace valmere::client {

// Purpose: subscribes to what the session's subscriptions need, on a link that exists only while
// there are subscriptions, and calls their callbacks.
// Owner: the SessionCore.
// Threads: any; HandleChanges on the dispatcher's. Callbacks run while no lock is held.
// Errors: values.
class Subscriptions {
 public:
  Subscriptions(SessionState& state, SessionLinks& links, Dispatcher& dispatcher,
                const SessionOptions& options);
  Subscriptions(const Subscriptions&) = delete;
  Subscriptions& operator=(const Subscriptions&) = delete;

  // The entry's subscription stands when it returns.
  Result<void> Subscribe(const std::shared_ptr<SubscriptionEntry>& entry, Deadline deadline);
  // Its callback is not running when it returns, unless this is called on the dispatcher's thread.
  void Unsubscribe(const SubscriptionEntry& entry);

  // Subscribes anew to everything, in the attempt `epoch`.
  Result<void> Restore(std::uint64_t epoch, Deadline deadline);
  // Calls the callbacks that want these.
  void HandleChanges(std::span<const Property> properties);

 private:
  Result<void> AddAndRequest(const std::shared_ptr<SubscriptionEntry>& entry,
                             const std::string& frame, Deadline deadline);
  Result<void> Request(const SubscriptionEntry& entry, const std::string& frame, Deadline deadline);
  Result<void> ReplaceLink(bool to_all, const std::string& frame, Deadline deadline);
  Result<std::shared_ptr<Link>> ExchangeLink(const std::shared_ptr<Link>& link, bool to_all,
                                             std::uint64_t epoch);
  void Retire(const std::shared_ptr<Link>& link, Deadline deadline);
  void SubscribeAgain(std::span<const Property> properties);
  std::vector<Property> RequestAgain(std::vector<PropertyAddress> gone, Deadline deadline);
  bool IsWanted(const PropertyAddress& address) const REQUIRES(state_.lock);
  bool BeginCallback(const SubscriptionEntry& entry);
  void EndCallback();

  SessionState& state_;
  SessionLinks& links_;
  const Dispatcher& dispatcher_;
  const SessionOptions& options_;

  TimedMutex subscribing_;  // held by the call that changes what is subscribed to
  const SubscriptionEntry* called_back_ GUARDED_BY(state_.lock) = nullptr;  // whose callback runs
  std::condition_variable callback_ended_;
};

}  // namespace valmere::client
