// The accept loop.
#pragma once

#include <memory>
#include <optional>

#include "driver/sync/event_flags.h"
#include "driver/sync/worker_thread.h"
#include "net/listener.h"
#include "net/stream_sink.h"

namespace valmere {

// Purpose: opens a listener and hands each connection that it yields to a sink.
// Owner: the service.
// Threads: one of its own, which sleeps in Accept; Close from any thread, destroyed on the owner's.
// Errors: when the listener can't be opened or no thread can be had, nothing is accepted.
class Acceptor {
 public:
  Acceptor(std::shared_ptr<Listener> listener, std::shared_ptr<StreamSink> sink, int priority);
  // Closes, and returns when the thread has ended.
  ~Acceptor();
  Acceptor(const Acceptor&) = delete;
  Acceptor& operator=(const Acceptor&) = delete;

  // Closes the listener, which ends the loop. Connections handed over live on. Any number of times.
  void Close();

 private:
  void Run();
  bool AcceptOne();

  const std::shared_ptr<Listener> listener_;
  const std::shared_ptr<StreamSink> sink_;
  EventFlags closing_{EventFlags::AutoClear::kNo};
  std::optional<WorkerThread> thread_;  // the last member: it ends before what it uses goes
};

}  // namespace valmere
