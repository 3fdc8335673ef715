// What the library takes of a small device: its memory at rest, the peak of a message of the
// largest size, and the stack of its worker threads. Stands before the C library's allocator and
// thread start, so that it counts every byte asked for, under an emulator too.
#include <dlfcn.h>
#include <malloc.h>
#include <pthread.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <string_view>

#include "driver/prn.h"
#include "protocol/wire/message_frame.h"
#include "tests/support/frames.h"

namespace {

std::atomic<std::size_t> g_held{0};
std::atomic<std::size_t> g_peak{0};
std::size_t g_rest = 0;  // what is held when the library has nothing to do

// What the allocator keeps of a block beside the bytes that may be used.
constexpr std::size_t kBlockOverhead = sizeof(std::size_t);

void* Counted(void* memory) {
  if (memory == nullptr) return nullptr;
  const std::size_t size = malloc_usable_size(memory) + kBlockOverhead;
  const std::size_t held = g_held.fetch_add(size) + size;
  std::size_t peak = g_peak.load();
  while (held > peak && !g_peak.compare_exchange_weak(peak, held)) {
  }
  return memory;
}

void Uncount(void* memory) {
  if (memory != nullptr) g_held -= malloc_usable_size(memory) + kBlockOverhead;
}

// A worker's stack is memory that was not written to yet, so that it shows how far it was used.
struct Stack {
  unsigned char* bytes;
  std::size_t size;
};

std::array<Stack, 64> g_stacks;
std::atomic<std::size_t> g_stack_count{0};

std::size_t Used(const Stack& stack) {
  std::size_t untouched = 0;
  while (untouched < stack.size && stack.bytes[untouched] == 0)
    ++untouched;
  return stack.size - untouched;
}

std::size_t DeepestStack() {
  std::size_t deepest = 0;
  for (std::size_t i = 0; i < g_stack_count; ++i)
    deepest = std::max(deepest, Used(g_stacks[i]));
  return deepest;
}

}  // namespace

extern "C" {

void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);
void __libc_free(void* memory);

void* malloc(std::size_t size) {
  return Counted(__libc_malloc(size));
}
void* calloc(std::size_t count, std::size_t size) {
  return Counted(__libc_calloc(count, size));
}
// The old block and the new one are both there while it copies.
void* realloc(void* memory, std::size_t size) {
  if (memory == nullptr) return malloc(size);
  void* const moved = malloc(size);
  if (moved == nullptr) return nullptr;
  std::memcpy(moved, memory, std::min(size, malloc_usable_size(memory)));
  free(memory);
  return moved;
}
void* aligned_alloc(std::size_t alignment, std::size_t size) {
  return Counted(__libc_memalign(alignment, size));
}
int posix_memalign(void** memory, std::size_t alignment, std::size_t size) {
  *memory = aligned_alloc(alignment, size);
  return *memory == nullptr ? ENOMEM : 0;
}
void free(void* memory) {
  Uncount(memory);
  __libc_free(memory);
}

int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*entry)(void*),
                   void* argument) {
  using Create = decltype(&pthread_create);
  static const auto real = reinterpret_cast<Create>(dlsym(RTLD_NEXT, "pthread_create"));
  const std::size_t number = g_stack_count.load();
  pthread_attr_t own = *attributes;
  Stack stack{};
  pthread_attr_getstacksize(&own, &stack.size);
  void* const memory = mmap(nullptr, stack.size, PROT_READ | PROT_WRITE,
                            MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  if (memory == MAP_FAILED || number == g_stacks.size()) return EAGAIN;
  stack.bytes = static_cast<unsigned char*>(memory);
  g_stacks[number] = stack;
  g_stack_count = number + 1;
  pthread_attr_setstack(&own, memory, stack.size);
  return real(thread, &own, entry, argument);
}

}  // extern "C"

namespace {

constexpr std::string_view kGetAll = R"({"GetAllProperties": true})";
// Apart from the heap, so that only the library's memory is counted.
char g_reply[std::size_t{64} << 20];

// A device root of its own.
class Root {
 public:
  Root() { setenv("VALMERE_ROOT", mkdtemp(name_), 1); }
  ~Root() { std::filesystem::remove_all(name_); }

 private:
  char name_[40] = "/tmp/valmere-footprint-XXXXXX";
};

// False when the session has ended instead.
bool ReceiveReply(std::uint32_t handle) {
  unsigned char header[valmere::kFrameHeaderBytes] = {};
  PRN_Read(handle, header, sizeof header);
  const auto& identifier = valmere::kStreamFormatIdentifier;
  if (std::memcmp(header, identifier.data(), identifier.size()) != 0) return false;
  const std::uint32_t length = valmere::DecodeLength(header + identifier.size());
  PRN_Read(handle, g_reply, std::min<std::uint32_t>(length, sizeof g_reply));
  return true;
}

bool Ask(std::uint32_t handle, const std::string& frame) {
  PRN_Write(handle, frame.data(), static_cast<std::uint32_t>(frame.size()));
  return ReceiveReply(handle);
}

std::string Filled(std::string_view begin, std::string_view piece, std::string_view end) {
  std::string text;
  text.reserve(valmere::kMaximumMessageBytes);
  text = begin;
  while (text.size() + piece.size() + end.size() <= valmere::kMaximumMessageBytes)
    text += piece;
  text += end;
  return text;
}

std::string Nested(std::string_view open, std::string_view close, int depth) {
  std::string text = R"({"GetAllProperties": )";
  for (int i = 0; i < depth; ++i)
    text += open;
  text += "1";
  for (int i = 0; i < depth; ++i)
    text += close;
  return text + "}";
}

double Kilobytes(std::size_t bytes) {
  return static_cast<double>(bytes) / 1000;
}

// A session's thread gives back what its last message took only after it has answered.
void AwaitRelease() {
  constexpr std::size_t kSlack = 100'000;
  constexpr int kMostMilliseconds = 5000;
  for (int waited = 0; g_held > g_rest + kSlack; ++waited) {
    if (waited == kMostMilliseconds) {
      std::printf("not given back                          %10.0f kB\n",
                  Kilobytes(g_held - g_rest));
      return;
    }
    usleep(1000);
  }
}

// A message of the largest size: `begin`, as many of `piece` as it takes, `end`.
void MeasurePeak(const char* what, std::string_view begin, std::string_view piece,
                 std::string_view end) {
  AwaitRelease();
  const std::string frame = valmere::test::FrameOf(Filled(begin, piece, end));
  const std::uint32_t handle = PRN_Open(1, 0, 0);
  Ask(handle, valmere::test::FrameOf(kGetAll));
  const std::size_t before = g_held;
  g_peak = before;
  const bool answered = Ask(handle, frame);
  std::printf("peak of 4 MiB, %-24s %10.0f kB%s\n", what, Kilobytes(g_peak - before),
              answered ? "" : ", refused");
  PRN_Close(handle);
}

void MeasureStack(const char* what, const std::string& text) {
  const std::uint32_t handle = PRN_Open(1, 0, 0);
  const bool answered = Ask(handle, valmere::test::FrameOf(text));
  std::printf("deepest stack, %-24s %10zu bytes%s\n", what, DeepestStack(),
              answered ? "" : ", refused");
  PRN_Close(handle);
}

double ResidentKilobytes() {
  long pages = 0;
  if (std::FILE* file = std::fopen("/proc/self/statm", "r")) {
    if (std::fscanf(file, "%*d %ld", &pages) != 1) pages = 0;
    std::fclose(file);
  }
  return static_cast<double>(pages) * 4.096;
}

}  // namespace

int main() {
  const Root root;
  ResidentKilobytes();
  const std::size_t heap = g_held;
  const double resident = ResidentKilobytes();
  PRN_Init(0);
  g_rest = g_held;
  std::printf("at rest, heap                           %10.1f kB\n", Kilobytes(g_rest - heap));
  std::printf("at rest, resident (with an emulator's)  %10.0f kB\n",
              ResidentKilobytes() - resident);
  std::printf("at rest, threads                        %10zu\n", g_stack_count.load());
  MeasureStack("a get-all", std::string(kGetAll));
  MeasureStack("9,900 nested arrays", Nested("[", "]", 9'900));
  MeasureStack("3,300 nested objects", Nested(R"({"a":)", "}", 3'300));
  MeasurePeak("one text", R"({"GetAllProperties": ")", "a", "\"}");
  MeasurePeak("get requests",
              R"({"PropertyGetRequests": [{"Component": "C0000001","GUID": "G1:P1"})",
              R"(,{"Component": "C0000001","GUID": "G0000001:P0000001"})", "]}");
  MeasurePeak("numbers", R"({"GetAllProperties": [1)", ",1", "]}");
  MeasurePeak("empty arrays", R"({"GetAllProperties": [1)", ",[]", "]}");
  MeasurePeak("objects of one member", R"({"GetAllProperties": [1)", ",{'':1}", "]}");
  std::printf("deepest stack of all these              %10zu of %zu bytes\n", DeepestStack(),
              g_stacks[0].size);
  PRN_Deinit(1);
  return 0;
}
