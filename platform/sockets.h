// TCP over IPv4 by blocking calls. Error codes are those of Winsock on every backend.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

namespace valmere::platform {

inline constexpr int kConnectionAborted = 10053;
inline constexpr int kConnectionReset = 10054;
inline constexpr int kNoBufferSpace = 10055;
inline constexpr int kTimedOut = 10060;
inline constexpr int kOtherSocketError = 10000;

// The version of the socket library that is asked for: 2.2.
inline constexpr std::uint16_t kSocketLibrary = 0x0202;

// Starts the socket library: the version that there is, or 0 when it does not start.
std::uint16_t StartSockets() noexcept;
void CleanUpSockets() noexcept;

// The result of a transfer: a count of 0 or more and no error, or -1 and its error.
struct Transfer {
  int count;
  int error;
};

// A connected socket. One thread may receive while others send; Close comes from any thread, any
// number of times, and makes blocked calls return. The operating system's handle is closed when the
// object is destroyed, so that its number can't be reused under a running call.
class StreamSocket {
 public:
  virtual ~StreamSocket() = default;
  virtual Transfer Receive(void* buffer, int length) = 0;
  // Blocks until all is sent. A peer that takes nothing for 5 s makes it fail with kTimedOut; a
  // broken peer never raises a signal.
  virtual Transfer Send(const void* buffer, int length) = 0;
  virtual void Close() = 0;
};

struct Accepted {
  std::unique_ptr<StreamSocket> socket;  // null when accepting failed or the listener was closed
  std::uint32_t address = 0;             // IPv4, network byte order
  std::uint32_t port = 0;                // 16-bit value in network byte order
};

// A listening socket. Accept blocks; Close from another thread ends it.
class ListenSocket {
 public:
  virtual ~ListenSocket() = default;
  // 0, or -1 when binding or listening failed. Port in host order; 0 lets the system choose.
  virtual int Listen(std::uint16_t port, int backlog) = 0;
  virtual Accepted Accept() = 0;
  virtual void Close() = 0;
  // The port that it listens on, host order; 0 before Listen.
  virtual std::uint16_t BoundPort() const = 0;
};

std::unique_ptr<ListenSocket> MakeListenSocket();
// A connection to `port` on this machine's loopback address; null when nothing listens there.
std::unique_ptr<StreamSocket> ConnectLoopback(std::uint16_t port);

}  // namespace valmere::platform
