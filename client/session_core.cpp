// The parts do the work; here they are joined, and taken apart in an order in which none waits for
// another that waits for it.
#include "client/session_core.h"

#include <exception>
#include <memory>
#include <span>
#include <utility>

#include "client/message.h"

namespace valmere::client {

SessionCore::SessionCore(Connector connector, SessionOptions options)
    : options_(std::move(options)),
      links_(
          state_, dispatcher_, std::move(connector),
          {.changes =
               [this](std::span<const Property> changed) { subscriptions_.HandleChanges(changed); },
           .set = [this](const SetRequest& set) { publisher_.HandleSet(set); },
           .ended = [this](const Link& link,
                           const Error& error) { keeper_.NoteEnd(link, error); }}),
      subscriptions_(state_, links_, dispatcher_, options_),
      publisher_(state_),
      keeper_({state_, links_, subscriptions_, dispatcher_, options_}) {}

Result<void> SessionCore::Open(Deadline deadline) {
  if (Result<void> opened = keeper_.Open(deadline); !opened) return opened;
  try {
    const MutexLock hold(joining_);
    keeper_thread_ = std::thread([this] { keeper_.Run(); });
  } catch (const std::exception& error) {
    return Error{ErrorKind::kCannotConnect, std::string("cannot connect: ") + error.what()};
  }
  return {};
}

Result<std::vector<Property>> SessionCore::Ask(const Result<std::string>& frame,
                                               Deadline deadline) {
  if (!frame) return frame.error();
  const auto requests = state_.ConnectedRequests();
  if (!requests) return requests.error();
  return (*requests)->Ask(*frame, deadline);
}

Result<void> SessionCore::Send(const Result<std::string>& frame, Deadline deadline) {
  if (!frame) return frame.error();
  const auto requests = state_.ConnectedRequests();
  if (!requests) return requests.error();
  return (*requests)->Send(*frame, deadline);
}

Result<void> SessionCore::Disconnect(Deadline deadline) {
  std::shared_ptr<Link> requests;
  Result<void> done;
  {
    const MutexLock hold(state_.lock);
    if (state_.phase == SessionPhase::kConnected)
      requests = state_.requests;
    else
      done = state_.NotConnected();
    if (state_.phase != SessionPhase::kEnded)
      state_.lost_by = {ErrorKind::kConnectionLost, "connection lost: the session was ended"};
    state_.phase = SessionPhase::kEnded;
  }
  if (requests) {
    const auto frame = DisconnectFrame();
    done = frame ? requests->Send(*frame, deadline) : frame.error();
  }
  Stop();
  return done;
}

void SessionCore::Stop() {
  {
    const MutexLock hold(state_.lock);
    state_.phase = SessionPhase::kEnded;
    state_.CloseLinks();
  }
  state_.phase_changed.notify_all();
  dispatcher_.Stop();
  if (dispatcher_.OnOwnThread()) return;
  const MutexLock hold(joining_);
  if (keeper_thread_.joinable()) keeper_thread_.join();
  dispatcher_.Join();
  links_.End();
}

}  // namespace valmere::client
