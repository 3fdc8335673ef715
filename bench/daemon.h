// What the benches of the desk share: valmered as a child process, and clients of its socket.
#pragma once

#include <sys/types.h>

#include <string>
#include <string_view>
#include <vector>

#include "tests/support/frames.h"

namespace valmere::bench {

using test::FrameOf;

// valmered on a root of its own under the system's folder for temporary files; ended and removed
// with it. Throws std::runtime_error when it does not start.
class Daemon {
 public:
  Daemon();
  ~Daemon();
  Daemon(const Daemon&) = delete;
  Daemon& operator=(const Daemon&) = delete;

  const std::string& socket_path() const { return socket_; }
  pid_t process() const { return child_; }

 private:
  const std::string folder_;
  const std::string socket_;
  pid_t child_ = -1;
};

// A connected socket, closed with it. Throws std::runtime_error when no service answers.
class RawClient {
 public:
  explicit RawClient(const std::string& path);
  ~RawClient();
  RawClient(const RawClient&) = delete;
  RawClient& operator=(const RawClient&) = delete;

  int descriptor() const { return descriptor_; }
  // False when the connection has ended.
  bool Send(std::string_view frame) const;
  // Reads one whole frame; its size, or 0 when the connection has ended.
  std::size_t ReceiveFrame();

 private:
  const int descriptor_;
  std::vector<char> buffer_;
};

// A publication of `count` properties of one group, named "Measured Property 0" and so on, with
// values of eight digits.
std::string PublicationFrame(int count);
// The get of a property that the service always has.
std::string_view GetText();

}  // namespace valmere::bench
