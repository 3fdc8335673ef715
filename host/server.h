// The event loop: accepts clients, serves their bytes, ends on a signal.
#pragma once

#include <uv.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <unordered_map>
#include <vector>

#include "client/deadline.h"
#include "client/mutex.h"
#include "host/driver/driver_library.h"
#include "host/socket/client_bridge.h"
#include "host/socket/limits.h"
#include "host/socket/listening_socket.h"
#include "host/system/report.h"
#include "host/values/property_loader.h"

namespace valmere::host {

// Purpose: serves a listening socket from one thread until SIGTERM or SIGINT. What it has accepted
// by then is still answered, for as long as the limits say. On SIGHUP it has the service load its
// property file.
// Owner: the program. Socket, driver and limits must outlive it.
// Threads: the one that calls Run; signals count from the constructor on.
// Errors: the constructor throws std::runtime_error; a client that can't be served is turned away
// with a message on standard error.
class Server {
 public:
  // `before_load`, if there is one, is called on another thread before each load of the property
  // file.
  Server(ListeningSocket& listener, const DriverLibrary& driver, const Limits& limits,
         PropertyLoader::BeforeLoad before_load = nullptr);
  ~Server();
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;

  // For other events that are to be handled on the server's thread.
  uv_loop_t& loop() { return loop_; }
  // True once a signal to end has come.
  bool HasToEnd();
  // Begins to accept clients. False when a signal has come already.
  bool Start();
  // Serves until a signal ends it. On return no client, no handle and no thread is left. Returns
  // the deadline for all that is left to do at the end.
  client::Deadline Run();

 private:
  using Id = std::uint64_t;

  void StartAccepting();
  void AcceptOne();
  void AddClient(int socket);
  void PauseAccepting();
  void TurnAway(int socket);
  void QueuePumpEvent(Id id) noexcept;  // on a pump's thread
  void HandlePumpEvents();
  void LoadProperties() noexcept;
  void Drain();
  void StopAccepting();
  void RemoveClient(Id id);
  void CloseAll();

  ListeningSocket& listener_;
  const DriverLibrary& driver_;
  const Limits& limits_;
  uv_loop_t loop_{};
  uv_poll_t accept_{};
  uv_timer_t accept_again_{};
  uv_signal_t terminate_{};
  uv_signal_t interrupt_{};
  uv_signal_t hang_up_{};
  uv_async_t pump_events_async_{};
  uv_timer_t drain_timer_{};
  std::vector<unsigned char> scratch_;
  std::unordered_map<Id, std::unique_ptr<ClientBridge>> bridges_;
  Id last_id_ = 0;
  bool stopping_ = false;
  client::Deadline end_by_ = client::Deadline::Never();
  std::optional<PropertyLoader> loader_;  // until clients and loads are over
  ReportLimit turned_away_;
  ReportLimit paused_;

  client::Mutex pump_events_lock_;
  std::vector<Id> pump_events_ GUARDED_BY(pump_events_lock_);     // of these bridges
  bool pump_event_missed_ GUARDED_BY(pump_events_lock_) = false;  // there was no room for one
};

}  // namespace valmere::host
