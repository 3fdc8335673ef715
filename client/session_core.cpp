// Nothing that takes time happens under the lock: it is held to look and to note. The order between
// publications is that of the turns in which they go out, see Link::Send; what is noted in a turn
// while the connection is lost goes out when it is back.
#include "client/session_core.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "client/message.h"

namespace valmere::client {
namespace {

Error NotPublished(const PropertyAddress& address) {
  return {ErrorKind::kInvalid, "property " + address.group_guid + ":" + address.guid + " of " +
                                   address.component + " is not published"};
}

}  // namespace

SessionCore::SessionCore(Connector connector, SessionOptions options)
    : connector_(std::move(connector)),
      options_(std::move(options)),
      pause_(options_.first_pause) {}

Error SessionCore::NotConnected() const {
  return {ErrorKind::kConnectionLost, lost_by_.text};
}

Result<std::shared_ptr<Link>> SessionCore::Requests() {
  const Hold hold(lock_);
  if (state_ != State::kConnected) return NotConnected();
  return requests_;
}

Result<std::vector<Property>> SessionCore::Ask(const Result<std::string>& frame,
                                               Deadline deadline) {
  if (!frame) return frame.error();
  const auto requests = Requests();
  if (!requests) return requests.error();
  return (*requests)->Ask(*frame, deadline);
}

Result<void> SessionCore::Send(const Result<std::string>& frame, Deadline deadline) {
  if (!frame) return frame.error();
  const auto requests = Requests();
  if (!requests) return requests.error();
  return (*requests)->Send(*frame, deadline);
}

// ---- Subscriptions

// The entry is there before the service hears of it: what it tells of at once must find it.
Result<void> SessionCore::Subscribe(const std::shared_ptr<SubscriptionEntry>& entry,
                                    Deadline deadline) {
  const std::vector<PropertyAddress> addresses(entry->addresses.begin(), entry->addresses.end());
  if (!entry->to_all && addresses.empty())
    return Error{ErrorKind::kInvalid, "a subscription has to name a property"};
  if (!entry->callback) return Error{ErrorKind::kInvalid, "a subscription needs a callback"};
  const auto frame = entry->to_all ? SubscribeAllFrame() : SubscribeFrame(addresses);
  if (!frame) return frame.error();
  Result<void> done = SubscribeInTurn(entry, *frame, deadline);
  // Not in the turn: this waits for the callback, which may be waiting for a turn.
  if (!done) Unsubscribe(*entry);
  return done;
}

Result<void> SessionCore::SubscribeInTurn(const std::shared_ptr<SubscriptionEntry>& entry,
                                          const std::string& frame, Deadline deadline) {
  const Turn::Hold turn(subscribing_, deadline);
  if (!turn.taken()) return Error{ErrorKind::kTimeout, "time-out waiting for others to subscribe"};
  {
    const Hold hold(lock_);
    if (state_ != State::kConnected) return NotConnected();
    subscriptions_.push_back(entry);
  }
  return Announce(*entry, frame, deadline);
}

// A subscription to all covers every other, but on one connection the service would narrow it to
// those that are named; so it gets a connection of its own, in place of the one before.
Result<void> SessionCore::Announce(const SubscriptionEntry& entry, const std::string& frame,
                                   Deadline deadline) {
  std::shared_ptr<Link> changes;
  bool to_all = false;
  {
    const Hold hold(lock_);
    if (state_ != State::kConnected) return NotConnected();
    changes = changes_;
    to_all = changes_to_all_;
  }
  if (!changes || (entry.to_all && !to_all)) return OpenChanges(entry.to_all, frame, deadline);
  if (to_all) return {};
  const auto confirmed = changes->Ask(frame, deadline);
  if (!confirmed) return confirmed.error();
  return {};
}

Result<void> SessionCore::OpenChanges(bool to_all, const std::string& frame, Deadline deadline) {
  std::uint64_t epoch = 0;
  {
    const Hold hold(lock_);
    epoch = epoch_;
  }
  const Deadline connected_by = deadline.Or(Deadline::After(options_.connect_timeout));
  const auto link = Connect(Link::Role::kChanges, epoch, connected_by);
  if (!link) return link.error();
  {
    const Hold hold(lock_);
    if (state_ != State::kConnected || epoch != epoch_) return NotConnected();
    passing_ = *link;
  }
  const auto confirmed = (*link)->Ask(frame, deadline);
  std::shared_ptr<Link> former;
  {
    const Hold hold(lock_);
    passing_ = nullptr;
    if (!confirmed) return confirmed.error();
    if (state_ != State::kConnected || epoch != epoch_) return NotConnected();
    if (const auto ended = (*link)->ended_by()) return *ended;
    former = std::exchange(changes_, *link);
    passing_ = former;
    changes_to_all_ = to_all;
  }
  if (former) Retire(former, deadline);
  return {};
}

// What the service has told the connection so far is waited for, so that nothing is missed. What
// both connections were told of is delivered twice.
void SessionCore::Retire(const std::shared_ptr<Link>& link, Deadline deadline) {
  if (const auto frame = ConfirmationFrame()) (void)link->Ask(*frame, deadline);
  {
    const Hold hold(lock_);
    passing_ = nullptr;
  }
  link->End();
}

void SessionCore::Unsubscribe(SubscriptionEntry& entry) {
  std::shared_ptr<Link> unused;
  {
    const Hold hold(lock_);
    entry.ended = true;
    std::erase_if(subscriptions_, [&](const auto& other) { return other.get() == &entry; });
    if (subscriptions_.empty() && state_ == State::kConnected) unused = std::move(changes_);
  }
  if (unused) unused->End();
  if (dispatcher_.OnOwnThread()) return;
  Hold hold(lock_);
  callback_ended_.wait(hold, [&] { return called_back_ != &entry; });
}

// ---- Publications

// `note` keeps what the frame tells. It runs in the frame's turn, or else while nothing goes out.
// Callbacks that it lets go of are destroyed when nothing is held any more: what they hold may well
// call the session.
Result<void> SessionCore::Tell(const Result<std::string>& frame, Deadline deadline,
                               const std::function<Result<void>(bool told)>& note) {
  if (!frame) return frame.error();
  std::vector<std::shared_ptr<const SetCallback>> released;
  for (;;) {
    const auto found = Requests();
    const std::shared_ptr<Link> requests = found ? *found : nullptr;
    bool connected_meanwhile = false;
    const auto note_it = [&]() -> Result<void> {
      const Hold hold(lock_);
      const bool told = state_ == State::kConnected;
      connected_meanwhile = told && requests_ != requests;
      if (connected_meanwhile) return NotConnected();
      if (Result<void> noted = note(told); !noted) return noted;
      released = publications_.TakeReleased();
      if (!told) return NotConnected();
      return {};
    };
    Result<void> done = requests ? requests->Send(*frame, deadline, note_it) : note_it();
    if (!connected_meanwhile) return done;
  }
}

Result<void> SessionCore::Publish(std::span<const Property> properties, SetCallback callback,
                                  Deadline deadline) {
  const auto shared = std::make_shared<const SetCallback>(std::move(callback));
  return Tell(PublishFrame(properties, kSuccessful), deadline, [&](bool told) -> Result<void> {
    publications_.Put(properties, shared, told);
    return {};
  });
}

Result<void> SessionCore::Update(std::span<const SetRequest> values, Deadline deadline) {
  std::vector<Property> properties;
  {
    const Hold hold(lock_);
    for (const SetRequest& value : values) {
      auto property = publications_.Find(value.address);
      if (!property) return NotPublished(value.address);
      property->value = value.value;
      properties.push_back(std::move(*property));
    }
  }
  return Tell(PublishFrame(properties, kSuccessful), deadline, [&](bool told) -> Result<void> {
    for (const SetRequest& value : values) {
      if (!publications_.Has(value.address)) return NotPublished(value.address);
    }
    for (const SetRequest& value : values) {
      publications_.Update(value, told);
    }
    return {};
  });
}

Result<void> SessionCore::Withdraw(std::span<const PropertyAddress> addresses, Deadline deadline) {
  std::vector<Property> properties;
  {
    const Hold hold(lock_);
    for (const PropertyAddress& address : addresses) {
      auto property = publications_.Find(address);
      if (!property) return NotPublished(address);
      properties.push_back(std::move(*property));
    }
  }
  return Tell(PublishFrame(properties, kNoLongerAvailable), deadline,
              [&](bool told) -> Result<void> {
                for (const PropertyAddress& address : addresses) {
                  publications_.Remove(address, told);
                }
                return {};
              });
}

// ---- What comes

void SessionCore::ChangesCame(std::uint64_t epoch, std::vector<Property> properties) {
  Deliver(epoch, [this, properties = std::move(properties)] { TellOfChanges(properties); });
}

void SessionCore::SetsCame(std::uint64_t epoch, std::vector<SetRequest> sets) {
  Deliver(epoch, [this, sets = std::move(sets)] {
    for (const SetRequest& set : sets) {
      TellOfSet(set);
    }
  });
}

void SessionCore::Deliver(std::uint64_t epoch, Dispatcher::Task task) {
  const Hold hold(lock_);
  if (epoch != epoch_) return;
  if (state_ == State::kConnected)
    dispatcher_.Post(std::move(task));
  else if (state_ == State::kRestoring)
    held_back_.push_back(std::move(task));
}

void SessionCore::TellOfChanges(std::span<const Property> properties) {
  std::vector<std::shared_ptr<SubscriptionEntry>> subscriptions;
  {
    const Hold hold(lock_);
    subscriptions = subscriptions_;
  }
  for (const auto& entry : subscriptions) {
    std::vector<Property> wanted;
    if (!entry->to_all) {
      std::ranges::copy_if(properties, std::back_inserter(wanted), [&](const Property& property) {
        return entry->addresses.contains(property.address());
      });
      if (wanted.empty()) continue;
    }
    if (!BeginCallback(*entry)) continue;
    entry->callback(entry->to_all ? properties : wanted);
    EndCallback();
  }
  Renew(properties);
}

bool SessionCore::BeginCallback(const SubscriptionEntry& entry) {
  const Hold hold(lock_);
  if (entry.ended || state_ == State::kEnded) return false;
  called_back_ = &entry;
  return true;
}

void SessionCore::EndCallback() {
  {
    const Hold hold(lock_);
    called_back_ = nullptr;
  }
  callback_ended_.notify_all();
}

void SessionCore::TellOfSet(const SetRequest& set) {
  std::shared_ptr<const SetCallback> callback;
  {
    const Hold hold(lock_);
    if (state_ != State::kEnded) callback = publications_.CallbackOf(set.address);
  }
  if (callback && *callback) (*callback)(set);
}

void SessionCore::PostEvent(SessionEvent event) {
  if (!options_.on_event) return;
  dispatcher_.Post([this, event = std::move(event)] { options_.on_event(event); });
}

// ---- The end

Result<void> SessionCore::Disconnect(Deadline deadline) {
  std::shared_ptr<Link> requests;
  Result<void> done;
  {
    const Hold hold(lock_);
    if (state_ == State::kConnected)
      requests = requests_;
    else
      done = NotConnected();
    if (state_ != State::kEnded)
      lost_by_ = {ErrorKind::kConnectionLost, "connection lost: the session was ended"};
    state_ = State::kEnded;
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
    const Hold hold(lock_);
    state_ = State::kEnded;
    CloseConnections();
  }
  state_changed_.notify_all();
  dispatcher_.Stop();
  if (dispatcher_.OnOwnThread()) return;
  const std::lock_guard hold(joining_);
  if (keeper_.joinable()) keeper_.join();
  dispatcher_.Join();
  Hold links(lock_);
  DropConnections(links);
}

}  // namespace valmere::client
