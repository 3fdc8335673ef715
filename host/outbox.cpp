// The pump has to go on reading the driver whatever its client does: what it left there would grow
// without a bound and nobody could tell. So it never waits for the socket, and what the socket does
// not take is kept here, where its bytes and its age are known. A client that reads costs one send a
// frame and nothing else.
#include "host/outbox.h"

#include <sys/socket.h>
#include <sys/uio.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <utility>

namespace valmere::host {
namespace {

// Frames that one Flush hands to the kernel at most.
constexpr std::size_t kFlushedAtOnce = 64;

}  // namespace

Outbox::Outbox(int socket, std::size_t limit, std::function<void()> backed_up)
    : socket_(socket), limit_(limit), backed_up_(std::move(backed_up)) {}

Outbox::Sent Outbox::Send(FrameBuffer& frame) {
  {
    const std::lock_guard hold(lock_);
    const bool first = waiting_.empty();
    std::size_t sent = 0;
    while (first && sent < frame.size()) {
      const ssize_t count =
          send(socket_, frame.data() + sent, frame.size() - sent, MSG_NOSIGNAL | MSG_DONTWAIT);
      if (count >= 0)
        sent += static_cast<std::size_t>(count);
      else if (errno == EAGAIN)
        break;
      else if (errno != EINTR)
        return Sent::kClientGone;
    }
    if (sent == frame.size()) return Sent::kTaken;
    if (!first && frame.size() > limit_ - std::min(limit_, waiting_bytes_)) return Sent::kTooMuch;
    waiting_bytes_ += frame.size() - sent;
    Waiting& last = waiting_.emplace_back();
    last.frame = frame.Take();
    last.sent = sent;
    last.since = Clock::now();
    if (!first) return Sent::kTaken;
  }
  backed_up_();
  return Sent::kTaken;
}

// One system call for many small frames, and no second one for a long frame: the loop has others to
// serve, and hears when the socket takes more.
bool Outbox::Flush() {
  const std::lock_guard hold(lock_);
  if (waiting_.empty()) return true;
  std::array<iovec, kFlushedAtOnce> parts;
  std::size_t count = 0;
  for (Waiting& waiting : waiting_) {
    if (count == parts.size()) break;
    parts[count++] = {waiting.frame.data() + waiting.sent, waiting.frame.size() - waiting.sent};
  }
  msghdr message{};
  message.msg_iov = parts.data();
  message.msg_iovlen = count;
  const ssize_t sent = sendmsg(socket_, &message, MSG_NOSIGNAL | MSG_DONTWAIT);
  if (sent < 0) return errno == EAGAIN || errno == EINTR;
  Took(static_cast<std::size_t>(sent));
  return true;
}

void Outbox::Took(std::size_t bytes) {
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
  const std::lock_guard hold(lock_);
  if (waiting_.empty()) return std::nullopt;
  return waiting_.front().since;
}

}  // namespace valmere::host
