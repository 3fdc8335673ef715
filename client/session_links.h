// The connections of a session. Internal to the library.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <span>

#include "client/connector.h"
#include "client/deadline.h"
#include "client/dispatcher.h"
#include "client/link.h"
#include "client/property.h"
#include "client/result.h"
#include "client/session_state.h"

namespace valmere::client {

// Purpose: makes the links of a session, and has the dispatcher hand on what comes on them. What
// comes while the session is being restored is held back: a change that is newer than the values of
// Reconnected must not be reported before them.
// Owner: the SessionCore.
// Threads: any.
// Errors: values.
class SessionLinks {
 public:
  struct Receivers {
    // Called on the dispatcher's thread.
    std::function<void(std::span<const Property>)> changes;
    std::function<void(const SetRequest&)> set;
    // Called on the link's own thread; must not block.
    std::function<void(const Link&, const Error&)> ended;
  };

  SessionLinks(SessionState& state, Dispatcher& dispatcher, Connector connector,
               Receivers receivers);
  SessionLinks(const SessionLinks&) = delete;
  SessionLinks& operator=(const SessionLinks&) = delete;

  // Makes a link. What comes on it is dropped once `epoch` is over.
  Result<std::shared_ptr<Link>> Connect(Link::Role role, std::uint64_t epoch, Deadline deadline);
  // Makes it the session's link of that role. kConnectionLost when the session has ended.
  Result<void> Install(Link::Role role, const std::shared_ptr<Link>& link);
  // Takes the links from the session and ends them.
  void End();

 private:
  void Deliver(std::uint64_t epoch, Dispatcher::Task task);

  SessionState& state_;
  Dispatcher& dispatcher_;
  const Connector connector_;
  const Receivers receivers_;
};

}  // namespace valmere::client
