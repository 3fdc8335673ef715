// The few steps that every part of a session needs.
#include "client/session_state.h"

namespace valmere::client {

Result<std::shared_ptr<Link>> SessionState::ConnectedRequests() {
  const MutexLock hold(lock);
  if (phase != SessionPhase::kConnected) return NotConnected();
  return requests;
}

Error SessionState::NotConnected() const {
  return {ErrorKind::kConnectionLost, lost_by.text};
}

void SessionState::CloseLinks() {
  for (Link* link : {requests.get(), changes.get(), other_changes.get()})
    if (link != nullptr) link->Close();
}

}  // namespace valmere::client
