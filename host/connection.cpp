// The driver knows no half-closed session: closing a handle drops the replies that are still under
// way. So when a client's bytes end, the session is ended by a message, behind everything that the
// client asked for: the service answers that first, the pump delivers it and then sees the end.
// This is what someone expects who pipes a frame into the socket and waits for the answer.
#include "host/connection.h"

#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <exception>
#include <stdexcept>
#include <string>
#include <utility>

#include "protocol/message_frame.h"

namespace valmere::host {
namespace {

std::string DisconnectFrame() {
  std::string frame;
  BeginFrame(frame);
  frame += R"({"Disconnect": true})";
  EndFrame(frame);
  return frame;
}

}  // namespace

Connection::Connection(uv_loop_t& loop, const DriverLibrary& driver, int socket,
                       std::span<unsigned char> scratch, Events events)
    : driver_(driver),
      socket_(socket),
      handle_(driver.Open()),
      scratch_(scratch),
      events_(std::move(events)) {
  const int result = uv_poll_init(&loop, &poll_, socket_);
  if (result != 0) {
    driver_.Close(handle_);
    close(socket_);
    throw std::runtime_error(uv_strerror(result));
  }
  poll_.data = this;
  uv_poll_start(&poll_, UV_READABLE, &Connection::OnPoll);
}

Connection::~Connection() {
  close(socket_);
}

void Connection::OnPoll(uv_poll_t* poll, int status, int) {
  auto& self = *static_cast<Connection*>(poll->data);
  try {
    if (status == 0)
      self.ReadOnce();
    else
      self.DrainAndClose();
  } catch (const std::exception& error) {  // the loop is C and must not meet it
    std::fprintf(stderr, "valmered: handle %u: %s\n", static_cast<unsigned>(self.handle_),
                 error.what());
    self.Close();
  }
}

// One read for each time that the socket becomes readable: no client holds up the others.
void Connection::ReadOnce() {
  const ssize_t count = recv(socket_, scratch_.data(), scratch_.size(), 0);
  if (count > 0) {
    if (!PassOn(scratch_.first(static_cast<std::size_t>(count)))) Close();
  } else if (count == 0) {
    ClientFinished();
  } else if (errno != EAGAIN && errno != EINTR) {
    Close();
  }
}

// The client went away with replies unread; what it had sent before still counts.
void Connection::DrainAndClose() {
  for (;;) {
    const ssize_t count = recv(socket_, scratch_.data(), scratch_.size(), 0);
    if (count <= 0 || !PassOn(scratch_.first(static_cast<std::size_t>(count)))) break;
  }
  Close();
}

bool Connection::PassOn(std::span<const unsigned char> bytes) {
  assembler_.Add(bytes);
  while (const auto piece = assembler_.Next()) {
    if (!WriteToDriver(*piece)) return false;
  }
  return true;
}

bool Connection::WriteToDriver(std::span<const unsigned char> piece) {
  if (!driver_.Write(handle_, piece)) return false;
  if (pump_ == nullptr)
    pump_ = std::make_unique<ReplyPump>(driver_, handle_, socket_, events_.pump_ended);
  return true;
}

void Connection::ClientFinished() {
  uv_poll_stop(&poll_);
  // A session that was never begun has no replies; one that left the framing can't be given a
  // message.
  if (pump_ == nullptr || !assembler_.in_frames()) return Close();
  static const std::string frame = DisconnectFrame();
  const auto* bytes = reinterpret_cast<const unsigned char*>(frame.data());
  if (!driver_.Write(handle_, {bytes, frame.size()})) Close();
}

void Connection::BeginClose() {
  if (close_begun_) return;
  close_begun_ = true;
  driver_.Close(handle_);        // wakes a pump that waits for the driver
  shutdown(socket_, SHUT_RDWR);  // wakes a pump that waits for the client
}

void Connection::Close() {
  if (closing_) return;
  closing_ = true;
  BeginClose();
  pump_.reset();
  uv_close(reinterpret_cast<uv_handle_t*>(&poll_),
           [](uv_handle_t* handle) { static_cast<Connection*>(handle->data)->events_.closed(); });
}

}  // namespace valmere::host
