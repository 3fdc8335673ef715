// Where the service gets its clients from.
#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <unordered_map>
#include <vector>

#include "host/socket/clients.h"
#include "host/socket/peer.h"
#include "host/socket/unread_watch.h"
#include "host/system/report.h"
#include "net/listener.h"
#include "platform/posix/descriptor.h"

namespace valmere::host {

// Purpose: accepts clients from sockets that listen, and hands each on with its first byte: one that
// has said nothing yet costs a descriptor and no thread.
// Owner: shared by the server and the service's acceptor.
// Threads: as Listener; Finish from any.
// Errors: the constructor throws std::system_error. A client that is over a limit or can't be served
// is closed, with a message on standard error.
class ClientListener final : public Listener {
 public:
  // The sockets listen, without blocking. `stop_listening` closes them; it is called by the accepting
  // thread after Finish, or never. The watch must outlive the listener.
  ClientListener(std::vector<int> sockets, std::function<void()> stop_listening,
                 std::shared_ptr<Clients> clients, UnreadWatch& watch);

  std::shared_ptr<Connection> Accept() override;
  int Open() override { return 0; }
  void Close() override;

  // No client is accepted any more. Those that have said something are still handed on; the others
  // are closed.
  void Finish();

 private:
  using Clock = std::chrono::steady_clock;

  struct Silent {
    platform::Descriptor socket;
    Peer peer;
    Clients::Place place;
  };

  std::shared_ptr<Connection> Handle(int descriptor);
  std::shared_ptr<Connection> AcceptFrom(int listening);
  // Hands a client on when it has said something, keeps it when it may yet, else drops it.
  std::shared_ptr<Connection> Judge(Silent silent);
  std::shared_ptr<Connection> StreamOf(Silent silent);
  std::shared_ptr<Connection> TakeLast();
  void StopAccepting();
  void PauseAccepting(int error);
  void ResumeAccepting();
  int TimeLeft() const;

  const std::shared_ptr<Clients> clients_;
  UnreadWatch& watch_;
  const platform::Descriptor wake_;
  const platform::Descriptor poll_;
  const std::function<void()> stop_listening_;
  std::atomic<bool> finishing_{false};
  std::atomic<bool> closed_{false};

  // The accepting thread's own.
  std::vector<int> sockets_;  // none once it has finished
  std::unordered_map<int, Silent> silent_;
  std::optional<Clock::time_point> paused_until_;
  ReportLimit paused_;
};

}  // namespace valmere::host
