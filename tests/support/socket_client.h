// A connection to a Unix socket with whole sends and whole reads, for tests and benches.
#pragma once

#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>

#include "tests/support/frames.h"
#include "tests/support/unix_socket.h"

namespace valmere::test {

// Purpose: bytes and frames to a program and back. What a read returns stays until the next one.
// Owner: the test or bench; closes the socket when it goes.
// Threads: one.
// Errors: std::runtime_error when the other end is not there, has gone, or uses up the patience.
class SocketClient {
 public:
  // A patience of zero is endless.
  explicit SocketClient(const std::string& path, std::chrono::seconds patience = {})
      : descriptor_(ConnectedTo(path, patience)) {}
  ~SocketClient() { close(descriptor_); }
  SocketClient(const SocketClient&) = delete;
  SocketClient& operator=(const SocketClient&) = delete;

  int descriptor() const { return descriptor_; }

  void Send(std::string_view bytes) const {
    if (!SendAll(descriptor_, bytes)) throw std::runtime_error("the other end takes nothing");
  }

  std::string_view Read(std::size_t bytes) {
    Hold(bytes);
    return Take(bytes);
  }
  // Up to a CR LF, which is read as well and not returned.
  std::string_view ReadLine() {
    std::size_t end = 0;
    while ((end = Held().find("\r\n")) == std::string_view::npos)
      Hold(Held().size() + 1);
    return Take(end + 2).substr(0, end);
  }
  // The text of the next frame.
  std::string_view ReadFrame() {
    const std::size_t identifier = IdentifierBytes().size();
    const std::string_view header = Read(identifier + 4);
    std::uint32_t length = 0;
    for (std::size_t i = 4; i > 0; --i)
      length = length << 8 | static_cast<unsigned char>(header[identifier + i - 1]);
    return Read(length);
  }

 private:
  std::string_view Held() const { return {buffer_.data() + begin_, end_ - begin_}; }
  std::string_view Take(std::size_t bytes) {
    const std::string_view taken = Held().substr(0, bytes);
    begin_ += bytes;
    return taken;
  }
  // Receives until so many bytes are held.
  void Hold(std::size_t bytes) {
    if (begin_ == end_) begin_ = end_ = 0;
    if (begin_ + bytes > buffer_.size()) {
      buffer_.erase(0, begin_);
      end_ -= begin_;
      begin_ = 0;
      if (bytes > buffer_.size()) buffer_.resize(2 * bytes);
    }
    while (end_ - begin_ < bytes) {
      const ssize_t got = recv(descriptor_, buffer_.data() + end_, buffer_.size() - end_, 0);
      if (got <= 0) throw std::runtime_error("the other end has gone");
      end_ += static_cast<std::size_t>(got);
    }
  }

  const int descriptor_;
  std::string buffer_ = std::string(std::size_t{16} * 1024, '\0');
  std::size_t begin_ = 0;  // of what was received and not read
  std::size_t end_ = 0;
};

}  // namespace valmere::test
