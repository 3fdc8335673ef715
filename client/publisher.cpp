// Publications go out in the order in which they are noted: each is noted when no other frame can
// come before its own any more, see Link::Send. What is noted while the connection is lost goes out
// when it is back.
#include "client/publisher.h"

#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "client/message.h"
#include "client/send_in_parts.h"

namespace valmere::client {
namespace {

Error NotPublished(const PropertyAddress& address) {
  return {ErrorKind::kInvalid, "property " + address.group_guid + ":" + address.guid + " of " +
                                   address.component + " is not published"};
}

}  // namespace

// `note` keeps what the frame says. It is called with the session's lock held, right before the
// frame goes out, or else while nothing goes out. Callbacks that it removes are destroyed after the
// lock is released: what they hold may call the session.
Result<void> Publisher::SendAndNote(const Result<std::string>& frame, Deadline deadline,
                                    const std::function<Result<void>(bool sent)>& note) {
  if (!frame) return frame.error();
  std::vector<std::shared_ptr<const SetCallback>> released;
  for (;;) {
    const auto found = state_.ConnectedRequests();
    const std::shared_ptr<Link> requests = found ? *found : nullptr;
    bool connected_meanwhile = false;
    const auto note_it = [&]() -> Result<void> {
      const MutexLock hold(state_.lock);
      const bool sent = state_.phase == SessionPhase::kConnected;
      connected_meanwhile = sent && state_.requests != requests;
      if (connected_meanwhile) return state_.NotConnected();
      if (Result<void> noted = note(sent); !noted) return noted;
      released = state_.publications.TakeReleased();
      if (!sent) return state_.NotConnected();
      return {};
    };
    Result<void> done = requests ? requests->Send(*frame, deadline, note_it) : note_it();
    if (!connected_meanwhile) return done;
  }
}

Result<void> Publisher::Publish(std::span<const Property> properties, Session::SetCallback callback,
                                Deadline deadline) {
  const auto shared = std::make_shared<const SetCallback>(std::move(callback));
  const auto note = [&](bool sent) REQUIRES(state_.lock) -> Result<void> {
    state_.publications.Put(properties, shared, sent);
    return {};
  };
  return SendAndNote(PublishFrame(properties, kSuccessful), deadline, note);
}

Result<void> Publisher::Update(std::span<const SetRequest> values, Deadline deadline) {
  std::vector<Property> properties;
  {
    const MutexLock hold(state_.lock);
    for (const SetRequest& value : values) {
      auto property = state_.publications.Find(value.address);
      if (!property) return NotPublished(value.address);
      property->value = value.value;
      properties.push_back(std::move(*property));
    }
  }
  const auto note = [&](bool sent) REQUIRES(state_.lock) -> Result<void> {
    for (const SetRequest& value : values)
      if (!state_.publications.Has(value.address)) return NotPublished(value.address);
    for (const SetRequest& value : values)
      state_.publications.Update(value, sent);
    return {};
  };
  return SendAndNote(PublishFrame(properties, kSuccessful), deadline, note);
}

Result<void> Publisher::Withdraw(std::span<const PropertyAddress> addresses, Deadline deadline) {
  std::vector<Property> properties;
  {
    const MutexLock hold(state_.lock);
    for (const PropertyAddress& address : addresses) {
      auto property = state_.publications.Find(address);
      if (!property) return NotPublished(address);
      properties.push_back(std::move(*property));
    }
  }
  const auto note = [&](bool sent) REQUIRES(state_.lock) -> Result<void> {
    for (const PropertyAddress& address : addresses)
      state_.publications.Remove(address, sent);
    return {};
  };
  return SendAndNote(PublishFrame(properties, kNoLongerAvailable), deadline, note);
}

Result<void> Publisher::SendUnsent(Link& requests, const Publications::Unsent& unsent,
                                   Deadline deadline) {
  const auto send = [&](const std::string& frame) { return requests.Send(frame, deadline); };
  const auto gone = [](std::span<const Property> properties) {
    return PublishFrame(properties, kNoLongerAvailable);
  };
  const auto there = [](std::span<const Property> properties) {
    return PublishFrame(properties, kSuccessful);
  };
  if (Result<void> sent = SendInParts(std::span(unsent.withdrawn), gone, send); !sent) return sent;
  return SendInParts(std::span(unsent.published), there, send);
}

void Publisher::HandleSet(const SetRequest& set) {
  std::shared_ptr<const SetCallback> callback;
  {
    const MutexLock hold(state_.lock);
    if (state_.phase != SessionPhase::kEnded)
      callback = state_.publications.CallbackOf(set.address);
  }
  if (callback && *callback) (*callback)(set);
}

}  // namespace valmere::client
