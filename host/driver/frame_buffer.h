// Room for one frame on its way to a client.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <memory>
#include <utility>

namespace valmere::host {

// Purpose: bytes that are filled by the driver and handed on. Not a vector: that would clear the
// room before each read fills it.
// Owner: the pump, then the outbox if it is handed over.
// Threads: one at a time.
// Errors: std::bad_alloc from MakeRoom.
class FrameBuffer {
 public:
  unsigned char* data() { return bytes_.get(); }
  const unsigned char* data() const { return bytes_.get(); }
  std::size_t size() const { return size_; }
  void set_size(std::size_t size) { size_ = size; }

  // Room for `bytes`; the first `kept` of what is there stay.
  void MakeRoom(std::size_t bytes, std::size_t kept) {
    if (bytes <= room_) return;
    const auto old = std::move(bytes_);
    MakeExactRoom(std::max(bytes, kUsualRoom));
    if (old != nullptr) std::memcpy(bytes_.get(), old.get(), kept);
  }
  // A client that once asked for everything must not hold that much memory while it is idle.
  bool unusually_large() const { return room_ > kLargestKeptRoom; }

  // The frame in a buffer of its own: this one's room when that is large, else a copy without spare
  // room.
  FrameBuffer Take() {
    if (unusually_large()) return std::exchange(*this, FrameBuffer());
    FrameBuffer copy;
    copy.MakeExactRoom(size_);
    copy.size_ = size_;
    std::memcpy(copy.bytes_.get(), bytes_.get(), size_);
    return copy;
  }

 private:
  static constexpr std::size_t kUsualRoom = 4096;
  static constexpr std::size_t kLargestKeptRoom = 65536;

  void MakeExactRoom(std::size_t bytes) {
    room_ = 0;
    bytes_ = std::make_unique_for_overwrite<unsigned char[]>(bytes);
    room_ = bytes;
  }

  std::unique_ptr<unsigned char[]> bytes_;
  std::size_t room_ = 0;
  std::size_t size_ = 0;
};

}  // namespace valmere::host
