// The event loop: signals, loads, and the end of all clients.
#pragma once

#include <uv.h>

#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "client/deadline.h"
#include "host/driver/driver.h"
#include "host/socket/client_listener.h"
#include "host/socket/clients.h"
#include "host/socket/limits.h"
#include "host/socket/unread_watch.h"
#include "host/values/property_loader.h"

namespace valmere::host {

// Purpose: has the service serve the clients of listening sockets until SIGTERM or SIGINT. What has
// been accepted by then is still answered, for as long as the limits say. On SIGHUP it has the
// service load its property file.
// Owner: the program. Driver and limits must outlive it, and the driver is ended before it goes.
// Threads: the one that calls Run; signals count from the constructor on.
// Errors: the constructor throws std::runtime_error.
class Server {
 public:
  // `before_load`, if there is one, is called on another thread before each load of the property
  // file.
  Server(Driver& driver, const Limits& limits, PropertyLoader::BeforeLoad before_load = nullptr);
  ~Server();
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;

  // For other events that are to be handled on the server's thread.
  uv_loop_t& loop() { return loop_; }
  // True once a signal to end has come.
  bool HasToEnd();
  // Begins to accept clients from the sockets, which listen and outlive the driver's end. False when
  // a signal has come already. Once no client is accepted any more `stop_listening` is called, on
  // another thread.
  bool Start(std::vector<int> sockets, std::function<void()> stop_listening);
  // Serves until a signal ends it. On return no client is left, unless the time for that was up.
  // Returns the deadline for all that is left to do at the end.
  client::Deadline Run();

 private:
  void LoadProperties() noexcept;
  void Drain();
  void TrimMemorySoon();
  void IgnoreSignals();
  void EndLoop();

  const Limits& limits_;
  uv_loop_t loop_{};
  uv_signal_t terminate_{};
  uv_signal_t interrupt_{};
  uv_signal_t hang_up_{};
  uv_async_t all_gone_{};
  uv_async_t many_gone_{};
  uv_timer_t trim_timer_{};
  uv_timer_t drain_timer_{};
  bool stopping_ = false;
  client::Deadline end_by_ = client::Deadline::Never();
  std::optional<PropertyLoader> loader_;  // until clients and loads are over
  const std::shared_ptr<Clients> clients_;
  UnreadWatch watch_;
  std::shared_ptr<ClientListener> listener_;  // from Start on
};

}  // namespace valmere::host
