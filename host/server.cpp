// One loop thread does everything but wait for the driver: a request costs it one wait, one socket
// read and one PRN_Write. The way back has a thread for each session, because PRN_Read blocks.
#include "host/server.h"

#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <exception>
#include <new>
#include <stdexcept>
#include <string>
#include <utility>

#include "host/system/service_manager.h"

namespace valmere::host {
namespace {

constexpr std::size_t kScratchBytes = 65536;
constexpr std::uint64_t kAcceptPauseMilliseconds = 100;

template <typename Handle>
void CloseHandle(Handle& handle) {
  auto* generic = reinterpret_cast<uv_handle_t*>(&handle);
  if (uv_is_closing(generic) == 0) uv_close(generic, nullptr);
}

template <typename Handle>
Server* ServerOf(Handle* handle) {
  return static_cast<Server*>(handle->data);
}

void ThrowOnUvError(int result) {
  if (result != 0) throw std::runtime_error(std::string("event loop: ") + uv_strerror(result));
}

}  // namespace

Server::Server(ListeningSocket& listener, const DriverLibrary& driver, const Limits& limits,
               PropertyLoader::BeforeLoad before_load)
    : listener_(listener),
      driver_(driver),
      limits_(limits),
      scratch_(kScratchBytes),
      loader_(std::in_place, driver, std::move(before_load)) {
  ThrowOnUvError(uv_loop_init(&loop_));
  accept_.data = accept_again_.data = pump_events_async_.data = drain_timer_.data = this;
  terminate_.data = interrupt_.data = hang_up_.data = this;
  ThrowOnUvError(uv_poll_init(&loop_, &accept_, listener_.descriptor()));
  ThrowOnUvError(uv_timer_init(&loop_, &accept_again_));
  ThrowOnUvError(uv_timer_init(&loop_, &drain_timer_));
  ThrowOnUvError(uv_async_init(&loop_, &pump_events_async_,
                               [](uv_async_t* async) { ServerOf(async)->HandlePumpEvents(); }));
  const auto on_signal = [](uv_signal_t* signal, int) { ServerOf(signal)->Drain(); };
  ThrowOnUvError(uv_signal_init(&loop_, &terminate_));
  ThrowOnUvError(uv_signal_init(&loop_, &interrupt_));
  ThrowOnUvError(uv_signal_start(&terminate_, on_signal, SIGTERM));
  ThrowOnUvError(uv_signal_start(&interrupt_, on_signal, SIGINT));
  ThrowOnUvError(uv_signal_init(&loop_, &hang_up_));
  ThrowOnUvError(uv_signal_start(
      &hang_up_, [](uv_signal_t* signal, int) { ServerOf(signal)->LoadProperties(); }, SIGHUP));
}

Server::~Server() {
  StopAccepting();
  CloseAll();
  loader_.reset();
  // Closing the handles gives the signals back their default action, which is to end the process at
  // once; nothing in this process needs them from here on.
  sigset_t signals;
  sigemptyset(&signals);
  for (const int number : {SIGTERM, SIGINT, SIGHUP})
    sigaddset(&signals, number);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  for (uv_signal_t* handle : {&terminate_, &interrupt_, &hang_up_})
    CloseHandle(*handle);
  uv_run(&loop_, UV_RUN_DEFAULT);
  uv_loop_close(&loop_);
}

bool Server::HasToEnd() {
  uv_run(&loop_, UV_RUN_NOWAIT);
  return stopping_;
}

bool Server::Start() {
  StartAccepting();
  return !HasToEnd();
}

// A load is over before its thread has to end: an override file that it has taken is gone, and the
// values are not in the property file yet.
client::Deadline Server::Run() {
  uv_run(&loop_, UV_RUN_DEFAULT);
  if (loader_) loader_->WaitUntilIdle(end_by_);
  loader_.reset();
  return end_by_;
}

void Server::StartAccepting() {
  if (stopping_) return;
  uv_poll_start(&accept_, UV_READABLE,
                [](uv_poll_t* poll, int, int) { ServerOf(poll)->AcceptOne(); });
}

void Server::AcceptOne() {
  const int socket =
      accept4(listener_.descriptor(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
  if (socket < 0) {
    if (errno == EMFILE || errno == ENFILE || errno == ENOMEM || errno == ENOBUFS) PauseAccepting();
    return;
  }
  if (bridges_.size() >= limits_.clients) return TurnAway(socket);
  try {
    AddClient(socket);
  } catch (const std::exception& error) {  // the loop is C and must not meet it
    close(socket);
    TryReport([&] { return std::string("cannot serve a client: ") + error.what(); }, ReportClient);
  }
}

// The place in the map comes first: a bridge that was made can be destroyed by the loop alone.
void Server::AddClient(int socket) {
  const Id id = ++last_id_;
  const auto place = bridges_.try_emplace(id).first;
  ClientBridge::Events events{[this, id] { QueuePumpEvent(id); }, [this, id] { RemoveClient(id); }};
  try {
    place->second = std::make_unique<ClientBridge>(
        ClientBridge::Environment{loop_, driver_, limits_, scratch_}, socket, std::move(events));
  } catch (const std::exception&) {
    bridges_.erase(place);
    throw;
  }
}

// The client is taken out of the queue and closed, so that it sees the end at once.
void Server::TurnAway(int socket) {
  close(socket);
  if (const auto count = turned_away_.Count())
    TryReport([&] {
      return "turned away " + std::to_string(*count) + " client" + (*count == 1 ? "" : "s") + ": " +
             std::to_string(limits_.clients) + " are served, which is the limit of --max-clients";
    });
}

// The client stays in the queue, so the socket stays readable: without a pause the loop would never
// rest.
void Server::PauseAccepting() {
  if (paused_.Count())
    TryReport([] { return "out of descriptors or memory; clients have to wait"; });
  uv_poll_stop(&accept_);
  uv_timer_start(
      &accept_again_, [](uv_timer_t* timer) { ServerOf(timer)->StartAccepting(); },
      kAcceptPauseMilliseconds, 0);
}

// An event must arrive, if need be without the name of its bridge.
void Server::QueuePumpEvent(Id id) noexcept {
  {
    const client::MutexLock hold(pump_events_lock_);
    try {
      pump_events_.push_back(id);
    } catch (const std::bad_alloc&) {
      pump_event_missed_ = true;
    }
  }
  uv_async_send(&pump_events_async_);
}

void Server::HandlePumpEvents() {
  std::vector<Id> events;
  bool all = false;
  {
    const client::MutexLock hold(pump_events_lock_);
    events.swap(pump_events_);
    all = std::exchange(pump_event_missed_, false);
  }
  if (all) {
    for (const auto& [id, bridge] : bridges_)
      bridge->HandlePumpEvent();
    return;
  }
  for (const Id id : events) {
    const auto found = bridges_.find(id);
    if (found != bridges_.end()) found->second->HandlePumpEvent();
  }
}

void Server::LoadProperties() noexcept {
  if (loader_ && !stopping_) loader_->RequestLoad();
}

// What was accepted is handled and answered. One deadline is for all of it: for clients that do not
// read their answers, and for a load that takes long.
void Server::Drain() {
  if (stopping_) return;
  end_by_ = client::Deadline::After(limits_.drain);
  NotifyStopping();
  StopAccepting();
  if (limits_.drain.count() == 0) return CloseAll();
  uv_update_time(&loop_);  // the loop's idea of now may be as old as this round of it
  uv_timer_start(
      &drain_timer_, [](uv_timer_t* timer) { ServerOf(timer)->CloseAll(); },
      static_cast<std::uint64_t>(limits_.drain.count()), 0);
  for (auto& [id, bridge] : bridges_)
    bridge->Finish();
  if (bridges_.empty()) CloseAll();
}

void Server::StopAccepting() {
  stopping_ = true;
  CloseHandle(accept_);
  CloseHandle(accept_again_);
  // Signals are still taken, and ignored: a second one must not cut the end short.
  for (uv_signal_t* handle : {&terminate_, &interrupt_, &hang_up_})
    uv_unref(reinterpret_cast<uv_handle_t*>(handle));
  listener_.StopListening();
}

void Server::RemoveClient(Id id) {
  bridges_.erase(id);
  if (stopping_ && bridges_.empty()) CloseAll();
}

// All sessions begin to end before the first is waited for, so that they end at the same time.
void Server::CloseAll() {
  for (auto& [id, bridge] : bridges_)
    bridge->BeginClose();
  for (auto& [id, bridge] : bridges_)
    bridge->Close();
  CloseHandle(drain_timer_);
  CloseHandle(pump_events_async_);
}

}  // namespace valmere::host
