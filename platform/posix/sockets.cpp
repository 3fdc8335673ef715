// TCP on the BSD socket calls of Linux.
//
// Close does not close the descriptor. It shuts the socket down, which makes every call that is
// blocked on it return; the descriptor itself is closed when the object is destroyed. Otherwise
// the kernel could hand its number to the next open file while another thread is still on its way
// into a call with it. For the same reason a second Close can do no harm.
//
// Transfers report Winsock's codes, because the layers above compare with those.
#include "platform/sockets.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "platform/kernel.h"
#include "platform/posix/current_thread.h"
#include "platform/posix/descriptor.h"

namespace valmere::platform {
namespace {

// A peer that takes nothing for this long is given up.
constexpr Ticks kPatience = 5'000 * kTicksPerMillisecond;
// How often a blocked send looks whether the peer has taken anything.
constexpr int kProgressCheckMilliseconds = 250;

int WinsockCode(int code) {
  switch (code) {
    case ECONNABORTED:
      return kConnectionAborted;
    case ECONNRESET:
    case EPIPE:  // what Winsock calls a reset, seen by a later send
      return kConnectionReset;
    case ENOBUFS:
    case ENOMEM:  // Winsock has no code of its own for it
      return kNoBufferSpace;
    case ETIMEDOUT:
      return kTimedOut;
    default:
      return kOtherSocketError;
  }
}

sockaddr_in MakeAddress(std::uint32_t host, std::uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(host);
  address.sin_port = htons(port);
  return address;
}

Descriptor MakeTcpSocket() {
  return Descriptor(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, IPPROTO_TCP));
}

// Watches over one send that the peer holds up. Room in the send buffer is not enough to go by: the
// kernel announces it only once about a third of the buffer is free, which a slow link may not
// reach in time although it never stands still. So what the peer has yet to take is measured too.
class SendPatience {
 public:
  explicit SendPatience(int descriptor) : descriptor_(descriptor) {}

  // Bytes went into the send buffer; the time starts again at the next wait.
  void Progress() { deadline_ = 0; }

  // Waits for room to send; false when the peer has taken nothing for too long.
  bool WaitForRoom() {
    if (deadline_ == 0) Restart(Untaken());
    while (MonotonicNow() < deadline_) {
      if (WaitForEvent()) return true;
      const int untaken = Untaken();
      if (untaken < untaken_) Restart(untaken);
    }
    return false;
  }

 private:
  void Restart(int untaken) {
    untaken_ = untaken;
    deadline_ = MonotonicNow() + kPatience;
  }

  bool WaitForEvent() const {
    pollfd room{descriptor_, POLLOUT, 0};
    const WaitInKernel wait;
    return poll(&room, 1, kProgressCheckMilliseconds) > 0;
  }

  // Bytes that the peer has not acknowledged.
  int Untaken() const {
    int untaken = 0;
    return ioctl(descriptor_, TIOCOUTQ, &untaken) == 0 ? untaken : untaken_;
  }

  const int descriptor_;
  Ticks deadline_ = 0;
  int untaken_ = 0;
};

class PosixStreamSocket final : public StreamSocket {
 public:
  explicit PosixStreamSocket(Descriptor descriptor) : descriptor_(std::move(descriptor)) {
    // A frame leaves in one send and its answer is waited for, so holding a short segment back
    // until the peer has acknowledged the one before (Nagle) would only delay every exchange.
    const int on = 1;
    setsockopt(descriptor_.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  }

  Transfer Receive(void* buffer, int length) override {
    if (length <= 0) return {0, 0};
    for (;;) {
      const ssize_t count = WaitForBytes(buffer, static_cast<std::size_t>(length));
      if (count >= 0) return {static_cast<int>(count), 0};
      if (errno != EINTR) return {-1, WinsockCode(errno)};
    }
  }

  Transfer Send(const void* buffer, int length) override {
    const auto* bytes = static_cast<const char*>(buffer);
    SendPatience patience(descriptor_.get());
    int sent = 0;
    while (sent < length) {
      const ssize_t count =
          send(descriptor_.get(), bytes + sent, static_cast<std::size_t>(length - sent),
               MSG_NOSIGNAL | MSG_DONTWAIT);
      if (count >= 0) {
        sent += static_cast<int>(count);
        patience.Progress();
      } else if (errno == EAGAIN || errno == EWOULDBLOCK) {
        if (!patience.WaitForRoom()) return {-1, kTimedOut};
      } else if (errno != EINTR) {
        return {-1, WinsockCode(errno)};
      }
    }
    return {sent, 0};
  }

  void Close() override { shutdown(descriptor_.get(), SHUT_RDWR); }

 private:
  ssize_t WaitForBytes(void* buffer, std::size_t length) const {
    const WaitInKernel wait;
    return recv(descriptor_.get(), buffer, length, 0);
  }

  const Descriptor descriptor_;
};

class PosixListenSocket final : public ListenSocket {
 public:
  int Listen(std::uint16_t port, int backlog) override {
    if (descriptor_.valid()) return -1;
    Descriptor descriptor = MakeTcpSocket();
    // Lets a restarted service have its port back while connections of the last run linger in
    // TIME_WAIT. A port that another socket listens on stays refused.
    const int on = 1;
    setsockopt(descriptor.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    sockaddr_in address = MakeAddress(INADDR_ANY, port);
    socklen_t size = sizeof address;
    auto* const generic = reinterpret_cast<sockaddr*>(&address);
    if (bind(descriptor.get(), generic, size) != 0) return -1;
    if (listen(descriptor.get(), backlog) != 0) return -1;
    if (getsockname(descriptor.get(), generic, &size) != 0) return -1;
    bound_port_ = ntohs(address.sin_port);
    descriptor_ = std::move(descriptor);
    return 0;
  }

  Accepted Accept() override {
    sockaddr_in peer{};
    for (;;) {
      socklen_t size = sizeof peer;
      Descriptor descriptor(WaitForPeer(reinterpret_cast<sockaddr*>(&peer), &size));
      if (descriptor.valid())
        return {std::make_unique<PosixStreamSocket>(std::move(descriptor)), peer.sin_addr.s_addr,
                peer.sin_port};
      if (errno != EINTR) return {};
    }
  }

  // On Linux this takes the socket out of the listening state: blocked and later accepts fail.
  void Close() override { shutdown(descriptor_.get(), SHUT_RDWR); }

  std::uint16_t BoundPort() const override { return bound_port_; }

 private:
  int WaitForPeer(sockaddr* peer, socklen_t* size) const {
    const WaitInKernel wait;
    return accept4(descriptor_.get(), peer, size, SOCK_CLOEXEC);
  }

  Descriptor descriptor_;
  std::uint16_t bound_port_ = 0;
};

// A connect that a signal interrupts goes on by itself; what remains is to wait for its end.
bool FinishInterruptedConnect(int descriptor) {
  pollfd done{descriptor, POLLOUT, 0};
  while (poll(&done, 1, -1) < 0)
    if (errno != EINTR) return false;
  int error = 0;
  socklen_t size = sizeof error;
  return getsockopt(descriptor, SOL_SOCKET, SO_ERROR, &error, &size) == 0 && error == 0;
}

}  // namespace

// The kernel's sockets need no start.
std::uint16_t StartSockets() noexcept {
  return kSocketLibrary;
}
void CleanUpSockets() noexcept {}

std::unique_ptr<ListenSocket> MakeListenSocket() {
  return std::make_unique<PosixListenSocket>();
}

std::unique_ptr<StreamSocket> ConnectLoopback(std::uint16_t port) {
  Descriptor descriptor = MakeTcpSocket();
  const sockaddr_in address = MakeAddress(INADDR_LOOPBACK, port);
  const auto* const generic = reinterpret_cast<const sockaddr*>(&address);
  if (connect(descriptor.get(), generic, sizeof address) != 0 &&
      (errno != EINTR || !FinishInterruptedConnect(descriptor.get())))
    return nullptr;
  return std::make_unique<PosixStreamSocket>(std::move(descriptor));
}

}  // namespace valmere::platform
