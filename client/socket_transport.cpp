// The socket is read into one buffer that is kept, so that a frame usually costs one wait and one
// read. An event descriptor is waited for beside the socket: unlike a signal that breaks a system
// call, it can't come just too early and be missed. The thread that ends the connection shuts the
// socket down, which wakes the threads that wait for it. The socket is closed with the transport:
// its number must not become another file's while a thread still uses it.
#include "client/socket_transport.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstring>
#include <optional>
#include <system_error>
#include <utility>
#include <vector>

#include "client/mutex.h"
#include "protocol/wire/message_frame.h"

namespace valmere::client {
namespace {

constexpr std::size_t kReadBytes = 65536;
// The service sends replies of any length; a frame that is longer than this is no reply.
constexpr std::uint32_t kLongestReply = 0x40000000;

std::string TextOf(int error) {
  return std::error_code(error, std::generic_category()).message();
}

Error Timeout(const char* what) {
  return {ErrorKind::kTimeout, std::string("time-out ") + what};
}

Error ConnectionLost(const std::string& why) {
  return {ErrorKind::kConnectionLost, "connection lost: " + why};
}

// The error for an end by the service depends on the call that sees it first.
Error LostBy(int error) {
  const bool ended = error == 0 || error == EPIPE || error == ECONNRESET;
  return ConnectionLost(ended ? "the service ended it" : TextOf(error));
}

int PollTime(Deadline deadline) {
  if (deadline.never()) return -1;
  return static_cast<int>(std::min<std::int64_t>(deadline.left().count(), INT_MAX));
}

// Owns a file descriptor.
class Descriptor {
 public:
  explicit Descriptor(int value) : value_(value) {}
  ~Descriptor() {
    if (value_ >= 0) close(value_);
  }
  Descriptor(Descriptor&& other) noexcept : value_(std::exchange(other.value_, -1)) {}
  Descriptor& operator=(Descriptor&&) = delete;

  int get() const { return value_; }

 private:
  int value_;
};

class SocketTransport final : public Transport {
 public:
  SocketTransport(Descriptor socket, Descriptor interrupt)
      : socket_(std::move(socket)), interrupt_(std::move(interrupt)), buffer_(kReadBytes) {}

  Result<void> Send(std::string_view frame, Deadline deadline) override;
  Result<void> Receive(std::string& text, Deadline deadline) override;
  void Interrupt() noexcept override;
  void Close() override { End(ConnectionLost("closed")); }

 private:
  void End(const Error& why);
  std::optional<Error> end() const;
  Result<void> WaitForRoom(Deadline deadline) const;
  bool TakeInterruption() const;
  Result<void> WaitForBytes(Deadline deadline);
  Result<void> ReadBytes();
  Result<std::size_t> FrameBytes() const;
  void MakeRoom(std::size_t frame_bytes);
  std::size_t held() const { return end_ - begin_; }

  const Descriptor socket_;
  const Descriptor interrupt_;

  mutable Mutex lock_;
  std::optional<Error> ended_by_ GUARDED_BY(lock_);  // what ended the connection first

  // Used by the receiving thread alone.
  std::vector<char> buffer_;  // bytes begin_ to end_ are received and not handed out
  std::size_t begin_ = 0;
  std::size_t end_ = 0;
};

void SocketTransport::End(const Error& why) {
  const MutexLock hold(lock_);
  if (ended_by_) return;
  ended_by_ = why;
  shutdown(socket_.get(), SHUT_RDWR);
}

std::optional<Error> SocketTransport::end() const {
  const MutexLock hold(lock_);
  return ended_by_;
}

Result<void> SocketTransport::Send(std::string_view frame, Deadline deadline) {
  while (!frame.empty()) {
    if (const auto ended = end()) return *ended;
    const ssize_t sent =
        send(socket_.get(), frame.data(), frame.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    if (sent >= 0) {
      frame.remove_prefix(static_cast<std::size_t>(sent));
      continue;
    }
    if (errno == EINTR) continue;
    if (errno != EAGAIN) {
      End(LostBy(errno));
      return *end();
    }
    if (Result<void> waited = WaitForRoom(deadline); !waited) {
      End(ConnectionLost("the service did not take a request to its end"));
      return waited;
    }
  }
  return {};
}

Result<void> SocketTransport::WaitForRoom(Deadline deadline) const {
  pollfd wanted[] = {{socket_.get(), POLLOUT, 0}, {interrupt_.get(), POLLIN, 0}};
  const int ready = poll(wanted, 2, PollTime(deadline));
  if (ready == 0) return Timeout("sending a request");
  if (ready < 0 && errno != EINTR) return LostBy(errno);
  if (ready > 0 && wanted[1].revents != 0 && TakeInterruption())
    return Error{ErrorKind::kInterrupted, "interrupted"};
  return {};
}

bool SocketTransport::TakeInterruption() const {
  std::uint64_t count = 0;
  return read(interrupt_.get(), &count, sizeof(count)) == sizeof(count);
}

Result<void> SocketTransport::Receive(std::string& text, Deadline deadline) {
  for (;;) {
    if (const auto ended = end()) return *ended;
    const Result<std::size_t> frame_bytes = FrameBytes();
    if (!frame_bytes) {
      End(ConnectionLost(frame_bytes.error().text));
      return frame_bytes.error();
    }
    if (*frame_bytes != 0 && held() >= *frame_bytes) {
      text.assign(buffer_.data() + begin_ + kFrameHeaderBytes, *frame_bytes - kFrameHeaderBytes);
      begin_ += *frame_bytes;
      return {};
    }
    MakeRoom(*frame_bytes);
    if (Result<void> waited = WaitForBytes(deadline); !waited) return waited;
    if (Result<void> read = ReadBytes(); !read) return read;
  }
}

// The length of the frame that the buffer begins with; 0 while its header is not complete.
Result<std::size_t> SocketTransport::FrameBytes() const {
  const auto* header = reinterpret_cast<const unsigned char*>(buffer_.data()) + begin_;
  const std::size_t compared = std::min(held(), kStreamFormatIdentifier.size());
  if (std::memcmp(header, kStreamFormatIdentifier.data(), compared) != 0)
    return Error{ErrorKind::kProtocol, "the service sent something else than a message"};
  if (held() < kFrameHeaderBytes) return std::size_t{0};
  const std::uint32_t length = DecodeLength(header + kStreamFormatIdentifier.size());
  if (length > kLongestReply)
    return Error{ErrorKind::kProtocol, "the service announced a message that is too long"};
  return kFrameHeaderBytes + length;
}

// Moves what is held to the front and makes room behind it, for the whole frame when it has begun.
void SocketTransport::MakeRoom(std::size_t frame_bytes) {
  if (begin_ > 0) {
    std::memmove(buffer_.data(), buffer_.data() + begin_, held());
    end_ -= begin_;
    begin_ = 0;
  }
  if (frame_bytes <= buffer_.size()) return;
  if (end_ == buffer_.size()) buffer_.resize(std::min(frame_bytes, 2 * buffer_.size()));
}

Result<void> SocketTransport::WaitForBytes(Deadline deadline) {
  for (;;) {
    pollfd wanted[] = {{socket_.get(), POLLIN, 0}, {interrupt_.get(), POLLIN, 0}};
    const int ready = poll(wanted, 2, PollTime(deadline));
    if (ready == 0) return Timeout("waiting for the service");
    if (ready < 0) {
      if (errno == EINTR) continue;
      return LostBy(errno);
    }
    if (wanted[1].revents == 0) return {};
    if (TakeInterruption()) return Error{ErrorKind::kInterrupted, "interrupted"};
  }
}

Result<void> SocketTransport::ReadBytes() {
  const ssize_t count =
      recv(socket_.get(), buffer_.data() + end_, buffer_.size() - end_, MSG_DONTWAIT);
  if (count > 0) {
    end_ += static_cast<std::size_t>(count);
    return {};
  }
  if (count < 0 && (errno == EAGAIN || errno == EINTR)) return {};
  End(LostBy(count == 0 ? 0 : errno));
  return *end();
}

void SocketTransport::Interrupt() noexcept {
  const int saved = errno;
  const std::uint64_t one = 1;
  // Fails only when the count is full, and then the interruption is pending anyway.
  [[maybe_unused]] const ssize_t written = write(interrupt_.get(), &one, sizeof(one));
  errno = saved;
}

// A connect waits while the service's queue is full; the send time-out bounds that wait.
void LimitConnect(int socket, Deadline deadline) {
  if (deadline.never()) return;
  const std::int64_t left = std::max<std::int64_t>(deadline.left().count(), 1);
  timeval time{};
  time.tv_sec = static_cast<decltype(time.tv_sec)>(left / 1000);
  time.tv_usec = static_cast<decltype(time.tv_usec)>(left % 1000 * 1000);
  setsockopt(socket, SOL_SOCKET, SO_SNDTIMEO, &time, sizeof(time));
}

Error ConnectError(const std::string& path, int error) {
  if (error == EAGAIN) return Timeout(("connecting to " + path).c_str());
  if (error == EINTR) return {ErrorKind::kInterrupted, "interrupted"};
  return {ErrorKind::kCannotConnect, "cannot connect to " + path + ": " + TextOf(error)};
}

}  // namespace

Result<std::unique_ptr<Transport>> ConnectSocket(const std::string& path, Deadline deadline) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.empty() || path.size() >= sizeof(address.sun_path))
    return ConnectError(path, ENAMETOOLONG);
  std::memcpy(address.sun_path, path.data(), path.size());
  Descriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  Descriptor interrupt(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
  if (socket.get() < 0 || interrupt.get() < 0) return ConnectError(path, errno);
  LimitConnect(socket.get(), deadline);
  if (connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0)
    return ConnectError(path, errno);
  return std::unique_ptr<Transport>(
      std::make_unique<SocketTransport>(std::move(socket), std::move(interrupt)));
}

}  // namespace valmere::client
