// A text that is read while it is being replaced.
#pragma once

#include <string>
#include <string_view>
#include <utility>

#include "driver/sync/lock.h"

namespace valmere {

// Purpose: a shared handle on a text that never changes; copies share one block.
// Owner: each reader; the block goes with the last handle. The empty text has no block.
// Threads: one handle is one thread's; handles on the same block belong to any threads.
// Errors: making one from a text throws std::bad_alloc.
class SharedText {
 public:
  SharedText() = default;
  explicit SharedText(std::string_view text);
  SharedText(const SharedText& other) noexcept;
  SharedText(SharedText&& other) noexcept : block_(std::exchange(other.block_, nullptr)) {}
  SharedText& operator=(SharedText other) noexcept {
    Swap(other);
    return *this;
  }
  ~SharedText();

  void Swap(SharedText& other) noexcept { std::swap(block_, other.block_); }
  // Valid while a handle on the same block lives.
  std::string_view view() const noexcept;

 private:
  struct Block;
  Block* block_ = nullptr;
};

// The lock for the handle at `cell`. A handful of locks serve the cells of the whole process: each
// is held for a few instructions, and a lock per cell would be larger than the cell. It is a kernel
// lock, never a spin lock: between threads of strict priorities a spinning reader could keep the
// writer that it waits for from running.
Lock& TextLock(const void* cell);

// The same for the stores to `cell`; it is taken before the other.
Lock& StoreLock(const void* cell);

// Purpose: a cell that holds one text at a time; readers get the whole old or the whole new one.
// Owner: the object whose text it is.
// Threads: any thread loads and stores.
// Errors: std::bad_alloc when the first of all is made and the kernel has no locks for them.
class TextSnapshot {
 public:
  explicit TextSnapshot(SharedText text) : text_(std::move(text)) { TextLock(this); }

  SharedText Load() const noexcept {
    const ScopedLock hold(TextLock(this));
    return text_;
  }
  // The old text is released after the lock.
  void Store(SharedText text) noexcept {
    const ScopedLock hold(TextLock(this));
    text_.Swap(text);
  }

 private:
  SharedText text_ GUARDED_BY(TextLock(this));
};

}  // namespace valmere
