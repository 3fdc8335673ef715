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

}  // namespace

Server::Server(ListeningSocket& listener, const DriverLibrary& driver, const Limits& limits,
               PropertyLoader::BeforeLoad before_load)
    : listener_(listener),
      driver_(driver),
      limits_(limits),
      scratch_(kScratchBytes),
      loader_(std::in_place, driver, std::move(before_load)) {
  Watch(uv_loop_init(&loop_));
  accept_.data = accept_again_.data = calls_wait_.data = drained_long_enough_.data = this;
  terminate_.data = interrupt_.data = hang_up_.data = this;
  Watch(uv_poll_init(&loop_, &accept_, listener_.descriptor()));
  Watch(uv_timer_init(&loop_, &accept_again_));
  Watch(uv_timer_init(&loop_, &drained_long_enough_));
  Watch(uv_async_init(&loop_, &calls_wait_,
                      [](uv_async_t* async) { ServerOf(async)->AttendToCalls(); }));
  const auto on_signal = [](uv_signal_t* signal, int) { ServerOf(signal)->Drain(); };
  Watch(uv_signal_init(&loop_, &terminate_));
  Watch(uv_signal_init(&loop_, &interrupt_));
  Watch(uv_signal_start(&terminate_, on_signal, SIGTERM));
  Watch(uv_signal_start(&interrupt_, on_signal, SIGINT));
  Watch(uv_signal_init(&loop_, &hang_up_));
  Watch(uv_signal_start(
      &hang_up_, [](uv_signal_t* signal, int) { ServerOf(signal)->LoadProperties(); }, SIGHUP));
}

Server::~Server() {
  StopTaking();
  CloseAll();
  loader_.reset();
  // Closing the handles gives the signals back their own meaning, which is to end the process where
  // it stands; nothing of this process wants them from here on.
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

void Server::Watch(int result) const {
  if (result != 0) throw std::runtime_error(std::string("event loop: ") + uv_strerror(result));
}

bool Server::HasToEnd() {
  uv_run(&loop_, UV_RUN_NOWAIT);
  return stopping_;
}

bool Server::Start() {
  StartAccepting();
  return !HasToEnd();
}

// A load is over before its thread is told to end: an override file that it has taken is gone, and
// the values are not in the property file yet.
client::Deadline Server::Run() {
  uv_run(&loop_, UV_RUN_DEFAULT);
  if (loader_) loader_->Await(end_by_);
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
  if (connections_.size() >= limits_.clients) return TurnAway(socket);
  try {
    Adopt(socket);
  } catch (const std::exception& error) {  // the loop is C and must not meet it
    close(socket);
    TryReport([&] { return std::string("cannot serve a client: ") + error.what(); }, ReportClient);
  }
}

// The place comes first: a connection that was made can only go by way of the loop.
void Server::Adopt(int socket) {
  const Id id = ++last_id_;
  const auto place = connections_.try_emplace(id).first;
  Connection::Events events{[this, id] { CallFor(id); }, [this, id] { Forget(id); }};
  try {
    place->second = std::make_unique<Connection>(
        Connection::Surroundings{loop_, driver_, limits_, scratch_}, socket, std::move(events));
  } catch (const std::exception&) {
    connections_.erase(place);
    throw;
  }
}

// Taken out of the queue and closed, so that it learns at once.
void Server::TurnAway(int socket) {
  close(socket);
  if (const auto count = turned_away_.Count())
    TryReport([&] {
      return "turned away " + std::to_string(*count) + " client" + (*count == 1 ? "" : "s") + ": " +
             std::to_string(limits_.clients) + " are served, which is the limit of --max-clients";
    });
}

// The client stays in the queue, so the socket stays readable: without a pause the loop would spin.
void Server::PauseAccepting() {
  if (paused_.Count())
    TryReport([] { return "out of descriptors or memory; clients have to wait"; });
  uv_poll_stop(&accept_);
  uv_timer_start(
      &accept_again_, [](uv_timer_t* timer) { ServerOf(timer)->StartAccepting(); },
      kAcceptPauseMilliseconds, 0);
}

// What a pump has to say must arrive, if need be without its name.
void Server::CallFor(Id id) noexcept {
  {
    const client::MutexLock hold(calls_lock_);
    try {
      calls_.push_back(id);
    } catch (const std::bad_alloc&) {
      all_called_ = true;
    }
  }
  uv_async_send(&calls_wait_);
}

void Server::AttendToCalls() {
  std::vector<Id> calls;
  bool all = false;
  {
    const client::MutexLock hold(calls_lock_);
    calls.swap(calls_);
    all = std::exchange(all_called_, false);
  }
  if (all) {
    for (const auto& [id, connection] : connections_)
      connection->Attend();
    return;
  }
  for (const Id id : calls) {
    const auto found = connections_.find(id);
    if (found != connections_.end()) found->second->Attend();
  }
}

void Server::LoadProperties() noexcept {
  if (loader_ && !stopping_) loader_->Ask();
}

// What was accepted is handled and answered. A client that does not take its answers, a load that
// takes long: for all of them there is one deadline.
void Server::Drain() {
  if (stopping_) return;
  end_by_ = client::Deadline::After(limits_.drain);
  NotifyStopping();
  StopTaking();
  if (limits_.drain.count() == 0) return CloseAll();
  uv_update_time(&loop_);  // the loop's idea of now may be as old as this round of it
  uv_timer_start(
      &drained_long_enough_, [](uv_timer_t* timer) { ServerOf(timer)->CloseAll(); },
      static_cast<std::uint64_t>(limits_.drain.count()), 0);
  for (auto& [id, connection] : connections_) {
    connection->Finish();
  }
  if (connections_.empty()) CloseAll();
}

void Server::StopTaking() {
  stopping_ = true;
  CloseHandle(accept_);
  CloseHandle(accept_again_);
  // Signals are still taken, and ignored: who sends a second one must not cut the ending short.
  for (uv_signal_t* handle : {&terminate_, &interrupt_, &hang_up_})
    uv_unref(reinterpret_cast<uv_handle_t*>(handle));
  listener_.StopListening();
}

void Server::Forget(Id id) {
  connections_.erase(id);
  if (stopping_ && connections_.empty()) CloseAll();
}

// All sessions are told first and waited for then, so that they end side by side.
void Server::CloseAll() {
  for (auto& [id, connection] : connections_) {
    connection->BeginClose();
  }
  for (auto& [id, connection] : connections_) {
    connection->Close();
  }
  CloseHandle(drained_long_enough_);
  CloseHandle(calls_wait_);
}

}  // namespace valmere::host
