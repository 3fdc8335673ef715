// One attempt after the other until everything is back. While it comes back, calls still fail and
// what the service says is held back: a change that is newer than the values of Reconnected must
// not be told of before them.
#include <algorithm>
#include <exception>
#include <iterator>
#include <optional>
#include <utility>

#include "client/message.h"
#include "client/session_core.h"

namespace valmere::client {
namespace {

// One call's worth of entries each fitted a frame; all together may not.
template <class Entry, class MakeFrame, class SendFrame>
Result<void> SendInParts(std::span<const Entry> entries, MakeFrame make, SendFrame send) {
  if (entries.empty()) return {};
  const Result<std::string> frame = make(entries);
  if (frame) return send(*frame);
  if (entries.size() == 1) return frame.error();
  const std::size_t half = entries.size() / 2;
  if (Result<void> sent = SendInParts(entries.first(half), make, send); !sent) return sent;
  return SendInParts(entries.subspan(half), make, send);
}

}  // namespace

Result<void> SessionCore::Open(Deadline deadline) {
  if (Result<void> opened = Restore(deadline, deadline, Attempt::kFirst); !opened) return opened;
  try {
    keeper_ = std::thread([this] { Keep(); });
  } catch (const std::exception& error) {
    return Error{ErrorKind::kCannotConnect, std::string("cannot connect: ") + error.what()};
  }
  return {};
}

Result<std::shared_ptr<Link>> SessionCore::Connect(Link::Role role, std::uint64_t epoch,
                                                   Deadline deadline) {
  try {
    Result<std::unique_ptr<Transport>> transport = connector_(deadline);
    if (!transport) return transport.error();
    Link::Handlers handlers;
    handlers.changes = [this, epoch](auto changes) { ChangesCame(epoch, std::move(changes)); };
    handlers.sets = [this, epoch](auto sets) { SetsCame(epoch, std::move(sets)); };
    handlers.ended = [this](const Link& link, const Error& error) { ConnectionEnded(link, error); };
    return std::make_shared<Link>(std::move(*transport), role, std::move(handlers));
  } catch (const std::exception& error) {
    return Error{ErrorKind::kCannotConnect, std::string("cannot connect: ") + error.what()};
  }
}

void SessionCore::ConnectionEnded(const Link& link, const Error& error) {
  const Hold hold(lock_);
  if (state_ != State::kConnected) return;
  if (&link != requests_.get() && &link != changes_.get()) return;
  state_ = State::kLost;
  lost_by_ = error;
  // One that held for a while was a good one; one that broke soon must not be followed by the next
  // without a pause.
  if (std::chrono::steady_clock::now() - connected_since_ >= options_.longest_pause)
    pause_ = options_.first_pause;
  CloseConnections();
  PostEvent(Lost{error});
  state_changed_.notify_all();
}

// With the lock held. Whoever waits for them is told at once.
void SessionCore::CloseConnections() {
  for (Link* link : {requests_.get(), changes_.get(), passing_.get()}) {
    if (link != nullptr) link->Close();
  }
}

void SessionCore::DropConnections(Hold& hold) {
  const auto requests = std::move(requests_);
  const auto changes = std::move(changes_);
  hold.unlock();
  if (requests) requests->End();
  if (changes) changes->End();
  hold.lock();
}

void SessionCore::Keep() {
  Hold hold(lock_);
  for (;;) {
    state_changed_.wait(hold, [this] { return state_ == State::kLost || state_ == State::kEnded; });
    DropConnections(hold);
    if (!PauseBeforeAttempt(hold)) return;
    hold.unlock();
    (void)Restore(Deadline::After(options_.connect_timeout), Deadline::After(options_.timeout),
                  Attempt::kAgain);
    hold.lock();
  }
}

// False when there shall be no attempt.
bool SessionCore::PauseBeforeAttempt(Hold& hold) {
  const auto ended = [this] { return state_ == State::kEnded; };
  if (!options_.reconnect) {
    state_changed_.wait(hold, ended);
    return false;
  }
  const auto pause = pause_;
  pause_ = std::min(2 * pause, options_.longest_pause);
  return !state_changed_.wait_for(hold, pause, ended);
}

Result<void> SessionCore::Restore(Deadline connected_by, Deadline deadline, Attempt attempt) {
  std::uint64_t epoch = 0;
  {
    const Hold hold(lock_);
    if (state_ == State::kEnded) return NotConnected();
    state_ = State::kRestoring;
    epoch = ++epoch_;
    publications_.ForgetTold();
  }
  Result<void> restored = RestoreAll(epoch, connected_by, deadline, attempt);
  if (restored) return restored;
  const Hold hold(lock_);
  held_back_.clear();
  if (state_ != State::kEnded) state_ = State::kLost;
  return restored;
}

// Subscriptions first, then publications, then all values: what changes while these are read is
// told of afterwards.
Result<void> SessionCore::RestoreAll(std::uint64_t epoch, Deadline connected_by, Deadline deadline,
                                     Attempt attempt) {
  const auto requests = Connect(Link::Role::kRequests, epoch, connected_by);
  if (!requests) return requests.error();
  if (Result<void> adopted = Adopt(requests_, *requests); !adopted) return adopted;
  if (Result<void> done = RestoreSubscriptions(epoch, deadline); !done) return done;
  std::optional<std::vector<Property>> all;
  if (attempt == Attempt::kFirst) all.emplace();
  for (;;) {
    Hold hold(lock_);
    const Publications::Untold untold = publications_.TakeUntold();
    if (all && untold.empty()) return FinishRestoring(hold, std::move(*all), attempt);
    hold.unlock();
    if (Result<void> told = TellUntold(**requests, untold, deadline); !told) return told;
    if (all) continue;
    Result<std::vector<Property>> answer = (*requests)->Ask(*GetAllFrame(), deadline);
    if (!answer) return answer.error();
    all = std::move(*answer);
  }
}

Result<void> SessionCore::RestoreSubscriptions(std::uint64_t epoch, Deadline deadline) {
  bool to_all = false;
  std::unordered_set<PropertyAddress, AddressHash> addresses;
  {
    const Hold hold(lock_);
    if (subscriptions_.empty()) return {};
    for (const auto& entry : subscriptions_) {
      to_all = to_all || entry->to_all;
      addresses.insert(entry->addresses.begin(), entry->addresses.end());
    }
    changes_to_all_ = to_all;
  }
  const auto changes =
      Connect(Link::Role::kChanges, epoch, Deadline::After(options_.connect_timeout));
  if (!changes) return changes.error();
  if (Result<void> adopted = Adopt(changes_, *changes); !adopted) return adopted;
  const auto ask = [&](const std::string& frame) -> Result<void> {
    const auto confirmed = (*changes)->Ask(frame, deadline);
    if (!confirmed) return confirmed.error();
    return {};
  };
  if (to_all) return ask(*SubscribeAllFrame());
  const std::vector<PropertyAddress> list(addresses.begin(), addresses.end());
  return SendInParts(std::span(list), SubscribeFrame, ask);
}

// The service strikes a property that has gone off the names of a subscription, so it is named again;
// and looked at, because it may be back already.
void SessionCore::Renew(std::span<const Property> properties) {
  std::vector<PropertyAddress> gone;
  for (const Property& property : properties) {
    if (property.status == kNoLongerAvailable) gone.push_back(property.address());
  }
  if (gone.empty()) return;
  const Deadline deadline = Deadline::After(options_.timeout);
  std::vector<Property> back;
  {
    const Turn::Hold turn(subscribing_, deadline);
    if (!turn.taken()) return;
    std::shared_ptr<Link> changes;
    std::shared_ptr<Link> requests;
    {
      const Hold hold(lock_);
      if (state_ != State::kConnected || changes_to_all_ || !changes_) return;
      std::erase_if(gone, [&](const PropertyAddress& address) {
        return std::ranges::none_of(
            subscriptions_, [&](const auto& entry) { return entry->addresses.contains(address); });
      });
      changes = changes_;
      requests = requests_;
    }
    const auto name = [&](const std::string& frame) -> Result<void> {
      const auto confirmed = changes->Ask(frame, deadline);
      if (!confirmed) return confirmed.error();
      return {};
    };
    const auto look = [&](const std::string& frame) -> Result<void> {
      auto values = requests->Ask(frame, deadline);
      if (!values) return values.error();
      std::ranges::copy_if(*values, std::back_inserter(back), &Property::found);
      return {};
    };
    const std::span<const PropertyAddress> addresses(gone);
    if (!SendInParts(addresses, SubscribeFrame, name)) return;
    if (!SendInParts(addresses, GetFrame, look)) return;
  }
  if (!back.empty()) TellOfChanges(back);
}

Result<void> SessionCore::TellUntold(Link& requests, const Publications::Untold& untold,
                                     Deadline deadline) {
  const auto send = [&](const std::string& frame) { return requests.Send(frame, deadline); };
  const auto gone = [](std::span<const Property> properties) {
    return PublishFrame(properties, kNoLongerAvailable);
  };
  const auto there = [](std::span<const Property> properties) {
    return PublishFrame(properties, kSuccessful);
  };
  if (Result<void> told = SendInParts(std::span(untold.withdrawn), gone, send); !told) return told;
  return SendInParts(std::span(untold.published), there, send);
}

// From here on a connection that ends is the session's loss, see ConnectionEnded.
Result<void> SessionCore::Adopt(std::shared_ptr<Link>& place, const std::shared_ptr<Link>& link) {
  const Hold hold(lock_);
  if (state_ == State::kEnded) return NotConnected();
  place = link;
  return {};
}

Result<void> SessionCore::FinishRestoring(Hold& hold, std::vector<Property> properties,
                                          Attempt attempt) {
  if (state_ == State::kEnded) return NotConnected();
  for (const Link* link : {requests_.get(), changes_.get()}) {
    if (link == nullptr) continue;
    if (const auto ended = link->ended_by()) return *ended;
  }
  state_ = State::kConnected;
  connected_since_ = std::chrono::steady_clock::now();
  if (attempt == Attempt::kAgain) PostEvent(Reconnected{std::move(properties)});
  for (Dispatcher::Task& task : held_back_) {
    dispatcher_.Post(std::move(task));
  }
  held_back_.clear();
  const auto unused = subscriptions_.empty() ? std::move(changes_) : nullptr;
  hold.unlock();
  if (unused) unused->End();
  return {};
}

}  // namespace valmere::client
