// The service compares the identifier of a stream's first frame alone, and so does this.
#include "host/socket/frame_position.h"

#include <algorithm>
#include <cstring>

namespace valmere::host {

void FramePosition::Advance(std::span<const unsigned char> bytes) {
  while (!bytes.empty() && !unframed_) {
    if (header_bytes_ < kFrameHeaderBytes) {
      bytes = bytes.subspan(TakeHeader(bytes));
    } else {
      const std::size_t part = std::min<std::size_t>(bytes.size(), text_left_);
      text_left_ -= static_cast<std::uint32_t>(part);
      bytes = bytes.subspan(part);
    }
    if (header_bytes_ == kFrameHeaderBytes && text_left_ == 0) header_bytes_ = 0;
  }
}

std::size_t FramePosition::TakeHeader(std::span<const unsigned char> bytes) {
  const std::size_t part = std::min(bytes.size(), kFrameHeaderBytes - header_bytes_);
  std::memcpy(header_ + header_bytes_, bytes.data(), part);
  header_bytes_ += part;
  if (first_) CheckIdentifier();
  if (header_bytes_ == kFrameHeaderBytes) {
    text_left_ = DecodeLength(header_ + kStreamFormatIdentifier.size());
    first_ = false;
  }
  return part;
}

void FramePosition::CheckIdentifier() {
  const std::size_t there = std::min(header_bytes_, kStreamFormatIdentifier.size());
  unframed_ = std::memcmp(header_, kStreamFormatIdentifier.data(), there) != 0;
}

}  // namespace valmere::host
