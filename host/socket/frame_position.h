// Where in its frames a stream is.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "protocol/wire/message_frame.h"

namespace valmere::host {

// Purpose: follows the bytes of a stream, to know where a frame ends and the next may begin.
// Owner: the stream's reader.
// Threads: one at a time.
// Errors: none; whether a text makes sense, or a length is too large, is for the service to say.
class FramePosition {
 public:
  // The next bytes of the stream.
  void Advance(std::span<const unsigned char> bytes);

  // No byte of a frame has come that has not come whole.
  bool at_start() const { return header_bytes_ == 0; }
  // The stream does not begin as a frame does, so none of it is one.
  bool unframed() const { return unframed_; }

 private:
  std::size_t TakeHeader(std::span<const unsigned char> bytes);
  void CheckIdentifier();

  unsigned char header_[kFrameHeaderBytes] = {};
  std::size_t header_bytes_ = 0;  // of the present frame's header, that have come
  std::uint32_t text_left_ = 0;
  bool first_ = true;
  bool unframed_ = false;
};

}  // namespace valmere::host
