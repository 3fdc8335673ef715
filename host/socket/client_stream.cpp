// An ordinary request costs one recv, which takes all of it, and one send. A text that is longer
// than the buffer is received where it is wanted.
#include "host/socket/client_stream.h"

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <exception>
#include <span>
#include <utility>

#include "client/deadline.h"
#include "host/system/report.h"

namespace valmere::host {
namespace {

bool Await(int socket, short events, int milliseconds) {
  pollfd awaited{socket, events, 0};
  return poll(&awaited, 1, milliseconds) > 0;
}

}  // namespace

ClientStream::ClientStream(platform::Descriptor socket, Peer peer, Clients::Place place,
                           std::shared_ptr<Clients> clients, UnreadWatch& watch)
    : clients_(std::move(clients)),
      place_(std::move(place)),
      socket_(std::move(socket)),
      peer_(std::move(peer)),
      watch_(watch),
      account_(limits().client_memory),
      outbox_(socket_.get(), limits().unread_bytes, account_) {
  clients_->Enlist(*this);
}

ClientStream::~ClientStream() {
  clients_->Strike(*this);
  DropUnread();
}

// A TCP socket that is closed with unread bytes drops what the client has not been sent yet. A client
// that goes on sending is not listened to for ever.
void ClientStream::DropUnread() {
  constexpr int kMostReads = 4096;
  for (int i = 0; i < kMostReads; ++i)
    if (recv(socket_.get(), buffer_.data(), buffer_.size(), MSG_DONTWAIT) < 1) return;
}

int ClientStream::Read(void* buffer, int length) {
  if (length < 1) return 0;
  reader_.store(std::this_thread::get_id(), std::memory_order_relaxed);
  if (position_.at_start()) AwaitAnswersTaken();
  if (closed_) return kGone;
  if (buffered_begin_ == buffered_end_) {
    const auto wanted = static_cast<std::size_t>(length);
    const bool direct = wanted >= buffer_.size();
    const int count = direct ? Receive(buffer, wanted) : Receive(buffer_.data(), buffer_.size());
    if (count < 1) return kGone;
    if (direct) {
      Advance(buffer, count);
      return count;
    }
    buffered_begin_ = 0;
    buffered_end_ = static_cast<std::size_t>(count);
  }
  return TakeBuffered(buffer, length);
}

int ClientStream::TakeBuffered(void* buffer, int length) {
  const std::size_t count =
      std::min(static_cast<std::size_t>(length), buffered_end_ - buffered_begin_);
  std::memcpy(buffer, buffer_.data() + buffered_begin_, count);
  buffered_begin_ += count;
  Advance(buffer, static_cast<int>(count));
  return static_cast<int>(count);
}

void ClientStream::Advance(const void* bytes, int count) {
  position_.Advance({static_cast<const unsigned char*>(bytes), static_cast<std::size_t>(count)});
  if (position_.at_start()) frame_patience_.reset();
}

// Between frames it waits in the call that receives; within one, only as long as a frame may take.
int ClientStream::Receive(void* buffer, std::size_t length) {
  for (;;) {
    const int flags = position_.at_start() ? 0 : MSG_DONTWAIT;
    const ssize_t count = recv(socket_.get(), buffer, length, flags);
    if (closed_) return kGone;
    if (count > 0) return IsUnframedForTooLong() ? kGone : static_cast<int>(count);
    if (count == 0) return kGone;
    if (errno == EINTR) continue;
    if (errno != EAGAIN || !AwaitBytes()) return kGone;
  }
}

bool ClientStream::AwaitBytes() {
  if (!frame_patience_) frame_patience_.emplace(limits().frame);
  const bool ready = frame_patience_->Spend(
      [this](int milliseconds) { return Await(socket_.get(), POLLIN, milliseconds); });
  if (ready || !frame_patience_->over()) return true;
  CloseFor(position_.unframed()
               ? "its bytes are no frames"
               : "the rest of a frame did not come within " + Seconds(limits().frame));
  return false;
}

// A client that goes on sending other bytes is never waited for.
bool ClientStream::IsUnframedForTooLong() {
  if (!position_.unframed()) return false;
  const auto now = std::chrono::steady_clock::now();
  if (!unframed_since_) unframed_since_ = now;
  if (now - *unframed_since_ < limits().frame) return false;
  CloseFor("its bytes are no frames");
  return true;
}

// The reader sends its own answers, so a long one needs no other thread.
void ClientStream::AwaitAnswersTaken() {
  if (!outbox_.has_answer()) return;
  Patience patience(limits().unread);
  while (outbox_.has_answer() && !closed_) {
    const bool ready = patience.Spend(
        [this](int milliseconds) { return Await(socket_.get(), POLLOUT, milliseconds); });
    if (ready) SendWaiting();
    if (!ready && patience.over()) CloseOverdue();
  }
}

bool ClientStream::IsReader() const {
  return reader_.load(std::memory_order_relaxed) == std::this_thread::get_id();
}

Outbox::Kind ClientStream::KindOfWrite() const {
  return IsReader() ? Outbox::Kind::kAnswer : Outbox::Kind::kNews;
}

int ClientStream::Write(const void* buffer, int length) {
  if (length < 1) return 0;
  return Send({{static_cast<const char*>(buffer), static_cast<std::size_t>(length)}},
              KindOfWrite());
}

int ClientStream::WriteShared(const SharedFrame& frame, EventFlags::PendingWake& /*wake*/) {
  return Send({*frame, &frame}, KindOfWrite());
}

int ClientStream::WriteForOther(const SharedFrame& frame, EventFlags::PendingWake& /*wake*/) {
  return Send({*frame, &frame}, Outbox::Kind::kForOther);
}

// Without memory to keep the rest of a frame, or to say why the client is closed, it is closed.
int ClientStream::Send(const Outbox::Frame& frame, Outbox::Kind kind) {
  try {
    return SendOrClose(frame, kind);
  } catch (const std::exception&) {
    Abandon();
    throw;
  }
}

int ClientStream::SendOrClose(const Outbox::Frame& frame, Outbox::Kind kind) {
  const int length = static_cast<int>(frame.bytes.size());
  if (closed_) return kGone;
  if (gone_) return length;
  switch (outbox_.Send(frame, kind, watch_.time())) {
    case Outbox::Sent::kWhole:
      break;
    case Outbox::Sent::kWaits:
      if (kind != Outbox::Kind::kAnswer) watch_.Add(shared_from_this());
      break;
    case Outbox::Sent::kGone:
      GiveUpSending();
      break;
    case Outbox::Sent::kNoRoom:
      return kNoRoom;
    case Outbox::Sent::kTooMuch:
      CloseFor("it left more than " +
               std::to_string(std::min(limits().unread_bytes, limits().client_memory)) +
               " bytes unread");
      return kGone;
  }
  return length;
}

// A client that is there all the same, because only the kernel's memory was short, is shown the end:
// it would wait for an answer that does not come.
void ClientStream::GiveUpSending() {
  gone_ = true;
  shutdown(socket_.get(), SHUT_WR);
}

bool ClientStream::AwaitRoom(platform::Ticks deadline) {
  constexpr platform::Ticks kTicksPerMillisecond = platform::kTicksPerMillisecond;
  const platform::Ticks left = std::max<platform::Ticks>(deadline - platform::MonotonicNow(), 0);
  return outbox_.AwaitRoom(
      client::Deadline::After(std::chrono::milliseconds(left / kTicksPerMillisecond)));
}

bool ClientStream::SendWaiting() {
  if (!outbox_.Flush()) {
    GiveUpSending();
    outbox_.Abandon();
  }
  if (HasWaiting()) return true;
  if (closed_) shutdown(socket_.get(), SHUT_RDWR);
  return false;
}

bool ClientStream::IsOverdue(std::chrono::milliseconds now) const {
  const auto since = outbox_.waiting_since();
  return since && now - *since >= limits().unread;
}

void ClientStream::CloseOverdue() {
  CloseFor("it left bytes unread for " + Seconds(limits().unread));
}

// The end is shown to the client behind the last byte that waits for it, unless the whole service
// ends: then another thread closes it, and the reader must not wait for the client any more.
void ClientStream::Close() {
  if (closed_.exchange(true)) return;
  if (HasWaiting() && IsReader()) {
    shutdown(socket_.get(), SHUT_RD);
    watch_.Add(shared_from_this());
  } else {
    Abandon();
  }
}

void ClientStream::Finish() {
  shutdown(socket_.get(), SHUT_RD);
}

void ClientStream::Abandon() {
  closed_ = true;
  outbox_.Abandon();
  shutdown(socket_.get(), SHUT_RDWR);
}

void ClientStream::ExplainEnd(std::string_view cause) {
  if (closed_) return;
  TryReport(
      [&] {
        return "client " + std::to_string(instance_number()) + " (" + peer_.text +
               "): closed: " + std::string(cause);
      },
      ReportClient);
}

void ClientStream::CloseFor(std::string_view cause) {
  ExplainEnd(cause);
  Abandon();
}

}  // namespace valmere::host
