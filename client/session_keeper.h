// What brings a session's connections back. Internal to the library.
#pragma once

#include <chrono>
#include <cstdint>
#include <vector>

#include "client/deadline.h"
#include "client/dispatcher.h"
#include "client/link.h"
#include "client/property.h"
#include "client/publisher.h"
#include "client/result.h"
#include "client/session.h"
#include "client/session_links.h"
#include "client/session_state.h"
#include "client/subscriptions.h"

namespace valmere::client {

// Purpose: connects a session, and does so again after each loss, one attempt after the other,
// until everything that was subscribed to and published is back. Reports losses and returns to the
// session's event callback.
// Owner: the SessionCore.
// Threads: Open first; then Run on a thread of its own, and NoteEnd on the links' threads.
// Errors: Open gives values. An attempt of Run that fails is followed by the next.
class SessionKeeper {
 public:
  // What a session is kept with; all of it outlives the keeper.
  struct Parts {
    SessionState& state;
    SessionLinks& links;
    Subscriptions& subscriptions;
    Dispatcher& dispatcher;
    const SessionOptions& options;
  };

  explicit SessionKeeper(const Parts& parts);
  SessionKeeper(const SessionKeeper&) = delete;
  SessionKeeper& operator=(const SessionKeeper&) = delete;

  // Connects for the first time.
  Result<void> Open(Deadline deadline);
  // Connects again after each loss; returns when the session has ended.
  void Run();
  // A link has ended by itself. When it is one of the session's, the connection is lost.
  void NoteEnd(const Link& link, const Error& error);

 private:
  enum class Attempt { kFirst, kAgain };

  void WaitForLossOrEnd();
  bool PauseBeforeAttempt();
  Result<void> Restore(Deadline connected_by, Deadline deadline, Attempt attempt);
  Result<void> RestoreAll(std::uint64_t epoch, Deadline connected_by, Deadline deadline,
                          Attempt attempt);
  Result<std::vector<Property>> PublishAndReadAll(Link& requests, Deadline deadline);
  Result<void> FinishRestoring(Link& requests, std::vector<Property> all, Deadline deadline,
                               Attempt attempt);
  Result<void> SetConnected() REQUIRES(state_.lock);
  void PostEvent(SessionEvent event);

  SessionState& state_;
  SessionLinks& links_;
  Subscriptions& subscriptions_;
  Dispatcher& dispatcher_;
  const SessionOptions& options_;

  std::chrono::steady_clock::time_point connected_since_ GUARDED_BY(state_.lock);
  std::chrono::milliseconds pause_ GUARDED_BY(state_.lock);  // before the next attempt
};

}  // namespace valmere::client
