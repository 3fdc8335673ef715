// TCP on Winsock 2.
//
// Close does not close the handle, as with every backend: it makes blocked calls return, and the
// handle is closed when the object is destroyed. A stream is shut down. A listener can't be shut
// down: Close connects to it once, and the accept that wakes sees that it was closed. Where that
// connection fails, for lack of ports or memory, the handle is closed at once after all: an accept
// that sleeps on would be worse than the chance that its number is used again between two steps of
// it.
#include "platform/sockets.h"

#include <algorithm>
#include <atomic>
#include <utility>

#include "platform/kernel.h"
#include "platform/windows/windows_api.h"

namespace valmere::platform {
namespace {

static_assert(kConnectionAborted == WSAECONNABORTED && kConnectionReset == WSAECONNRESET &&
              kNoBufferSpace == WSAENOBUFS && kTimedOut == WSAETIMEDOUT);

// A peer that takes nothing for this long is given up.
constexpr Ticks kPatience = 5'000 * kTicksPerMillisecond;

// The system takes a send whole as soon as its buffer has any room, and frees that room only once
// the peer has taken all of it; there is no telling how much is still out. So bytes are handed over
// in pieces: a peer that takes a piece in kPatience is seen to move. One that takes less counts as
// one that stands still.
constexpr int kPiece = 4096;

// Not every system ends a select when its own side shuts the stream down, so a thread that waits
// checks now and then whether it was closed.
constexpr Ticks kLongestWait = 100 * kTicksPerMillisecond;

class Handle {
 public:
  Handle() = default;
  explicit Handle(SOCKET socket) : socket_(socket) {}
  Handle(Handle&& other) noexcept : socket_(other.socket_.exchange(INVALID_SOCKET)) {}
  Handle& operator=(Handle&& other) noexcept {
    other.socket_ = socket_.exchange(other.socket_);
    return *this;
  }
  ~Handle() { GiveBack(); }

  bool valid() const { return get() != INVALID_SOCKET; }
  SOCKET get() const { return socket_; }
  // From any thread; may be called again.
  void GiveBack() {
    const SOCKET socket = socket_.exchange(INVALID_SOCKET);
    if (socket != INVALID_SOCKET) closesocket(socket);
  }

 private:
  std::atomic<SOCKET> socket_{INVALID_SOCKET};
};

// Codes that the layers above do not know become one code.
int KnownCode(int code) {
  switch (code) {
    case kConnectionAborted:
    case kConnectionReset:
    case kNoBufferSpace:
    case kTimedOut:
      return code;
    case WSAESHUTDOWN:  // a send after the end, which elsewhere is a reset
      return kConnectionReset;
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

Handle MakeTcpSocket() {
  return Handle(socket(AF_INET, SOCK_STREAM, IPPROTO_TCP));
}

class WindowsStreamSocket final : public StreamSocket {
 public:
  explicit WindowsStreamSocket(Handle socket) : socket_(std::move(socket)) {
    // A frame leaves in one send and its answer is waited for, so holding a short segment back
    // until the peer has acknowledged the one before would only delay every exchange.
    const BOOL on = TRUE;
    setsockopt(socket_.get(), IPPROTO_TCP, TCP_NODELAY, reinterpret_cast<const char*>(&on),
               sizeof on);
    // Waiting is done by select, which can be limited: a send that blocked could not.
    u_long without_waiting = 1;
    ioctlsocket(socket_.get(), static_cast<long>(FIONBIO), &without_waiting);
  }

  Transfer Receive(void* buffer, int length) override {
    if (length <= 0) return {0, 0};
    for (;;) {
      const int count = recv(socket_.get(), static_cast<char*>(buffer), length, 0);
      if (count >= 0) return {count, 0};
      const int code = WSAGetLastError();
      if (closed_.load()) return {0, 0};
      if (code != WSAEWOULDBLOCK) return {-1, KnownCode(code)};
      WaitForBytes();
    }
  }

  Transfer Send(const void* buffer, int length) override {
    const auto* bytes = static_cast<const char*>(buffer);
    Ticks deadline = MonotonicNow() + kPatience;
    int sent = 0;
    while (sent < length) {
      const int count = send(socket_.get(), bytes + sent, std::min(length - sent, kPiece), 0);
      if (count >= 0) {
        sent += count;
        deadline = MonotonicNow() + kPatience;
        continue;
      }
      const int code = WSAGetLastError();
      if (code != WSAEWOULDBLOCK) return {-1, KnownCode(code)};
      if (closed_.load()) return {-1, kConnectionReset};
      if (MonotonicNow() >= deadline) return {-1, kTimedOut};
      WaitForRoom(deadline);
    }
    return {sent, 0};
  }

  void Close() override {
    closed_.store(true);
    shutdown(socket_.get(), SD_BOTH);
  }

 private:
  void WaitForBytes() const {
    fd_set readable;
    FD_ZERO(&readable);
    FD_SET(socket_.get(), &readable);
    timeval time = TimeOf(kLongestWait);
    select(0, &readable, nullptr, nullptr, &time);
  }

  void WaitForRoom(Ticks deadline) const {
    fd_set writable;
    FD_ZERO(&writable);
    FD_SET(socket_.get(), &writable);
    timeval time = TimeOf(std::clamp<Ticks>(deadline - MonotonicNow(), 0, kLongestWait));
    select(0, nullptr, &writable, nullptr, &time);
  }

  static timeval TimeOf(Ticks ticks) {
    constexpr Ticks kSecond = 1000 * kTicksPerMillisecond;
    timeval time{};
    time.tv_sec = static_cast<long>(ticks / kSecond);
    time.tv_usec = static_cast<long>(ticks % kSecond / 10);
    return time;
  }

  const Handle socket_;
  std::atomic<bool> closed_{false};
};

class WindowsListenSocket final : public ListenSocket {
 public:
  int Listen(std::uint16_t port, int backlog) override {
    if (socket_.valid()) return -1;
    Handle made = MakeTcpSocket();
    sockaddr_in address = MakeAddress(INADDR_ANY, port);
    int size = sizeof address;
    auto* const generic = reinterpret_cast<sockaddr*>(&address);
    if (bind(made.get(), generic, size) != 0) return -1;
    if (listen(made.get(), backlog) != 0) return -1;
    if (getsockname(made.get(), generic, &size) != 0) return -1;
    bound_port_ = ntohs(address.sin_port);
    socket_ = std::move(made);
    return 0;
  }

  Accepted Accept() override {
    if (closed_.load()) return {};
    sockaddr_in peer{};
    int size = sizeof peer;
    Handle accepted(accept(socket_.get(), reinterpret_cast<sockaddr*>(&peer), &size));
    if (!accepted.valid() || closed_.load()) return {};
    return {std::make_unique<WindowsStreamSocket>(std::move(accepted)), peer.sin_addr.s_addr,
            peer.sin_port};
  }

  void Close() override {
    if (closed_.exchange(true) || !socket_.valid()) return;
    const Handle caller = MakeTcpSocket();
    const sockaddr_in address = MakeAddress(INADDR_LOOPBACK, bound_port_);
    if (connect(caller.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
      socket_.GiveBack();
  }

  std::uint16_t BoundPort() const override { return bound_port_; }

 private:
  Handle socket_;
  std::uint16_t bound_port_ = 0;
  std::atomic<bool> closed_{false};
};

}  // namespace

std::uint16_t StartSockets() noexcept {
  WSADATA data{};
  return WSAStartup(kSocketLibrary, &data) == 0 ? data.wVersion : 0;
}

void CleanUpSockets() noexcept {
  WSACleanup();
}

std::unique_ptr<ListenSocket> MakeListenSocket() {
  return std::make_unique<WindowsListenSocket>();
}

std::unique_ptr<StreamSocket> ConnectLoopback(std::uint16_t port) {
  Handle made = MakeTcpSocket();
  const sockaddr_in address = MakeAddress(INADDR_LOOPBACK, port);
  const auto* const generic = reinterpret_cast<const sockaddr*>(&address);
  if (connect(made.get(), generic, sizeof address) != 0) return nullptr;
  return std::make_unique<WindowsStreamSocket>(std::move(made));
}

}  // namespace valmere::platform
