// What the socket does not take is kept here, where its bytes and its age are known. A client that
// reads costs one send a frame and nothing else.
//
// What always holds while the lock is free:
// (1) Every frame in the list has a byte that was not sent; frames leave in the order in which they
//     came, and none is sent past one that waits.
// (2) waiting_count_ is the length of the list, answers_ the answers in it.
// (3) news_ and of_others_ are the sums of what is left of either; news_ is charged to the account.
// (4) Once abandoned the list is empty and stays so.
#include "host/socket/outbox.h"

#include <sys/socket.h>
#include <sys/uio.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <memory>
#include <string>

namespace valmere::host {
namespace {

// What one Flush hands to the kernel at most: other clients wait for the thread that flushes.
constexpr std::size_t kMostFramesAtOnce = 64;
constexpr std::size_t kMostBytesAtOnce = 262144;

// What others send waits elsewhere beyond this, so that a flood of theirs is not kept here.
constexpr std::size_t kRoomForOthers = std::size_t{1} << 20;

}  // namespace

Outbox::Outbox(int socket, std::size_t most_unread, ClientAccount& account)
    : socket_(socket), most_unread_(most_unread), account_(account) {}

Outbox::~Outbox() {
  Abandon();
}

Outbox::Sent Outbox::Send(const Frame& frame, Kind kind, std::chrono::milliseconds now) {
  const client::MutexLock hold(lock_);
  if (abandoned_) return Sent::kGone;
  std::size_t sent = 0;
  if (waiting_.empty()) {
    if (!SendNow(frame.bytes, sent)) return Sent::kGone;
    if (sent == frame.bytes.size()) return Sent::kWhole;
  } else if (const Sent verdict = Judge(frame.bytes.size(), kind); verdict != Sent::kWaits) {
    return verdict;
  }
  Keep(frame, sent, kind, now);
  return Sent::kWaits;
}

bool Outbox::SendNow(std::string_view bytes, std::size_t& sent) const {
  while (sent < bytes.size()) {
    const ssize_t count =
        send(socket_, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL | MSG_DONTWAIT);
    if (count >= 0)
      sent += static_cast<std::size_t>(count);
    else if (errno == EAGAIN)
      break;
    else if (errno != EINTR)
      return false;
  }
  return true;
}

Outbox::Sent Outbox::Judge(std::size_t bytes, Kind kind) const {
  if (kind == Kind::kForOther && !HasRoom()) return Sent::kNoRoom;
  if (kind != Kind::kNews) return Sent::kWaits;
  const bool fits = news_ + bytes <= most_unread_ && account_.used() + bytes <= account_.most();
  return fits ? Sent::kWaits : Sent::kTooMuch;
}

bool Outbox::HasRoom() const {
  const std::size_t unread = news_ + of_others_;
  return unread == 0 || unread < std::min(most_unread_, kRoomForOthers);
}

void Outbox::Keep(const Frame& frame, std::size_t sent, Kind kind, std::chrono::milliseconds now) {
  if (frame.shared != nullptr)
    waiting_.push_back({*frame.shared, sent, kind, now});
  else
    waiting_.push_back(
        {std::make_shared<const std::string>(frame.bytes.substr(sent)), 0, kind, now});
  waiting_count_.store(waiting_.size());
  const std::size_t left = waiting_.back().left();
  if (kind == Kind::kAnswer) {
    answers_.fetch_add(1);
  } else if (kind == Kind::kForOther) {
    of_others_ += left;
  } else {
    news_ += left;
    account_.Charge(left);
  }
}

// One system call for many small frames, and no more than a part of a long one. The kernel goes on
// as long as a client reads as fast as is sent, so the part needs a limit.
bool Outbox::Flush() {
  const client::MutexLock hold(lock_);
  if (waiting_.empty()) return !abandoned_;
  std::array<iovec, kMostFramesAtOnce> parts;
  std::size_t count = 0;
  std::size_t room = kMostBytesAtOnce;
  for (const Waiting& waiting : waiting_) {
    if (count == parts.size() || room == 0) break;
    const std::size_t bytes = std::min(room, waiting.left());
    parts[count++] = {const_cast<char*>(waiting.frame->data()) + waiting.sent, bytes};
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
  while (bytes > 0) {
    Waiting& oldest = waiting_.front();
    const std::size_t part = std::min(bytes, oldest.left());
    Discount(oldest, part);
    oldest.sent += part;
    bytes -= part;
    if (oldest.left() != 0) break;
    if (oldest.kind == Kind::kAnswer) answers_.fetch_sub(1);
    waiting_.pop_front();
  }
  waiting_count_.store(waiting_.size());
}

void Outbox::Discount(const Waiting& waiting, std::size_t bytes) {
  if (waiting.kind == Kind::kAnswer) return;
  const bool had_room = HasRoom();
  if (waiting.kind == Kind::kForOther) {
    of_others_ -= bytes;
  } else {
    news_ -= bytes;
    account_.Release(bytes);
  }
  if (!had_room && HasRoom()) room_.notify_all();
}

void Outbox::Abandon() {
  std::list<Waiting> dropped;  // released after the lock
  const client::MutexLock hold(lock_);
  abandoned_ = true;
  dropped.swap(waiting_);
  account_.Release(news_);
  news_ = of_others_ = 0;
  waiting_count_.store(0);
  answers_.store(0);
  room_.notify_all();
}

bool Outbox::AwaitRoom(client::Deadline deadline) {
  client::MutexLock hold(lock_);
  return hold.WaitUntil(room_, deadline, [this]() REQUIRES(lock_) { return HasRoom(); });
}

std::optional<std::chrono::milliseconds> Outbox::waiting_since() const {
  const client::MutexLock hold(lock_);
  if (waiting_.empty()) return std::nullopt;
  return waiting_.front().since;
}

}  // namespace valmere::host
