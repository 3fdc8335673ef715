// The driver knows no half-closed session: closing a handle drops the replies that are still under
// way. So when a client's bytes end, the session is ended by a message, behind everything that the
// client asked for: the service answers that first, the pump delivers it and then sees the end.
// A program that pipes a frame into the socket and waits for the answer counts on this.
//
// Limits cost a client that keeps them nothing: the timers run only while a frame is incomplete or
// something waits for the client, and the pump wakes the loop only when the socket takes no more.
#include "host/socket/client_bridge.h"

#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <exception>
#include <stdexcept>
#include <string>
#include <utility>

#include "host/system/report.h"
#include "protocol/wire/message_frame.h"

namespace valmere::host {
namespace {

// More than the kernel keeps for a socket by default.
constexpr std::size_t kMostDrainedBytes = 262144;

std::string DisconnectFrame() {
  std::string frame;
  BeginFrame(frame);
  frame += R"({"Disconnect": true})";
  EndFrame(frame);
  return frame;
}

// The process at the other end, as it was when the connection was made.
std::string DescribePeer(int socket) {
  ucred peer{};
  socklen_t size = sizeof(peer);
  if (getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0) return "unknown peer";
  return "pid " + std::to_string(peer.pid) + ", uid " + std::to_string(peer.uid);
}

void StartTimer(uv_timer_t& timer, uv_timer_cb callback, std::chrono::milliseconds delay) {
  uv_update_time(timer.loop);  // the loop's idea of now may be as old as this round of it
  uv_timer_start(&timer, callback, static_cast<std::uint64_t>(delay.count()), 0);
}

bool IsActive(const uv_timer_t& timer) {
  return uv_is_active(reinterpret_cast<const uv_handle_t*>(&timer)) != 0;
}

}  // namespace

ClientBridge::ClientBridge(const Environment& environment, int socket, Events events)
    : driver_(environment.driver),
      limits_(environment.limits),
      socket_(socket),
      handle_(driver_.Open()),
      scratch_(environment.scratch),
      events_(std::move(events)),
      outbox_(socket, limits_.unread_bytes, events_.pump_event) {
  const int result = uv_poll_init(&environment.loop, &poll_, socket_);
  if (result != 0) {
    driver_.Close(handle_);
    throw std::runtime_error(uv_strerror(result));
  }
  uv_timer_init(&environment.loop, &frame_timer_);
  uv_timer_init(&environment.loop, &unread_timer_);
  poll_.data = frame_timer_.data = unread_timer_.data = this;
  open_handles_ = 3;
  UpdatePoll();
}

ClientBridge::~ClientBridge() {
  close(socket_);
}

void ClientBridge::OnPoll(uv_poll_t* poll, int status, int events) {
  auto& self = *static_cast<ClientBridge*>(poll->data);
  self.CloseOnError([&] {
    if (status != 0) return self.DrainAndClose();
    if ((events & UV_WRITABLE) != 0) self.SendWaiting();
    if ((events & UV_READABLE) != 0 && self.reading_ && !self.closing_) self.ReadOnce();
  });
}

template <void (ClientBridge::*act)()>
void ClientBridge::OnTimer(uv_timer_t* timer) {
  auto& self = *static_cast<ClientBridge*>(timer->data);
  self.CloseOnError([&] { (self.*act)(); });
}

// The loop is C and must not meet an exception.
template <class Action>
void ClientBridge::CloseOnError(Action action) {
  try {
    action();
  } catch (const std::exception& error) {
    TryReport([&] { return "handle " + std::to_string(handle_) + ": " + error.what(); },
              ReportClient);
    Close();
  }
}

// One read each time that the socket becomes readable: no client holds up the others.
void ClientBridge::ReadOnce() {
  const ssize_t count = recv(socket_, scratch_.data(), scratch_.size(), 0);
  if (count > 0) {
    if (!Forward(scratch_.first(static_cast<std::size_t>(count)))) Close();
  } else if (count == 0) {
    ClientFinished();
  } else if (errno != EAGAIN && errno != EINTR) {
    Close();
  }
}

// What has come is taken for the last; the client may go on sending, so there is an end to that.
// False when the driver refuses it.
bool ClientBridge::ReadRest() {
  for (std::size_t taken = 0; taken < kMostDrainedBytes;) {
    const ssize_t count = recv(socket_, scratch_.data(), scratch_.size(), 0);
    if (count <= 0) break;
    if (!Forward(scratch_.first(static_cast<std::size_t>(count)))) return false;
    taken += static_cast<std::size_t>(count);
  }
  return true;
}

// The client takes nothing any more; what it had sent before still counts.
void ClientBridge::DrainAndClose() {
  ReadRest();
  Close();
}

bool ClientBridge::Forward(std::span<const unsigned char> bytes) {
  bool passed = false;
  assembler_.Add(bytes);
  while (const auto piece = assembler_.Next()) {
    if (!WriteToDriver(*piece)) return false;
    passed = true;
  }
  UpdateFrameTimer(passed);
  return true;
}

bool ClientBridge::WriteToDriver(std::span<const unsigned char> piece) {
  if (!driver_.Write(handle_, piece)) return false;
  if (pump_ == nullptr)
    pump_ = std::make_unique<ReplyPump>(driver_, handle_, outbox_, events_.pump_event);
  return true;
}

// `passed`: a frame was completed, so what is kept now has only just begun.
void ClientBridge::UpdateFrameTimer(bool passed) {
  if (assembler_.kept() == 0) {
    if (IsActive(frame_timer_)) uv_timer_stop(&frame_timer_);
  } else if (passed || !IsActive(frame_timer_)) {
    StartTimer(frame_timer_, &OnTimer<&ClientBridge::FrameOverdue>, limits_.frame);
  }
}

void ClientBridge::ClientFinished() {
  reading_ = false;
  uv_timer_stop(&frame_timer_);
  UpdatePoll();
  // A session that was never begun has no replies; one that left the framing can't be given a
  // message.
  if (pump_ == nullptr || !assembler_.in_frames()) return Close();
  static const std::string frame = DisconnectFrame();
  const auto* bytes = reinterpret_cast<const unsigned char*>(frame.data());
  if (!driver_.Write(handle_, {bytes, frame.size()})) Close();
}

void ClientBridge::Finish() {
  if (closing_ || !reading_) return;
  CloseOnError([this] { ReadRest() ? ClientFinished() : Close(); });
}

void ClientBridge::HandlePumpEvent() {
  if (closing_ || pump_ == nullptr) return;
  CloseOnError([this] { CheckPump(); });
}

void ClientBridge::CheckPump() {
  switch (pump_->end()) {
    case ReplyPump::End::kNotYet:
      break;
    case ReplyPump::End::kSessionEnded:
      session_ended_ = true;
      reading_ = false;
      uv_timer_stop(&frame_timer_);
      break;
    case ReplyPump::End::kClientGone:
      return DrainAndClose();
    case ReplyPump::End::kTooMuchUnread:
      return CloseFor("it left more than " + std::to_string(limits_.unread_bytes) +
                      " bytes unread");
    case ReplyPump::End::kFailed:
      return Close();
  }
  UpdateSending();
}

void ClientBridge::SendWaiting() {
  if (outbox_.Flush())
    UpdateSending();
  else
    DrainAndClose();
}

// The session is over for the client once it has got everything.
void ClientBridge::UpdateSending() {
  const auto since = outbox_.waiting_since();
  if (!since && session_ended_) return Close();
  sending_ = since.has_value();
  UpdatePoll();
  if (!sending_)
    uv_timer_stop(&unread_timer_);
  else if (!IsActive(unread_timer_))
    StartTimer(unread_timer_, &OnTimer<&ClientBridge::CheckUnread>, limits_.unread);
}

void ClientBridge::UpdatePoll() {
  const int events = (reading_ ? UV_READABLE : 0) | (sending_ ? UV_WRITABLE : 0);
  if (events == polled_) return;
  polled_ = events;
  if (events != 0)
    uv_poll_start(&poll_, events, &ClientBridge::OnPoll);
  else
    uv_poll_stop(&poll_);
}

void ClientBridge::FrameOverdue() {
  CloseFor("the rest of a frame did not come within " + Seconds(limits_.frame));
}

// What waited when the timer was started may be gone and something younger be waiting.
void ClientBridge::CheckUnread() {
  using std::chrono::ceil;
  using std::chrono::milliseconds;
  const auto since = outbox_.waiting_since();
  if (!since) return;
  const auto age = Outbox::Clock::now() - *since;
  if (age >= limits_.unread) return CloseFor("it left bytes unread for " + Seconds(limits_.unread));
  StartTimer(unread_timer_, &OnTimer<&ClientBridge::CheckUnread>,
             ceil<milliseconds>(limits_.unread - age));
}

void ClientBridge::CloseFor(const std::string& cause) {
  ReportClient("handle " + std::to_string(handle_) + " (" + DescribePeer(socket_) +
               "): closed: " + cause);
  Close();
}

void ClientBridge::BeginClose() {
  if (close_begun_) return;
  close_begun_ = true;
  // In this order: a pump that is in the middle of a frame when the handle goes reads nothing more
  // into it, and must not get that out to the client.
  shutdown(socket_, SHUT_RDWR);
  driver_.Close(handle_);  // wakes a pump that waits for the driver
}

void ClientBridge::Close() {
  if (closing_) return;
  closing_ = true;
  BeginClose();
  pump_.reset();
  uv_close(reinterpret_cast<uv_handle_t*>(&poll_), &ClientBridge::OnHandleClosed);
  uv_close(reinterpret_cast<uv_handle_t*>(&frame_timer_), &ClientBridge::OnHandleClosed);
  uv_close(reinterpret_cast<uv_handle_t*>(&unread_timer_), &ClientBridge::OnHandleClosed);
}

void ClientBridge::OnHandleClosed(uv_handle_t* handle) {
  auto& self = *static_cast<ClientBridge*>(handle->data);
  if (--self.open_handles_ == 0) self.events_.closed();
}

}  // namespace valmere::host
