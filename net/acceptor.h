// The accept loop.
#pragma once

#include <memory>
#include <optional>

#include "driver/sync/worker_thread.h"
#include "net/listener.h"
#include "net/stream_sink.h"

namespace valmere {

// Purpose: opens a listener and hands each connection that it yields to a sink.
// Owner: the service. Its thread holds all that it touches, and so may outlive it.
// Threads: one of its own, which sleeps in Accept; Close from any thread, End and destruction on
// the owner's.
// Errors: when the listener can't be opened or the system gives no thread, nothing is accepted.
class Acceptor {
 public:
  Acceptor(std::shared_ptr<Listener> listener, std::shared_ptr<StreamSink> sink, int priority);
  // Ends.
  ~Acceptor();
  Acceptor(const Acceptor&) = delete;
  Acceptor& operator=(const Acceptor&) = delete;

  // Closes the listener, which ends the loop. Connections handed over live on. May be called again.
  void Close();
  // Closes, and waits for the thread. May be called again.
  void End();

 private:
  class Loop;

  const std::shared_ptr<Loop> loop_;
  std::optional<WorkerThread> thread_;
};

}  // namespace valmere
