// The pump has to go on reading the driver whatever its client does: what it left there would grow
// without a bound, unseen. So it never waits for the socket, and what the socket does not take is
// kept here, where its bytes and its age are known. A client that reads costs one send a frame and
// nothing else.
#include "host/socket/outbox.h"

#include <sys/socket.h>
#include <sys/uio.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <utility>

namespace valmere::host {
namespace {

// What one Flush hands to the kernel at most.
constexpr std::size_t kMostFramesAtOnce = 64;
constexpr std::size_t kMostBytesAtOnce = 262144;

}  // namespace

Outbox::Outbox(int socket, std::size_t limit, std::function<void()> backed_up)
    : socket_(socket), limit_(limit), backed_up_(std::move(backed_up)) {}

// Without the lock while the socket takes it: with a client that reads as fast as is sent, the loop
// would wait for the lock. No other thread sends as long as nothing waits.
Outbox::Sent Outbox::Send(FrameBuffer& frame) {
  std::size_t sent = 0;
  if (!waiting_since() && !SendNow(frame, sent)) return Sent::kClientGone;
  return sent == frame.size() ? Sent::kTaken : Enqueue(frame, sent);
}

bool Outbox::SendNow(const FrameBuffer& frame, std::size_t& sent) const {
  while (sent < frame.size()) {
    const ssize_t count =
        send(socket_, frame.data() + sent, frame.size() - sent, MSG_NOSIGNAL | MSG_DONTWAIT);
    if (count >= 0)
      sent += static_cast<std::size_t>(count);
    else if (errno == EAGAIN)
      break;
    else if (errno != EINTR)
      return false;
  }
  return true;
}

Outbox::Sent Outbox::Enqueue(FrameBuffer& frame, std::size_t sent) {
  bool first = false;
  {
    const client::MutexLock hold(lock_);
    first = waiting_.empty();
    if (!first && frame.size() > limit_ - std::min(limit_, waiting_bytes_)) return Sent::kTooMuch;
    waiting_bytes_ += frame.size() - sent;
    Waiting& last = waiting_.emplace_back();
    last.frame = frame.Take();
    last.sent = sent;
    last.since = Clock::now();
  }
  if (first) backed_up_();
  return Sent::kTaken;
}

// One system call for many small frames, and no more than a part of a long one: the loop has other
// clients to serve, and is woken when the socket takes more. The kernel goes on as long as a client
// reads as fast as is sent, so the part needs a limit.
bool Outbox::Flush() {
  const client::MutexLock hold(lock_);
  if (waiting_.empty()) return true;
  std::array<iovec, kMostFramesAtOnce> parts;
  std::size_t count = 0;
  std::size_t room = kMostBytesAtOnce;
  for (Waiting& waiting : waiting_) {
    if (count == parts.size() || room == 0) break;
    const std::size_t bytes = std::min(room, waiting.frame.size() - waiting.sent);
    parts[count++] = {waiting.frame.data() + waiting.sent, bytes};
    room -= bytes;
  }
  msghdr message{};
  message.msg_iov = parts.data();
  message.msg_iovlen = count;
  const ssize_t sent = sendmsg(socket_, &message, MSG_NOSIGNAL | MSG_DONTWAIT);
  if (sent < 0) return errno == EAGAIN || errno == EINTR;
  MarkSent(static_cast<std::size_t>(sent));
  return true;
}

void Outbox::MarkSent(std::size_t bytes) {
  waiting_bytes_ -= bytes;
  while (bytes > 0) {
    Waiting& oldest = waiting_.front();
    const std::size_t part = std::min(bytes, oldest.frame.size() - oldest.sent);
    oldest.sent += part;
    bytes -= part;
    if (oldest.sent == oldest.frame.size()) waiting_.pop_front();
  }
}

std::optional<Outbox::Clock::time_point> Outbox::waiting_since() const {
  const client::MutexLock hold(lock_);
  if (waiting_.empty()) return std::nullopt;
  return waiting_.front().since;
}

}  // namespace valmere::host
