// One loop thread does everything but wait for the driver: a request costs it one wait, one socket
// read and one PRN_Write. The way back has a thread for each session, because PRN_Read blocks.
#include "host/server.h"

#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <exception>
#include <stdexcept>
#include <string>
#include <utility>

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

Server::Server(ListeningSocket& listener, const DriverLibrary& driver)
    : listener_(listener), driver_(driver), scratch_(kScratchBytes) {
  Watch(uv_loop_init(&loop_));
  accept_.data = accept_again_.data = terminate_.data = interrupt_.data = pumps_ended_.data = this;
  Watch(uv_poll_init(&loop_, &accept_, listener_.descriptor()));
  Watch(uv_timer_init(&loop_, &accept_again_));
  Watch(uv_async_init(&loop_, &pumps_ended_,
                      [](uv_async_t* async) { ServerOf(async)->HandleEndedPumps(); }));
  const auto on_signal = [](uv_signal_t* signal, int) { ServerOf(signal)->Stop(); };
  Watch(uv_signal_init(&loop_, &terminate_));
  Watch(uv_signal_init(&loop_, &interrupt_));
  Watch(uv_signal_start(&terminate_, on_signal, SIGTERM));
  Watch(uv_signal_start(&interrupt_, on_signal, SIGINT));
}

Server::~Server() {
  Stop();
  uv_run(&loop_, UV_RUN_DEFAULT);
  uv_loop_close(&loop_);
}

void Server::Watch(int result) const {
  if (result != 0) throw std::runtime_error(std::string("event loop: ") + uv_strerror(result));
}

bool Server::Start() {
  StartAccepting();
  uv_run(&loop_, UV_RUN_NOWAIT);
  return !stopping_;
}

void Server::Run() {
  uv_run(&loop_, UV_RUN_DEFAULT);
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
  try {
    Adopt(socket);
  } catch (const std::exception& error) {  // the loop is C and must not meet it
    std::fprintf(stderr, "valmered: cannot serve a client: %s\n", error.what());
  }
}

void Server::Adopt(int socket) {
  const Id id = ++last_id_;
  Connection::Events events{[this, id] { PumpEnded(id); }, [this, id] { connections_.erase(id); }};
  auto connection =
      std::make_unique<Connection>(loop_, driver_, socket, scratch_, std::move(events));
  connections_.emplace(id, std::move(connection));
}

// The client stays in the queue, so the socket stays readable: without a pause the loop would spin.
void Server::PauseAccepting() {
  std::fprintf(stderr, "valmered: out of descriptors or memory; clients have to wait\n");
  uv_poll_stop(&accept_);
  uv_timer_start(
      &accept_again_, [](uv_timer_t* timer) { ServerOf(timer)->StartAccepting(); },
      kAcceptPauseMilliseconds, 0);
}

void Server::PumpEnded(Id id) {
  {
    const std::lock_guard lock(ended_lock_);
    ended_.push_back(id);
  }
  uv_async_send(&pumps_ended_);
}

void Server::HandleEndedPumps() {
  std::vector<Id> ended;
  {
    const std::lock_guard lock(ended_lock_);
    ended.swap(ended_);
  }
  for (const Id id : ended) {
    const auto found = connections_.find(id);
    if (found != connections_.end()) found->second->PumpEnded();
  }
}

// All sessions are told first and waited for then, so that they end side by side.
void Server::Stop() {
  if (stopping_) return;
  stopping_ = true;
  CloseHandle(accept_);
  CloseHandle(accept_again_);
  CloseHandle(terminate_);
  CloseHandle(interrupt_);
  listener_.StopListening();
  for (auto& [id, connection] : connections_) {
    connection->BeginClose();
  }
  for (auto& [id, connection] : connections_) {
    connection->Close();
  }
  CloseHandle(pumps_ended_);
}

}  // namespace valmere::host
