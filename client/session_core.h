// What a session is made of. Internal to the library.
#pragma once

#include <string>
#include <thread>
#include <vector>

#include "client/connector.h"
#include "client/deadline.h"
#include "client/dispatcher.h"
#include "client/mutex.h"
#include "client/property.h"
#include "client/publisher.h"
#include "client/result.h"
#include "client/session.h"
#include "client/session_keeper.h"
#include "client/session_links.h"
#include "client/session_state.h"
#include "client/subscriptions.h"

namespace valmere::client {

// Purpose: puts the parts of a session together, and starts and ends their threads.
// Owner: its Session, and for the time of a call a Subscription that ends.
// Threads: any. Its own are the readers of the links, which note what comes, the dispatcher, which
// runs the callbacks, and the keeper, which connects again. None of them waits for a callback.
// Errors: values; the constructor throws std::system_error when no thread can be started.
class SessionCore {
 public:
  SessionCore(Connector connector, SessionOptions options);
  ~SessionCore() { Stop(); }
  SessionCore(const SessionCore&) = delete;
  SessionCore& operator=(const SessionCore&) = delete;

  Deadline DeadlineOf(Session::OptionalDeadline deadline) const {
    return deadline.value_or(Deadline::After(options_.timeout));
  }

  // Connects for the first time; before all other calls.
  Result<void> Open(Deadline deadline);
  Result<std::vector<Property>> Ask(const Result<std::string>& frame, Deadline deadline);
  Result<void> Send(const Result<std::string>& frame, Deadline deadline);
  Subscriptions& subscriptions() { return subscriptions_; }
  Publisher& publisher() { return publisher_; }

  Result<void> Disconnect(Deadline deadline);
  // Ends everything and waits for it; on the dispatcher's thread it waits for nothing.
  void Stop();

 private:
  const SessionOptions options_;
  SessionState state_;
  Dispatcher dispatcher_;
  SessionLinks links_;
  Subscriptions subscriptions_;
  Publisher publisher_;
  SessionKeeper keeper_;

  Mutex joining_;
  std::thread keeper_thread_ GUARDED_BY(joining_);
};

}  // namespace valmere::client
