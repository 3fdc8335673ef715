// A few slots under one lock. Memory is freed when the lock is free again.
#include "store/engine/reply_memory.h"

#include <algorithm>
#include <utility>

namespace valmere {
namespace {

// What the frame of a large reply holds.
struct LargeReply {
  LargeReply(std::string& reply, std::shared_ptr<ReplyMemory> from)
      : text(std::move(reply)), memory(std::move(from)) {}
  ~LargeReply() { memory->GiveBack(std::move(text)); }
  LargeReply(const LargeReply&) = delete;
  LargeReply& operator=(const LargeReply&) = delete;

  std::string text;
  const std::shared_ptr<ReplyMemory> memory;
};

}  // namespace

// The shortest that is long enough.
ReplyMemory::Kept* ReplyMemory::BestFor(std::size_t bytes) {
  Kept* best = nullptr;
  for (Kept& kept : kept_) {
    const std::size_t room = kept.buffer.capacity();
    if (room < bytes || room / 2 > bytes) continue;
    if (best == nullptr || room < best->buffer.capacity()) best = &kept;
  }
  return best;
}

std::string ReplyMemory::Take(std::size_t bytes) {
  std::string taken;
  if (bytes >= kLeastKeptBytes) {
    const ScopedLock hold(lock_);
    if (Kept* const best = BestFor(bytes)) taken.swap(best->buffer);
  }
  taken.clear();
  taken.reserve(bytes);
  return taken;
}

// It takes the place of the shortest.
void ReplyMemory::GiveBack(std::string buffer) noexcept {
  if (buffer.capacity() < kLeastKeptBytes) return;
  const ScopedLock hold(lock_);
  Kept* shortest = &kept_[0];
  std::size_t all = 0;
  for (Kept& kept : kept_) {
    all += kept.buffer.capacity();
    if (kept.buffer.capacity() < shortest->buffer.capacity()) shortest = &kept;
  }
  const std::size_t others = all - shortest->buffer.capacity();
  if (ended_ || buffer.capacity() <= shortest->buffer.capacity() || others > kMostKeptBytes ||
      buffer.capacity() > kMostKeptBytes - others)
    return;
  shortest->buffer.swap(buffer);
  shortest->idle_passes = 0;
}

SharedFrame ReplyMemory::Share(std::string& reply) {
  const auto shared = std::make_shared<LargeReply>(reply, shared_from_this());
  return SharedFrame(shared, &shared->text);
}

void ReplyMemory::Pass() {
  std::array<std::string, kBuffers> freed;
  const ScopedLock hold(lock_);
  for (std::size_t i = 0; i < kBuffers; ++i)
    if (++kept_[i].idle_passes >= kIdlePasses) freed[i].swap(kept_[i].buffer);
}

void ReplyMemory::End() {
  std::array<std::string, kBuffers> freed;
  const ScopedLock hold(lock_);
  ended_ = true;
  for (std::size_t i = 0; i < kBuffers; ++i)
    freed[i].swap(kept_[i].buffer);
}

// A little more, so that values which have grown by a digit need no second buffer.
void ReplyMemory::NoteAll(std::size_t entries, std::size_t bytes) {
  if (entries == 0) return;
  const std::size_t each = bytes / entries + 1;
  entry_bytes_.store(each + each / 16, std::memory_order_relaxed);
}

}  // namespace valmere
