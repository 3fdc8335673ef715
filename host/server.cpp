// The service serves its clients on threads of its own; the loop waits for what comes from outside.
#include "host/server.h"

#include <malloc.h>

#include <csignal>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <utility>

#include "host/system/service_manager.h"

namespace valmere::host {
namespace {

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

Server::Server(Driver& driver, const Limits& limits, PropertyLoader::BeforeLoad before_load)
    : limits_(limits),
      loader_(std::in_place, driver, std::move(before_load)),
      clients_(std::make_shared<Clients>(limits,
                                         Clients::Events{[this] { uv_async_send(&all_gone_); },
                                                         [this] { uv_async_send(&many_gone_); }})),
      watch_(limits.unread) {
  ThrowOnUvError(uv_loop_init(&loop_));
  all_gone_.data = many_gone_.data = drain_timer_.data = this;
  terminate_.data = interrupt_.data = hang_up_.data = this;
  ThrowOnUvError(uv_timer_init(&loop_, &drain_timer_));
  ThrowOnUvError(
      uv_async_init(&loop_, &all_gone_, [](uv_async_t* async) { ServerOf(async)->EndLoop(); }));
  ThrowOnUvError(uv_async_init(&loop_, &many_gone_,
                               [](uv_async_t* async) { ServerOf(async)->TrimMemorySoon(); }));
  ThrowOnUvError(uv_timer_init(&loop_, &trim_timer_));
  uv_unref(reinterpret_cast<uv_handle_t*>(&many_gone_));
  uv_unref(reinterpret_cast<uv_handle_t*>(&trim_timer_));
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
  IgnoreSignals();
  EndLoop();
  clients_->Detach();
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
  CloseHandle(all_gone_);
  CloseHandle(many_gone_);
  CloseHandle(trim_timer_);
  uv_run(&loop_, UV_RUN_DEFAULT);
  uv_loop_close(&loop_);
}

bool Server::HasToEnd() {
  uv_run(&loop_, UV_RUN_NOWAIT);
  return stopping_;
}

bool Server::Start(std::vector<int> sockets, std::function<void()> stop_listening) {
  if (HasToEnd()) return false;
  listener_ = std::make_shared<ClientListener>(std::move(sockets), std::move(stop_listening),
                                               clients_, watch_);
  if (!Driver::Serve(listener_)) throw std::runtime_error("the service did not start");
  return true;
}

// A load is over before its thread has to end: an override file that it has taken is gone, and the
// values are not in the property file yet.
client::Deadline Server::Run() {
  uv_run(&loop_, UV_RUN_DEFAULT);
  if (loader_) loader_->WaitUntilIdle(end_by_);
  loader_.reset();
  return end_by_;
}

void Server::LoadProperties() noexcept {
  if (loader_ && !stopping_) loader_->RequestLoad();
}

// What was accepted is handled and answered. One deadline is for all of it: for clients that do not
// read their answers, and for a load that takes long.
void Server::Drain() {
  if (stopping_) return;
  stopping_ = true;
  end_by_ = client::Deadline::After(limits_.drain);
  NotifyStopping();
  IgnoreSignals();
  if (listener_) listener_->Finish();
  if (!listener_ || limits_.drain.count() == 0) return EndLoop();
  uv_update_time(&loop_);  // the loop's idea of now may be as old as this round of it
  uv_timer_start(
      &drain_timer_, [](uv_timer_t* timer) { ServerOf(timer)->EndLoop(); },
      static_cast<std::uint64_t>(limits_.drain.count()), 0);
  clients_->Finish();
}

// The C library keeps memory that is free between blocks that are not. It is given back when the
// clients' threads have ended too, and once for many clients.
void Server::TrimMemorySoon() {
  constexpr std::uint64_t kMilliseconds = 500;
  uv_timer_start(
      &trim_timer_, [](uv_timer_t*) { malloc_trim(0); }, kMilliseconds, 0);
}

// Signals are still taken, and nothing comes of them: a second one must not cut the end short.
void Server::IgnoreSignals() {
  for (uv_signal_t* handle : {&terminate_, &interrupt_, &hang_up_})
    uv_unref(reinterpret_cast<uv_handle_t*>(handle));
}

// All connections end before the service waits for their threads, so that they end at the same time.
void Server::EndLoop() {
  clients_->AbandonAll();
  CloseHandle(drain_timer_);
  uv_unref(reinterpret_cast<uv_handle_t*>(&all_gone_));
}

}  // namespace valmere::host
