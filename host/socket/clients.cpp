#include "host/socket/clients.h"

#include <algorithm>
#include <string>

#include "host/socket/client_stream.h"

namespace valmere::host {
namespace {

constexpr std::size_t kMany = 64;

}  // namespace

std::optional<Clients::Place> Clients::Admit(const Peer& peer) {
  const client::MutexLock hold(lock_);
  if (count_ >= limits_.clients) {
    TurnAway(peer, limits_.clients, "--max-clients");
    return std::nullopt;
  }
  if (peer.process != 0) {
    std::size_t& of_process = of_process_[peer.process];
    if (of_process >= limits_.clients_per_process) {
      TurnAway(peer, limits_.clients_per_process, "--max-clients-per-process");
      return std::nullopt;
    }
    ++of_process;
  }
  ++count_;
  peak_ = std::max(peak_, count_);
  return std::make_optional<Place>(shared_from_this(), peer.process);
}

void Clients::TurnAway(const Peer& peer, std::size_t limit, const char* option) {
  const auto count = turned_away_.Count();
  if (!count) return;
  TryReport([&] {
    return "turned away " + std::to_string(*count) + " client" + (*count == 1 ? "" : "s") +
           ", the last one " + peer.text + ": " + std::to_string(limit) +
           " are served, which is the limit of " + option;
  });
}

void Clients::Leave(pid_t process) noexcept {
  const client::MutexLock hold(lock_);
  const auto place = of_process_.find(process);
  if (place != of_process_.end() && --place->second == 0) of_process_.erase(place);
  --count_;
  if (count_ == 0 && finishing_ && events_.all_gone) events_.all_gone();
  if (peak_ < kMany || count_ > peak_ / 2) return;
  peak_ = count_;
  if (events_.many_gone) events_.many_gone();
}

void Clients::Enlist(ClientStream& stream) {
  const client::MutexLock hold(lock_);
  streams_.insert(&stream);
  if (finishing_) stream.Finish();
}

void Clients::Strike(ClientStream& stream) noexcept {
  const client::MutexLock hold(lock_);
  streams_.erase(&stream);
}

void Clients::Finish() {
  const client::MutexLock hold(lock_);
  finishing_ = true;
  for (ClientStream* const stream : streams_)
    stream->Finish();
  if (count_ == 0 && events_.all_gone) events_.all_gone();
}

void Clients::Detach() {
  const client::MutexLock hold(lock_);
  events_ = {};
}

void Clients::AbandonAll() {
  const client::MutexLock hold(lock_);
  for (ClientStream* const stream : streams_)
    stream->Abandon();
}

}  // namespace valmere::host
