// What a session is made of. Internal to the library.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <thread>
#include <unordered_set>
#include <vector>

#include "client/address_hash.h"
#include "client/dispatcher.h"
#include "client/link.h"
#include "client/publications.h"
#include "client/session.h"
#include "client/turn.h"

namespace valmere::client {

// A subscription as its session knows it.
struct SubscriptionEntry {
  const bool to_all;
  const std::unordered_set<PropertyAddress, AddressHash> addresses;
  const Session::ChangeCallback callback;
  bool ended = false;  // guarded by the session's lock
};

// Purpose: keeps the two connections, the subscriptions and the publications, and brings all of it
// back when the connection was lost.
// Owner: its Session, and for the time of a call a Subscription that ends.
// Threads: any. Its own are the readers of the connections, which note what comes, the dispatcher,
// which runs the callbacks, and the keeper, which connects again. None of them waits for a callback.
// Errors: values.
class SessionCore {
 public:
  SessionCore(Connector connector, SessionOptions options);
  ~SessionCore() { Stop(); }
  SessionCore(const SessionCore&) = delete;
  SessionCore& operator=(const SessionCore&) = delete;

  Deadline DeadlineOf(Session::By by) const {
    return by.value_or(Deadline::After(options_.timeout));
  }

  // Connects for the first time; before all other calls.
  Result<void> Open(Deadline deadline);
  Result<std::vector<Property>> Ask(const Result<std::string>& frame, Deadline deadline);
  Result<void> Send(const Result<std::string>& frame, Deadline deadline);

  // The entry's subscription stands when it returns.
  Result<void> Subscribe(const std::shared_ptr<SubscriptionEntry>& entry, Deadline deadline);
  void Unsubscribe(SubscriptionEntry& entry);

  Result<void> Publish(std::span<const Property> properties, SetCallback callback,
                       Deadline deadline);
  Result<void> Update(std::span<const SetRequest> values, Deadline deadline);
  Result<void> Withdraw(std::span<const PropertyAddress> addresses, Deadline deadline);

  Result<void> Disconnect(Deadline deadline);
  // Ends everything and waits for it; on the dispatcher's thread it waits for nothing.
  void Stop();

 private:
  enum class State { kRestoring, kConnected, kLost, kEnded };
  using Hold = std::unique_lock<std::mutex>;

  enum class Attempt { kFirst, kAgain };

  // Connecting and coming back, in session_keeper.cpp.
  Result<std::shared_ptr<Link>> Connect(Link::Role role, std::uint64_t epoch, Deadline deadline);
  void Keep();
  bool PauseBeforeAttempt(Hold& hold);
  Result<void> Restore(Deadline connected_by, Deadline deadline, Attempt attempt);
  Result<void> RestoreAll(std::uint64_t epoch, Deadline connected_by, Deadline deadline,
                          Attempt attempt);
  Result<void> RestoreSubscriptions(std::uint64_t epoch, Deadline deadline);
  static Result<void> TellUntold(Link& requests, const Publications::Untold& untold,
                                 Deadline deadline);
  Result<void> Adopt(std::shared_ptr<Link>& place, const std::shared_ptr<Link>& link);
  // With the lock held; these two let go of it.
  Result<void> FinishRestoring(Hold& hold, std::vector<Property> properties, Attempt attempt);
  void DropConnections(Hold& hold);
  void CloseConnections();

  // Called by the connections' readers.
  void ConnectionEnded(const Link& link, const Error& error);
  void ChangesCame(std::uint64_t epoch, std::vector<Property> properties);
  void SetsCame(std::uint64_t epoch, std::vector<SetRequest> sets);
  void Deliver(std::uint64_t epoch, Dispatcher::Task task);

  // Run by the dispatcher.
  void TellOfChanges(std::span<const Property> properties);
  void Renew(std::span<const Property> properties);
  void TellOfSet(const SetRequest& set);
  void PostEvent(SessionEvent event);
  bool BeginCallback(const SubscriptionEntry& entry);
  void EndCallback();

  // The connection for requests, if it stands.
  Result<std::shared_ptr<Link>> Requests();
  Error NotConnected() const;
  Result<void> SubscribeInTurn(const std::shared_ptr<SubscriptionEntry>& entry,
                               const std::string& frame, Deadline deadline);
  Result<void> Announce(const SubscriptionEntry& entry, const std::string& frame,
                        Deadline deadline);
  Result<void> OpenChanges(bool to_all, const std::string& frame, Deadline deadline);
  void Retire(const std::shared_ptr<Link>& link, Deadline deadline);
  Result<void> Tell(const Result<std::string>& frame, Deadline deadline,
                    const std::function<Result<void>(bool told)>& note);

  const Connector connector_;
  const SessionOptions options_;

  Turn subscribing_;  // held by the call that changes what the service is to tell of

  std::mutex lock_;
  // All guarded by lock_.
  State state_ = State::kRestoring;
  Error lost_by_{ErrorKind::kConnectionLost, "connection lost: not connected yet"};
  std::uint64_t epoch_ = 0;  // counts the attempts; what an older one's connections say is late
  std::chrono::steady_clock::time_point connected_since_;
  std::chrono::milliseconds pause_;  // before the next attempt
  std::shared_ptr<Link> requests_;
  std::shared_ptr<Link> changes_;
  bool changes_to_all_ = false;
  std::shared_ptr<Link> passing_;  // about to become changes_, or no longer
  std::vector<std::shared_ptr<SubscriptionEntry>> subscriptions_;
  Publications publications_;
  std::vector<Dispatcher::Task> held_back_;         // until Reconnected has been told of
  const SubscriptionEntry* called_back_ = nullptr;  // whose callback runs
  std::condition_variable callback_ended_;
  std::condition_variable state_changed_;

  Dispatcher dispatcher_;
  std::mutex joining_;
  std::thread keeper_;  // joined under joining_
};

}  // namespace valmere::client
