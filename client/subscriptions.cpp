// The service knows no end of a subscription, so what has ended is dropped here. The link goes with
// the last subscription.
#include "client/subscriptions.h"

#include <algorithm>
#include <iterator>
#include <unordered_set>
#include <utility>

#include "client/address_hash.h"
#include "client/message.h"
#include "client/send_in_parts.h"

namespace valmere::client {
namespace {

Result<void> AskForConfirmation(Link& link, const std::string& frame, Deadline deadline) {
  const auto confirmed = link.Ask(frame, deadline);
  if (!confirmed) return confirmed.error();
  return {};
}

}  // namespace

Subscriptions::Subscriptions(SessionState& state, SessionLinks& links, Dispatcher& dispatcher,
                             const SessionOptions& options)
    : state_(state), links_(links), dispatcher_(dispatcher), options_(options) {}

Result<void> Subscriptions::Subscribe(const std::shared_ptr<SubscriptionEntry>& entry,
                                      Deadline deadline) {
  const std::vector<PropertyAddress> addresses(entry->addresses.begin(), entry->addresses.end());
  if (!entry->to_all && addresses.empty())
    return Error{ErrorKind::kInvalid, "a subscription has to name a property"};
  if (!entry->callback) return Error{ErrorKind::kInvalid, "a subscription needs a callback"};
  const auto frame = entry->to_all ? SubscribeAllFrame() : SubscribeFrame(addresses);
  if (!frame) return frame.error();
  Result<void> done = AddAndRequest(entry, *frame, deadline);
  // After `subscribing_` is released: this waits for the callback, which may wait for it.
  if (!done) Unsubscribe(*entry);
  return done;
}

// The entry is added before the request is sent: a change that comes at once must find it.
Result<void> Subscriptions::AddAndRequest(const std::shared_ptr<SubscriptionEntry>& entry,
                                          const std::string& frame, Deadline deadline) {
  const TimedLock subscribing(subscribing_, deadline);
  if (!subscribing.held())
    return Error{ErrorKind::kTimeout, "time-out waiting for others to subscribe"};
  {
    const MutexLock hold(state_.lock);
    if (state_.phase != SessionPhase::kConnected) return state_.NotConnected();
    state_.subscriptions.push_back(entry);
  }
  return Request(*entry, frame, deadline);
}

// A subscription to all covers every other, but on one connection the service would narrow it to
// those that are named; so it gets a connection of its own, in place of the one before.
Result<void> Subscriptions::Request(const SubscriptionEntry& entry, const std::string& frame,
                                    Deadline deadline) {
  std::shared_ptr<Link> changes;
  bool to_all = false;
  {
    const MutexLock hold(state_.lock);
    if (state_.phase != SessionPhase::kConnected) return state_.NotConnected();
    changes = state_.changes;
    to_all = state_.changes_to_all;
  }
  if (!changes || (entry.to_all && !to_all)) return ReplaceLink(entry.to_all, frame, deadline);
  if (to_all) return {};
  return AskForConfirmation(*changes, frame, deadline);
}

Result<void> Subscriptions::ReplaceLink(bool to_all, const std::string& frame, Deadline deadline) {
  std::uint64_t epoch = 0;
  {
    const MutexLock hold(state_.lock);
    epoch = state_.epoch;
  }
  const Deadline connected_by = deadline.Or(Deadline::After(options_.connect_timeout));
  const auto link = links_.Connect(Link::Role::kChanges, epoch, connected_by);
  if (!link) return link.error();
  {
    const MutexLock hold(state_.lock);
    if (state_.phase != SessionPhase::kConnected || epoch != state_.epoch)
      return state_.NotConnected();
    state_.other_changes = *link;
  }
  const Result<void> confirmed = AskForConfirmation(**link, frame, deadline);
  if (!confirmed) {
    const MutexLock hold(state_.lock);
    state_.other_changes = nullptr;
    return confirmed.error();
  }
  const auto former = ExchangeLink(*link, to_all, epoch);
  if (!former) return former.error();
  if (*former) Retire(*former, deadline);
  return {};
}

// The former link, if there was one.
Result<std::shared_ptr<Link>> Subscriptions::ExchangeLink(const std::shared_ptr<Link>& link,
                                                          bool to_all, std::uint64_t epoch) {
  const MutexLock hold(state_.lock);
  state_.other_changes = nullptr;
  if (state_.phase != SessionPhase::kConnected || epoch != state_.epoch)
    return state_.NotConnected();
  if (const auto ended = link->ended_by()) return *ended;
  state_.other_changes = std::exchange(state_.changes, link);
  state_.changes_to_all = to_all;
  return state_.other_changes;
}

// What the service has sent on the link so far is waited for, so that nothing is missed. What it
// sent on both links is delivered twice.
void Subscriptions::Retire(const std::shared_ptr<Link>& link, Deadline deadline) {
  if (const auto frame = ConfirmationFrame()) (void)link->Ask(*frame, deadline);
  {
    const MutexLock hold(state_.lock);
    state_.other_changes = nullptr;
  }
  link->End();
}

void Subscriptions::Unsubscribe(const SubscriptionEntry& entry) {
  std::shared_ptr<Link> unused;
  {
    const MutexLock hold(state_.lock);
    std::erase_if(state_.subscriptions, [&](const auto& other) { return other.get() == &entry; });
    if (state_.subscriptions.empty() && state_.phase == SessionPhase::kConnected)
      unused = std::move(state_.changes);
  }
  if (unused) unused->End();
  if (dispatcher_.OnOwnThread()) return;
  MutexLock hold(state_.lock);
  hold.Wait(callback_ended_, [&]() REQUIRES(state_.lock) { return called_back_ != &entry; });
}

Result<void> Subscriptions::Restore(std::uint64_t epoch, Deadline deadline) {
  bool to_all = false;
  std::unordered_set<PropertyAddress, AddressHash> addresses;
  {
    const MutexLock hold(state_.lock);
    if (state_.subscriptions.empty()) return {};
    for (const auto& entry : state_.subscriptions) {
      to_all = to_all || entry->to_all;
      addresses.insert(entry->addresses.begin(), entry->addresses.end());
    }
    state_.changes_to_all = to_all;
  }
  const Deadline connected_by = Deadline::After(options_.connect_timeout);
  const auto link = links_.Connect(Link::Role::kChanges, epoch, connected_by);
  if (!link) return link.error();
  if (Result<void> installed = links_.Install(Link::Role::kChanges, *link); !installed)
    return installed;
  const auto ask = [&](const std::string& frame) {
    return AskForConfirmation(**link, frame, deadline);
  };
  if (to_all) return ask(*SubscribeAllFrame());
  const std::vector<PropertyAddress> list(addresses.begin(), addresses.end());
  return SendInParts(std::span(list), SubscribeFrame, ask);
}

void Subscriptions::HandleChanges(std::span<const Property> properties) {
  std::vector<std::shared_ptr<SubscriptionEntry>> entries;
  {
    const MutexLock hold(state_.lock);
    entries = state_.subscriptions;
  }
  for (const auto& entry : entries) {
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
  SubscribeAgain(properties);
}

// An entry that is no longer in the list has ended while the others were called.
bool Subscriptions::BeginCallback(const SubscriptionEntry& entry) {
  const MutexLock hold(state_.lock);
  if (state_.phase == SessionPhase::kEnded) return false;
  const auto is_entry = [&](const auto& other) { return other.get() == &entry; };
  if (std::ranges::none_of(state_.subscriptions, is_entry)) return false;
  called_back_ = &entry;
  return true;
}

void Subscriptions::EndCallback() {
  {
    const MutexLock hold(state_.lock);
    called_back_ = nullptr;
  }
  callback_ended_.notify_all();
}

// The service strikes a property that has gone off the names of a subscription, so it is named
// again; and read, because it may be back already.
void Subscriptions::SubscribeAgain(std::span<const Property> properties) {
  std::vector<PropertyAddress> gone;
  for (const Property& property : properties)
    if (property.status == kNoLongerAvailable) gone.push_back(property.address());
  if (gone.empty()) return;
  const Deadline deadline = Deadline::After(options_.timeout);
  std::vector<Property> back;
  {
    const TimedLock subscribing(subscribing_, deadline);
    if (!subscribing.held()) return;
    back = RequestAgain(std::move(gone), deadline);
  }
  if (!back.empty()) HandleChanges(back);
}

// Gives those that are back.
std::vector<Property> Subscriptions::RequestAgain(std::vector<PropertyAddress> gone,
                                                  Deadline deadline) {
  std::shared_ptr<Link> changes;
  std::shared_ptr<Link> requests;
  {
    const MutexLock hold(state_.lock);
    if (state_.phase != SessionPhase::kConnected || state_.changes_to_all || !state_.changes)
      return {};
    std::erase_if(gone, [&](const PropertyAddress& address)
                            REQUIRES(state_.lock) { return !IsWanted(address); });
    changes = state_.changes;
    requests = state_.requests;
  }
  const auto subscribe = [&](const std::string& frame) {
    return AskForConfirmation(*changes, frame, deadline);
  };
  std::vector<Property> back;
  const auto read = [&](const std::string& frame) -> Result<void> {
    auto values = requests->Ask(frame, deadline);
    if (!values) return values.error();
    std::ranges::copy_if(*values, std::back_inserter(back), &Property::found);
    return {};
  };
  const std::span<const PropertyAddress> addresses(gone);
  if (!SendInParts(addresses, SubscribeFrame, subscribe)) return {};
  if (!SendInParts(addresses, GetFrame, read)) return {};
  return back;
}

bool Subscriptions::IsWanted(const PropertyAddress& address) const {
  return std::ranges::any_of(state_.subscriptions,
                             [&](const auto& entry) { return entry->addresses.contains(address); });
}

}  // namespace valmere::client
