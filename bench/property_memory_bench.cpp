// How much memory one published property takes: the property, its texts, its places in the registry
// and its share of what it has in common with others. Counts the blocks in use, by what the
// allocator takes for each, beyond the bytes of the values.
#include <malloc.h>

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <numeric>
#include <random>
#include <string>
#include <vector>

#include "store/property/component_registry.h"

namespace {

std::size_t g_bytes = 0;
std::size_t g_blocks = 0;

// The allocator keeps one word for a block beside what can be used of it.
std::size_t TakenBy(void* memory) {
  return malloc_usable_size(memory) + sizeof(void*);
}

void Free(void* memory) {
  if (memory == nullptr) return;
  g_bytes -= TakenBy(memory);
  --g_blocks;
  std::free(memory);
}

}  // namespace

void* operator new(std::size_t size) {
  void* memory = std::malloc(size);
  if (memory == nullptr) throw std::bad_alloc();
  g_bytes += TakenBy(memory);
  ++g_blocks;
  return memory;
}
void operator delete(void* memory) noexcept {
  Free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
  Free(memory);
}

namespace {

constexpr std::size_t kGuidSize = 36;
constexpr std::size_t kNameSize = 20;
constexpr int kProperties = 10'000;
constexpr int kLimit = 350;

std::string Guid(int number) {
  char digits[16];
  const int count = std::snprintf(digits, sizeof digits, "%012d", number);
  return std::string(kGuidSize - static_cast<std::size_t>(count), 'A') + digits;
}

// GUIDs are in no order.
std::vector<int> ShuffledNumbers() {
  std::vector<int> numbers(kProperties);
  std::iota(numbers.begin(), numbers.end(), 0);
  std::shuffle(numbers.begin(), numbers.end(), std::mt19937(1));
  return numbers;
}

void Measure(int properties_per_group, bool with_listener) {
  const std::vector<int> numbers = ShuffledNumbers();
  const std::string name(kNameSize, 'n');
  const std::string value(kNameSize, 'v');
  const std::string component = Guid(0);
  const auto listener = std::make_shared<const valmere::PropertyListener>(
      [](const std::shared_ptr<valmere::Property>&) {});
  const std::size_t bytes_before = g_bytes;
  const std::size_t blocks_before = g_blocks;
  valmere::ComponentRegistry registry([](const valmere::ClientConnection&) { return true; });
  for (const int number : numbers) {
    auto property = valmere::ComponentProperty::Make(value, Guid(number), name,
                                                     Guid(number / properties_per_group), name,
                                                     component, name, nullptr);
    if (with_listener) property->AddSharedListener(listener);
    registry.Add(std::move(property));
  }
  const auto each = [](std::size_t all) { return static_cast<double>(all) / kProperties; };
  std::printf("%5d per group%s: %.0f bytes beyond the value in %.2f blocks, limit %d\n",
              properties_per_group, with_listener ? ", with a listener" : "",
              each(g_bytes - bytes_before) - static_cast<double>(value.size()),
              each(g_blocks - blocks_before), kLimit);
}

}  // namespace

int main() {
  Measure(kProperties, false);
  Measure(10, false);
  Measure(1, false);
  Measure(10, true);
  Measure(1, true);
}
