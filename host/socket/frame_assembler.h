// Puts the byte stream of a socket back into whole frames.
#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <vector>

namespace valmere::host {

// Purpose: gives a client's bytes to the driver one whole frame at a time, however they arrived.
// Owner: the bridge whose bytes it takes.
// Threads: one at a time.
// Errors: none; bytes that begin no frame, and all after them, are handed on as they come, so that
// the driver judges them. std::bad_alloc when a frame finds no memory.
class FrameAssembler {
 public:
  using Bytes = std::span<const unsigned char>;

  // Gives it the next bytes. They must stay as they are until Next has returned nothing.
  void Add(Bytes bytes) { input_ = bytes; }
  // The next piece for the driver, or nothing when more bytes are needed. A frame that the bytes of
  // one Add hold whole is a view of them, not a copy. Valid until the next call.
  std::optional<Bytes> Next();

  // True while every byte so far belonged to a frame.
  bool in_frames() const { return in_frames_; }
  // Bytes kept of a frame that is not complete.
  std::size_t kept() const { return frame_complete_ ? 0 : frame_.size(); }

 private:
  std::optional<Bytes> WholeFrameFromInput();
  std::optional<Bytes> CompleteKeptFrame();
  std::optional<Bytes> GiveUpFraming();
  void ReserveFor(std::size_t frame_bytes);
  void Append(std::size_t count);
  Bytes TakeInput(std::size_t count);

  Bytes input_;
  std::vector<unsigned char> frame_;  // the beginning of a frame whose rest is still to come
  bool frame_complete_ = false;       // frame_ was handed out by the last Next
  bool in_frames_ = true;
};

}  // namespace valmere::host
