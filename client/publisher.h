// What a session sends of its publications. Internal to the library.
#pragma once

#include <functional>
#include <span>
#include <string>

#include "client/deadline.h"
#include "client/link.h"
#include "client/property.h"
#include "client/publications.h"
#include "client/result.h"
#include "client/session.h"
#include "client/session_state.h"

namespace valmere::client {

// Purpose: publishes, updates and withdraws properties, and calls the callbacks of sets. What comes
// while the connection is lost is noted, and sent when it is back.
// Owner: the SessionCore.
// Threads: any; HandleSet on the dispatcher's. Callbacks run while no lock is held.
// Errors: values.
class Publisher {
 public:
  explicit Publisher(SessionState& state) : state_(state) {}
  Publisher(const Publisher&) = delete;
  Publisher& operator=(const Publisher&) = delete;

  Result<void> Publish(std::span<const Property> properties, Session::SetCallback callback,
                       Deadline deadline);
  // Both give kInvalid when one of the properties is not published.
  Result<void> Update(std::span<const SetRequest> values, Deadline deadline);
  Result<void> Withdraw(std::span<const PropertyAddress> addresses, Deadline deadline);

  // Sends what was noted while the connection was lost.
  static Result<void> SendUnsent(Link& requests, const Publications::Unsent& unsent,
                                 Deadline deadline);
  // Calls the callback of the property.
  void HandleSet(const SetRequest& set);

 private:
  Result<void> SendAndNote(const Result<std::string>& frame, Deadline deadline,
                           const std::function<Result<void>(bool sent)>& note);

  SessionState& state_;
};

}  // namespace valmere::client
