// A link's reader only notes what comes: callbacks may take their time, and answers to gets must
// not wait for them.
#include "client/session_links.h"

#include <exception>
#include <string>
#include <utility>
#include <vector>

namespace valmere::client {

SessionLinks::SessionLinks(SessionState& state, Dispatcher& dispatcher, Connector connector,
                           Receivers receivers)
    : state_(state),
      dispatcher_(dispatcher),
      connector_(std::move(connector)),
      receivers_(std::move(receivers)) {}

Result<std::shared_ptr<Link>> SessionLinks::Connect(Link::Role role, std::uint64_t epoch,
                                                    Deadline deadline) {
  try {
    Result<std::unique_ptr<Transport>> transport = connector_(deadline);
    if (!transport) return transport.error();
    Link::Handlers handlers;
    handlers.changes = [this, epoch](std::vector<Property> changes) {
      Deliver(epoch, [this, changes = std::move(changes)] { receivers_.changes(changes); });
    };
    handlers.sets = [this, epoch](std::vector<SetRequest> sets) {
      Deliver(epoch, [this, sets = std::move(sets)] {
        for (const SetRequest& set : sets) {
          receivers_.set(set);
        }
      });
    };
    handlers.ended = receivers_.ended;
    return std::make_shared<Link>(std::move(*transport), role, std::move(handlers));
  } catch (const std::exception& error) {
    return Error{ErrorKind::kCannotConnect, std::string("cannot connect: ") + error.what()};
  }
}

Result<void> SessionLinks::Install(Link::Role role, const std::shared_ptr<Link>& link) {
  const MutexLock hold(state_.lock);
  if (state_.phase == SessionPhase::kEnded) return state_.NotConnected();
  (role == Link::Role::kRequests ? state_.requests : state_.changes) = link;
  return {};
}

void SessionLinks::End() {
  std::shared_ptr<Link> requests;
  std::shared_ptr<Link> changes;
  {
    const MutexLock hold(state_.lock);
    requests = std::move(state_.requests);
    changes = std::move(state_.changes);
  }
  if (requests) requests->End();
  if (changes) changes->End();
}

void SessionLinks::Deliver(std::uint64_t epoch, Dispatcher::Task task) {
  const MutexLock hold(state_.lock);
  if (epoch != state_.epoch) return;
  if (state_.phase == SessionPhase::kConnected)
    dispatcher_.Post(std::move(task));
  else if (state_.phase == SessionPhase::kRestoring)
    dispatcher_.HoldBack(std::move(task));
}

}  // namespace valmere::client
