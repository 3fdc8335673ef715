// The memory of large replies, kept from one to the next.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "driver/sync/lock.h"
#include "net/shared_frame.h"
#include "protocol/wire/frame_memory.h"

namespace valmere {

// Purpose: gives large replies buffers that others have used before, because an allocator maps such
// memory anew for each. At most kBuffers and kMostKeptBytes are kept, for at most kIdlePasses.
// Owner: shared by the property engine, the publisher, which counts the passes, and the frames that
// are made of its buffers; a connection may hold one of these when the engine has gone.
// Threads: any.
// Errors: std::bad_alloc from Take and Share. What can't be kept is freed.
class ReplyMemory : public FrameMemory, public std::enable_shared_from_this<ReplyMemory> {
 public:
  static constexpr std::size_t kBuffers = 2;
  static constexpr std::size_t kMostKeptBytes = std::size_t{16} << 20;
  // A shorter one is left to the allocator.
  static constexpr std::size_t kLeastKeptBytes = std::size_t{32} * 1024;
  static constexpr std::uint32_t kIdlePasses = 12;  // 3 s

  static std::shared_ptr<ReplyMemory> Make() {
    return std::shared_ptr<ReplyMemory>(new ReplyMemory);
  }

  // At most twice as long as asked for if it was used before: a reply that waits for its client
  // must not keep much more than it needs.
  std::string Take(std::size_t bytes) override EXCLUDES(lock_);
  // Keeps the buffer if it can.
  void GiveBack(std::string buffer) noexcept EXCLUDES(lock_);
  // The frame in `reply`, which it takes. Its memory comes back with its last holder.
  SharedFrame Share(std::string& reply);

  // The publishing thread's pass: frees what has not been used for kIdlePasses.
  void Pass() EXCLUDES(lock_);
  // Frees all that is kept; from here on nothing is. Any number of times.
  void End() EXCLUDES(lock_);

  // How long an entry of the next reply with all properties is going to be.
  std::size_t entry_bytes() const { return entry_bytes_.load(std::memory_order_relaxed); }
  // What the last one had.
  void NoteAll(std::size_t entries, std::size_t bytes);

 private:
  struct Kept {
    std::string buffer;  // one of ordinary size is none
    std::uint32_t idle_passes = 0;
  };

  ReplyMemory() = default;
  Kept* BestFor(std::size_t bytes) REQUIRES(lock_);

  Lock lock_;
  std::array<Kept, kBuffers> kept_ GUARDED_BY(lock_);
  bool ended_ GUARDED_BY(lock_) = false;

  // An entry with names of twenty characters has some 330 bytes. Only a guess: a reader may see the
  // one before.
  std::atomic<std::size_t> entry_bytes_{352};
};

}  // namespace valmere
