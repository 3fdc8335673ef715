// A text, its length and its count of handles stand in one block, so that replacing a text is one
// allocation and copying a handle is one addition.
#include "store/property/text_snapshot.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <new>

namespace valmere {

struct SharedText::Block {
  explicit Block(std::uint32_t size_of_text) : size(size_of_text) {}
  char* text() { return reinterpret_cast<char*>(this + 1); }

  std::atomic<std::uint32_t> handles{1};
  const std::uint32_t size;
};

SharedText::SharedText(std::string_view text) {
  if (text.empty()) return;
  void* memory = ::operator new(sizeof(Block) + text.size());
  block_ = new (memory) Block(static_cast<std::uint32_t>(text.size()));
  text.copy(block_->text(), text.size());
}

SharedText::SharedText(const SharedText& other) noexcept : block_(other.block_) {
  if (block_ != nullptr) block_->handles.fetch_add(1, std::memory_order_relaxed);
}

SharedText::~SharedText() {
  if (block_ == nullptr) return;
  if (block_->handles.fetch_sub(1, std::memory_order_acq_rel) != 1) return;
  // The analyzer takes any handle for the last one.
  block_->~Block();  // NOLINT(clang-analyzer-cplusplus.NewDelete)
  ::operator delete(block_);
}

std::string_view SharedText::view() const noexcept {
  // NOLINTNEXTLINE(clang-analyzer-cplusplus.NewDelete): the same
  return block_ == nullptr ? std::string_view() : std::string_view(block_->text(), block_->size);
}

namespace {

class LockTable {
 public:
  // The cells stand in objects of a few sizes, so their low address bits repeat; multiplying by
  // 2^32 over the golden ratio brings the others into the top bits.
  Lock& For(const void* cell) {
    const auto address = static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(cell) / 8);
    return locks_[(address * 0x9E3779B9U) >> (32 - kBits)];
  }

 private:
  static constexpr unsigned kBits = 4;
  Lock locks_[1U << kBits];
};

}  // namespace

Lock& TextLock(const void* cell) {
  static LockTable table;
  return table.For(cell);
}

Lock& StoreLock(const void* cell) {
  static LockTable table;
  return table.For(cell);
}

}  // namespace valmere
