// Each block is preceded by its size, so that the count needs no help from the C library.
#include "tests/support/allocations.h"

#include <atomic>
#include <cstdlib>
#include <limits>
#include <new>
#include <utility>

namespace {

constexpr std::uint32_t kUnlimited = std::numeric_limits<std::uint32_t>::max();
constexpr std::size_t kHeader = alignof(std::max_align_t);
static_assert(kHeader >= sizeof(std::size_t));

thread_local std::uint32_t t_granted = kUnlimited;
thread_local const std::function<void()>* t_first = nullptr;
std::atomic<std::size_t> g_bytes{0};

}  // namespace

void* operator new(std::size_t size) {
  if (t_first != nullptr) (*std::exchange(t_first, nullptr))();
  if (t_granted == 0) throw std::bad_alloc();
  void* const block = std::malloc(size + kHeader);
  if (block == nullptr) throw std::bad_alloc();
  if (t_granted != kUnlimited) --t_granted;
  *static_cast<std::size_t*>(block) = size;
  g_bytes.fetch_add(size, std::memory_order_relaxed);
  return static_cast<char*>(block) + kHeader;
}

// Every form comes here, also where a sanitizer has forms of its own: a block must be given back by
// the form's counterpart.
void* operator new(std::size_t size, const std::nothrow_t& /*nothrow*/) noexcept {
  try {
    return operator new(size);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

void* operator new[](std::size_t size) {
  return operator new(size);
}

void* operator new[](std::size_t size, const std::nothrow_t& nothrow) noexcept {
  return operator new(size, nothrow);
}

void operator delete(void* memory) noexcept {
  if (memory == nullptr) return;
  void* const block = static_cast<char*>(memory) - kHeader;
  g_bytes.fetch_sub(*static_cast<std::size_t*>(block), std::memory_order_relaxed);
  std::free(block);
}

void operator delete(void* memory, std::size_t /*size*/) noexcept {
  operator delete(memory);
}

void operator delete[](void* memory) noexcept {
  operator delete(memory);
}

void operator delete[](void* memory, std::size_t /*size*/) noexcept {
  operator delete(memory);
}

namespace valmere::test {

LimitedAllocations::LimitedAllocations(std::uint32_t granted) {
  t_granted = granted;
}

LimitedAllocations::~LimitedAllocations() {
  t_granted = kUnlimited;
}

AtTheNextAllocation::AtTheNextAllocation(std::function<void()> act) : act_(std::move(act)) {
  t_first = &act_;
}

AtTheNextAllocation::~AtTheNextAllocation() {
  t_first = nullptr;
}

std::size_t BytesInUse() {
  return g_bytes.load(std::memory_order_relaxed);
}

}  // namespace valmere::test
