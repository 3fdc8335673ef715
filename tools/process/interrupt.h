// SIGINT and SIGTERM as the end of a wait.
#pragma once

#include <csignal>
#include <cstddef>

#include "client/client.h"
#include "client/deadline.h"

namespace valmere::tools {

// Purpose: turns SIGINT and SIGTERM into kInterrupted of the waits of clients, so that a command
//   can end in its own way.
// Owner: a command; one at a time in the process. A client must stay where it is while it is
//   watched.
// Threads: one; the handler may run on any.
// Errors: std::system_error when the process has no descriptor left.
class InterruptOnSignal {
 public:
  // From here on the signals no longer end the process; a connect that waits is broken off.
  InterruptOnSignal();
  // The signals do again what they did before.
  ~InterruptOnSignal();
  InterruptOnSignal(const InterruptOnSignal&) = delete;
  InterruptOnSignal& operator=(const InterruptOnSignal&) = delete;

  // Signals interrupt `client` from now on, and one that came before does so too. At most
  // kMostClients at once.
  void Watch(client::Client& client);
  void Forget(client::Client& client);
  // Waits until the deadline; false, and at once, when a signal came, now or earlier.
  bool WaitUntil(client::Deadline deadline) const;

  static constexpr std::size_t kMostClients = 2;

 private:
  struct sigaction interrupt_before_;
  struct sigaction terminate_before_;
};

}  // namespace valmere::tools
