// How much memory one published property takes: the property, its texts and its two places in the
// registry. Counts the bytes asked of operator new, which it replaces; what the allocator adds per
// block comes on top, so the number of blocks is told too.
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <string>

#include "store/property/component_registry.h"

namespace {

std::size_t g_bytes = 0;
std::size_t g_blocks = 0;

}  // namespace

void* operator new(std::size_t size) {
  void* memory = std::malloc(size);
  if (memory == nullptr) throw std::bad_alloc();
  g_bytes += size;
  ++g_blocks;
  return memory;
}
void operator delete(void* memory) noexcept {
  std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
  std::free(memory);
}

namespace {

constexpr std::size_t kGuidSize = 36;
constexpr std::size_t kNameSize = 20;
constexpr int kProperties = 10'000;
constexpr int kLimit = 700;

std::string Guid(int number) {
  char digits[16];
  const int count = std::snprintf(digits, sizeof digits, "%012d", number);
  return std::string(kGuidSize - static_cast<std::size_t>(count), 'A') + digits;
}

void Measure(int properties_per_group, bool with_listener) {
  const std::string name(kNameSize, 'n');
  std::size_t bytes = 0;
  std::size_t blocks = 0;
  valmere::ComponentRegistry registry([](const valmere::ClientConnection&) { return true; });
  for (int i = 0; i < kProperties; ++i) {
    const std::string guid = Guid(i);
    const std::string group = Guid(i / properties_per_group);
    const std::string component = Guid(0);
    g_bytes = g_blocks = 0;
    auto property =
        valmere::ComponentProperty::Make(name, guid, name, group, name, component, name, nullptr);
    if (with_listener) property->AddListener([](const std::shared_ptr<valmere::Property>&) {});
    registry.Add(std::move(property));
    bytes += g_bytes;
    blocks += g_blocks;
  }
  std::printf("%5d per group%s: %.0f bytes in %.2f blocks, limit %d\n", properties_per_group,
              with_listener ? ", with a listener" : "", static_cast<double>(bytes) / kProperties,
              static_cast<double>(blocks) / kProperties, kLimit);
}

}  // namespace

int main() {
  Measure(kProperties, false);
  Measure(10, false);
  Measure(1, false);
  Measure(10, true);
}
