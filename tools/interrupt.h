// SIGINT and SIGTERM as the end of a wait.
#pragma once

#include "client/client.h"

namespace valmere::tools {

// Purpose: turns SIGINT and SIGTERM into kInterrupted of the client's wait, so that a command can
// end in its own way.
// Owner: a command; one at a time in the process. The client must stay where it is meanwhile.
// Threads: one; the handler may run on any.
// Errors: none.
class InterruptOnSignal {
 public:
  // From here on the signals no longer end the process; a connect that waits is broken off.
  InterruptOnSignal();
  ~InterruptOnSignal();
  InterruptOnSignal(const InterruptOnSignal&) = delete;
  InterruptOnSignal& operator=(const InterruptOnSignal&) = delete;

  // Signals interrupt `client` from now on, and one that came before does so too.
  void Watch(client::Client& client);
};

}  // namespace valmere::tools
