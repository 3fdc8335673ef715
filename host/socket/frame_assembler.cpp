// The driver reads each field of a frame with one call, and a pipe hands a reader only what has
// been written so far: a frame that reached the driver in two pieces would end the session. So a
// frame goes in whole. In the usual case one socket read holds exactly one frame, which is passed
// on where it lies; only a frame that a read cuts is copied, and at most one of them is kept.
#include "host/socket/frame_assembler.h"

#include <algorithm>
#include <cstdint>

#include "protocol/wire/message_frame.h"

namespace valmere::host {
namespace {

// What is kept for the next frame, at most.
constexpr std::size_t kLargestKeptRoom = 65536;

enum class Header { kIncomplete, kFrame, kNoFrame };

// What `bytes` begin; `frame_bytes` is the length of the whole frame once the header is there.
Header Inspect(FrameAssembler::Bytes bytes, std::size_t& frame_bytes) {
  const std::size_t compared = std::min(bytes.size(), kStreamFormatIdentifier.size());
  if (!std::equal(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(compared),
                  kStreamFormatIdentifier.begin()))
    return Header::kNoFrame;
  if (bytes.size() < kFrameHeaderBytes) return Header::kIncomplete;
  const std::uint32_t length = DecodeLength(bytes.data() + kStreamFormatIdentifier.size());
  if (length > kMaximumMessageBytes) return Header::kNoFrame;
  frame_bytes = kFrameHeaderBytes + length;
  return Header::kFrame;
}

}  // namespace

std::optional<FrameAssembler::Bytes> FrameAssembler::Next() {
  if (frame_complete_) {
    frame_complete_ = false;
    // The room stays for the next frame unless this one was unusually long.
    if (frame_.capacity() > kLargestKeptRoom) frame_ = {};
    frame_.clear();
  }
  if (!in_frames_) return GiveUpFraming();
  return frame_.empty() ? WholeFrameFromInput() : CompleteKeptFrame();
}

std::optional<FrameAssembler::Bytes> FrameAssembler::WholeFrameFromInput() {
  if (input_.empty()) return std::nullopt;
  std::size_t frame_bytes = 0;
  switch (Inspect(input_, frame_bytes)) {
    case Header::kNoFrame:
      return GiveUpFraming();
    case Header::kFrame:
      if (input_.size() >= frame_bytes) return TakeInput(frame_bytes);
      break;
    case Header::kIncomplete:
      break;
  }
  Append(input_.size());
  return std::nullopt;
}

std::optional<FrameAssembler::Bytes> FrameAssembler::CompleteKeptFrame() {
  if (frame_.size() < kFrameHeaderBytes) Append(kFrameHeaderBytes - frame_.size());
  std::size_t frame_bytes = 0;
  switch (Inspect(frame_, frame_bytes)) {
    case Header::kIncomplete:
      return std::nullopt;
    case Header::kNoFrame:
      in_frames_ = false;
      break;
    case Header::kFrame:
      ReserveFor(frame_bytes);
      Append(frame_bytes - frame_.size());
      if (frame_.size() < frame_bytes) return std::nullopt;
      break;
  }
  frame_complete_ = true;
  return Bytes(frame_);
}

// Room for the bytes at hand: a length that a client announces takes no memory until they are
// there.
void FrameAssembler::ReserveFor(std::size_t frame_bytes) {
  const std::size_t needed = frame_.size() + std::min(input_.size(), frame_bytes - frame_.size());
  if (needed > frame_.capacity())
    frame_.reserve(std::min(frame_bytes, std::max(needed, 2 * frame_.capacity())));
}

std::optional<FrameAssembler::Bytes> FrameAssembler::GiveUpFraming() {
  in_frames_ = false;
  if (input_.empty()) return std::nullopt;
  return TakeInput(input_.size());
}

// Moves up to `count` bytes of the input to the end of the kept frame.
void FrameAssembler::Append(std::size_t count) {
  const Bytes bytes = TakeInput(std::min(count, input_.size()));
  frame_.insert(frame_.end(), bytes.begin(), bytes.end());
}

FrameAssembler::Bytes FrameAssembler::TakeInput(std::size_t count) {
  const Bytes taken = input_.first(count);
  input_ = input_.subspan(count);
  return taken;
}

}  // namespace valmere::host
