// The clients that are connected, and what they may take.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "client/mutex.h"
#include "host/socket/limits.h"
#include "host/socket/peer.h"
#include "host/system/report.h"

namespace valmere::host {

class ClientStream;

// Purpose: counts clients, all and those of each process, turns away those over a limit, and ends
// those that there are when valmered ends.
// Owner: shared by the server and every client's stream.
// Threads: any.
// Errors: std::bad_alloc from Admit.
class Clients : public std::enable_shared_from_this<Clients> {
 public:
  // Purpose: a client's place among those that are served; it is free again when this goes.
  // Owner: what stands for the client: a waiting socket, then its stream.
  // Threads: one at a time. Errors: none.
  class Place {
   public:
    Place(std::shared_ptr<Clients> clients, pid_t process)
        : clients_(std::move(clients)), process_(process) {}
    Place(Place&& other) noexcept : clients_(std::move(other.clients_)), process_(other.process_) {}
    ~Place() {
      if (clients_) clients_->Leave(process_);
    }
    Place(const Place&) = delete;
    Place& operator=(const Place&) = delete;
    Place& operator=(Place&&) = delete;

   private:
    std::shared_ptr<Clients> clients_;
    pid_t process_;
  };

  // Neither may call back.
  struct Events {
    // The last client has gone after Finish, or there was none.
    std::function<void()> all_gone;
    // Half of many clients have gone, and what they took can be given back.
    std::function<void()> many_gone;
  };

  Clients(const Limits& limits, Events events) : limits_(limits), events_(std::move(events)) {}
  Clients(const Clients&) = delete;
  Clients& operator=(const Clients&) = delete;

  const Limits& limits() const { return limits_; }
  // Nothing when the client is over a limit, which is reported.
  std::optional<Place> Admit(const Peer& peer) EXCLUDES(lock_);

  // A stream is listed for as long as it lives.
  void Enlist(ClientStream& stream) EXCLUDES(lock_);
  void Strike(ClientStream& stream) noexcept EXCLUDES(lock_);

  // What clients have sent by now is the last that is taken of them.
  void Finish() EXCLUDES(lock_);
  // Drops all that waits for clients, and their connections.
  void AbandonAll() EXCLUDES(lock_);
  // No event is told of any more.
  void Detach() EXCLUDES(lock_);

 private:
  void Leave(pid_t process) noexcept EXCLUDES(lock_);
  void TurnAway(const Peer& peer, std::size_t limit, const char* option) REQUIRES(lock_);

  const Limits limits_;
  client::Mutex lock_;
  Events events_ GUARDED_BY(lock_);
  std::size_t count_ GUARDED_BY(lock_) = 0;
  std::size_t peak_ GUARDED_BY(lock_) = 0;  // the most that there were since many have gone
  std::unordered_map<pid_t, std::size_t> of_process_ GUARDED_BY(lock_);
  std::unordered_set<ClientStream*> streams_ GUARDED_BY(lock_);
  bool finishing_ GUARDED_BY(lock_) = false;
  ReportLimit turned_away_ GUARDED_BY(lock_);
};

}  // namespace valmere::host
