// A client of the driver that speaks to it through its entry points alone, as programs on the
// device do. The entry points are given as pointers, so that they can come from a loaded library as
// well.
#pragma once

#include <algorithm>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "driver/prn.h"
#include "tests/support/frames.h"

namespace valmere::test {

// The entry points that a client uses.
struct EntryPoints {
  decltype(&PRN_Open) open;
  decltype(&PRN_Close) close;
  decltype(&PRN_Read) read;
  decltype(&PRN_Write) write;
};

// Purpose: one open handle and the frames that go over it.
// Owner: the test; closes the handle when it goes.
// Threads: one may send while another receives; Close from any.
// Errors: what the entry points tell: false for bytes not taken, nothing for a session that ended.
class FrameClient {
 public:
  explicit FrameClient(const EntryPoints& entry) : entry_(entry), handle_(entry_.open(1, 0, 0)) {}
  ~FrameClient() { Close(); }
  FrameClient(const FrameClient&) = delete;
  FrameClient& operator=(const FrameClient&) = delete;

  std::uint32_t handle() const { return handle_; }

  // True when the driver took all of the bytes; they go in as one write.
  bool SendBytes(std::string_view bytes) {
    const auto length = static_cast<std::uint32_t>(bytes.size());
    return entry_.write(handle_, bytes.data(), length) == static_cast<std::int32_t>(length);
  }
  // Sends the bytes in writes of `piece` bytes and a last one of the rest.
  bool SendInPieces(std::string_view bytes, std::size_t piece) {
    while (!bytes.empty()) {
      const std::size_t part = std::min(piece, bytes.size());
      if (!SendBytes(bytes.substr(0, part))) return false;
      bytes.remove_prefix(part);
    }
    return true;
  }
  bool Send(std::string_view text) { return SendBytes(FrameOf(text)); }

  // The next frame's text, waited for; nothing when the session has ended. The count that a read
  // returns tells nothing, so the end shows by a buffer that was left as it was.
  std::optional<std::string> Receive() {
    const std::string expected = IdentifierBytes();
    std::string identifier(expected.size(), '\0');
    Read(identifier.data(), identifier.size());
    if (identifier != expected) return std::nullopt;
    unsigned char length[4] = {};
    Read(length, sizeof length);
    std::string text(length[0] | length[1] << 8 | length[2] << 16 | length[3] << 24, '\0');
    Read(text.data(), text.size());
    return text;
  }
  std::optional<std::string> Ask(std::string_view text) {
    if (!Send(text)) return std::nullopt;
    return Receive();
  }

  // False when the handle was closed before.
  bool Close() { return entry_.close(handle_) == 1; }

 private:
  void Read(void* buffer, std::size_t count) {
    entry_.read(handle_, buffer, static_cast<std::uint32_t>(count));
  }

  const EntryPoints entry_;
  const std::uint32_t handle_;
};

}  // namespace valmere::test
