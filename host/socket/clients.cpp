#include "host/socket/clients.h"

#include <string>

#include "host/socket/client_stream.h"

namespace valmere::host {

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
  if (--count_ == 0 && finishing_ && all_gone_) all_gone_();
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
  if (count_ == 0 && all_gone_) all_gone_();
}

void Clients::Detach() {
  const client::MutexLock hold(lock_);
  all_gone_ = nullptr;
}

void Clients::AbandonAll() {
  const client::MutexLock hold(lock_);
  for (ClientStream* const stream : streams_)
    stream->Abandon();
}

}  // namespace valmere::host
