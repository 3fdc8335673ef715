// While everything comes back, calls still fail and what the service says is held back; see
// SessionLinks.
#include "client/session_keeper.h"

#include <algorithm>
#include <memory>
#include <utility>

#include "client/message.h"

namespace valmere::client {

SessionKeeper::SessionKeeper(const Parts& parts)
    : state_(parts.state),
      links_(parts.links),
      subscriptions_(parts.subscriptions),
      dispatcher_(parts.dispatcher),
      options_(parts.options),
      pause_(options_.first_pause) {}

Result<void> SessionKeeper::Open(Deadline deadline) {
  return Restore(deadline, deadline, Attempt::kFirst);
}

void SessionKeeper::Run() {
  for (;;) {
    WaitForLossOrEnd();
    links_.End();
    if (!PauseBeforeAttempt()) return;
    (void)Restore(Deadline::After(options_.connect_timeout), Deadline::After(options_.timeout),
                  Attempt::kAgain);
  }
}

void SessionKeeper::WaitForLossOrEnd() {
  MutexLock hold(state_.lock);
  hold.Wait(state_.phase_changed, [this]() REQUIRES(state_.lock) {
    return state_.phase == SessionPhase::kLost || state_.phase == SessionPhase::kEnded;
  });
}

// False when no attempt is to follow.
bool SessionKeeper::PauseBeforeAttempt() {
  const auto ended = [this]()
                         REQUIRES(state_.lock) { return state_.phase == SessionPhase::kEnded; };
  MutexLock hold(state_.lock);
  if (!options_.reconnect) {
    hold.Wait(state_.phase_changed, ended);
    return false;
  }
  const auto pause = pause_;
  pause_ = std::min(2 * pause, options_.longest_pause);
  return !hold.WaitUntil(state_.phase_changed, Deadline::After(pause), ended);
}

void SessionKeeper::NoteEnd(const Link& link, const Error& error) {
  const MutexLock hold(state_.lock);
  if (state_.phase != SessionPhase::kConnected) return;
  if (&link != state_.requests.get() && &link != state_.changes.get()) return;
  state_.phase = SessionPhase::kLost;
  state_.lost_by = error;
  // One that held for a while was a good one; one that broke soon must not be followed by the next
  // without a pause.
  if (std::chrono::steady_clock::now() - connected_since_ >= options_.longest_pause)
    pause_ = options_.first_pause;
  state_.CloseLinks();
  PostEvent(Lost{error});
  state_.phase_changed.notify_all();
}

Result<void> SessionKeeper::Restore(Deadline connected_by, Deadline deadline, Attempt attempt) {
  std::uint64_t epoch = 0;
  {
    const MutexLock hold(state_.lock);
    if (state_.phase == SessionPhase::kEnded) return state_.NotConnected();
    state_.phase = SessionPhase::kRestoring;
    epoch = ++state_.epoch;
    state_.publications.MarkAllUnsent();
  }
  Result<void> restored = RestoreAll(epoch, connected_by, deadline, attempt);
  if (restored) return restored;
  const MutexLock hold(state_.lock);
  dispatcher_.DropHeldBack();
  if (state_.phase != SessionPhase::kEnded) state_.phase = SessionPhase::kLost;
  return restored;
}

// Subscriptions first, then publications, then all values: what changes while these are read is
// reported afterwards.
Result<void> SessionKeeper::RestoreAll(std::uint64_t epoch, Deadline connected_by,
                                       Deadline deadline, Attempt attempt) {
  const auto requests = links_.Connect(Link::Role::kRequests, epoch, connected_by);
  if (!requests) return requests.error();
  if (Result<void> installed = links_.Install(Link::Role::kRequests, *requests); !installed)
    return installed;
  if (Result<void> done = subscriptions_.Restore(epoch, deadline); !done) return done;
  if (attempt == Attempt::kFirst) return FinishRestoring(**requests, {}, deadline, attempt);
  auto all = PublishAndReadAll(**requests, deadline);
  if (!all) return all.error();
  return FinishRestoring(**requests, std::move(*all), deadline, attempt);
}

Result<std::vector<Property>> SessionKeeper::PublishAndReadAll(Link& requests, Deadline deadline) {
  Publications::Unsent unsent;
  {
    const MutexLock hold(state_.lock);
    unsent = state_.publications.TakeUnsent();
  }
  if (Result<void> sent = Publisher::SendUnsent(requests, unsent, deadline); !sent)
    return sent.error();
  return requests.Ask(*GetAllFrame(), deadline);
}

// The session counts as connected from a moment at which nothing is left to be sent.
Result<void> SessionKeeper::FinishRestoring(Link& requests, std::vector<Property> all,
                                            Deadline deadline, Attempt attempt) {
  for (;;) {
    MutexLock hold(state_.lock);
    const Publications::Unsent unsent = state_.publications.TakeUnsent();
    if (unsent.empty()) {
      if (Result<void> connected = SetConnected(); !connected) return connected;
      if (attempt == Attempt::kAgain) PostEvent(Reconnected{std::move(all)});
      dispatcher_.PostHeldBack();
      const auto unused = state_.subscriptions.empty() ? std::move(state_.changes) : nullptr;
      hold.Unlock();
      if (unused) unused->End();
      return {};
    }
    hold.Unlock();
    if (Result<void> sent = Publisher::SendUnsent(requests, unsent, deadline); !sent) return sent;
  }
}

// From here on a link that ends is the session's loss, see NoteEnd.
Result<void> SessionKeeper::SetConnected() {
  if (state_.phase == SessionPhase::kEnded) return state_.NotConnected();
  for (const Link* link : {state_.requests.get(), state_.changes.get()}) {
    if (link == nullptr) continue;
    if (const auto ended = link->ended_by()) return *ended;
  }
  state_.phase = SessionPhase::kConnected;
  connected_since_ = std::chrono::steady_clock::now();
  return {};
}

void SessionKeeper::PostEvent(SessionEvent event) {
  if (!options_.on_event) return;
  dispatcher_.Post([this, event = std::move(event)] { options_.on_event(event); });
}

}  // namespace valmere::client
