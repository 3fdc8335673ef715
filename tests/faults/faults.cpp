// The linker leads a call of f from the objects of this program to __wrap_f, and one of __real_f to
// the f of the C library, or to a sanitizer's.
#include "tests/faults/faults.h"

#include <pthread.h>
#include <semaphore.h>
#include <signal.h>
#include <time.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <new>

#include "driver/sync/live_counters.h"

namespace valmere::test {
namespace {

constexpr int kNone = -1;

thread_local int t_in_system = 0;
thread_local bool t_worker = false;  // a thread that the system has started
std::atomic<int> g_fault{kNone};
std::atomic<bool> g_onward{false};
std::atomic<std::int64_t> g_left{0};  // calls until the fault, that one included
std::atomic<bool> g_reached{false};
std::atomic<std::int64_t> g_blocks{0};
std::atomic<std::uint64_t> g_publishing_waits{0};

// What a crash would not tell.
void TellOfFault() {
  std::fprintf(stderr, "while fault %d was ordered, %s, %lld calls left\n", g_fault.load(),
               g_onward ? "onward" : "once", static_cast<long long>(g_left.load()));
  std::abort();
}
[[maybe_unused]] const std::terminate_handler g_terminate = std::set_terminate(TellOfFault);

// Ends a test that a fault has made wait without end.
constexpr unsigned kPatienceSeconds = 60;
[[maybe_unused]] const auto g_alarm = signal(SIGALRM, [](int) { TellOfFault(); });

}  // namespace

bool Refused(Fault fault) {
  if (t_in_system == 0 || g_fault.load() != static_cast<int>(fault)) return false;
  const std::int64_t left = g_left.fetch_sub(1);
  if (left > 1 || (left < 1 && !g_onward)) return false;
  g_reached = true;
  return true;
}

int Refuse(int error) {
  errno = error;
  return -1;
}

bool OnWorker() {
  return t_in_system != 0 && t_worker;
}

std::string TestNameOf(Fault fault) {
  static constexpr std::array<const char*, 10> kNames = {
      "Memory", "Thread", "KernelObject", "Open",   "Look",
      "Read",   "Write",  "TornWrite",    "Socket", "Poll"};
  return kNames.at(static_cast<std::size_t>(fault));
}

OrderedFault::OrderedFault(Fault fault, std::uint64_t n, Extent extent) {
  g_reached = false;
  g_left = static_cast<std::int64_t>(n);
  g_onward = extent == Extent::kOnward;
  alarm(kPatienceSeconds);
  g_fault = static_cast<int>(fault);
}

OrderedFault::~OrderedFault() {
  End();
  alarm(0);
}

bool OrderedFault::End() {
  g_fault = kNone;
  return g_reached;
}

bool OrderedFault::reached() const {
  return g_reached;
}

InSystem::InSystem() {
  ++t_in_system;
}

InSystem::~InSystem() {
  --t_in_system;
}

std::int64_t SystemBlocks() {
  return g_blocks;
}

std::uint64_t PublishingWaits() {
  return g_publishing_waits;
}

namespace {

// Before each block stands whether it is the system's.
constexpr std::size_t kHeader = alignof(std::max_align_t);

void* Allocate(std::size_t size) {
  if (Refused(Fault::kMemory)) return nullptr;
  void* const block = std::malloc(size + kHeader);
  if (block == nullptr) return nullptr;
  const bool of_system = t_in_system != 0;
  *static_cast<bool*>(block) = of_system;
  if (of_system) g_blocks.fetch_add(1);
  return static_cast<char*>(block) + kHeader;
}

void Free(void* memory) {
  if (memory == nullptr) return;
  void* const block = static_cast<char*>(memory) - kHeader;
  if (*static_cast<bool*>(block)) g_blocks.fetch_sub(1);
  std::free(block);
}

struct SystemThread {
  void* (*entry)(void*);
  void* argument;
};

void* RunInSystem(void* started) {
  const SystemThread thread = *static_cast<SystemThread*>(started);
  std::free(started);
  const InSystem in_system;
  t_worker = true;
  return thread.entry(thread.argument);
}

constexpr long kNanosecondsPerMillisecond = 1'000'000;

long MillisecondsUntil(const timespec& deadline) {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<long>(deadline.tv_sec - now.tv_sec) * 1000 +
         (deadline.tv_nsec - now.tv_nsec) / kNanosecondsPerMillisecond;
}

timespec InMilliseconds(long milliseconds) {
  timespec time{};
  clock_gettime(CLOCK_MONOTONIC, &time);
  time.tv_nsec += milliseconds * kNanosecondsPerMillisecond;
  if (time.tv_nsec >= 1000 * kNanosecondsPerMillisecond) {
    time.tv_nsec -= 1000 * kNanosecondsPerMillisecond;
    ++time.tv_sec;
  }
  return time;
}

}  // namespace

// NOLINTBEGIN(bugprone-reserved-identifier): the linker's names
extern "C" {

int __real_pthread_create(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);
int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                          void* (*entry)(void*), void* argument) {
  if (t_in_system == 0) return __real_pthread_create(thread, attributes, entry, argument);
  if (Refused(Fault::kThread)) return EAGAIN;
  void* const started = std::malloc(sizeof(SystemThread));
  *static_cast<SystemThread*>(started) = {entry, argument};
  const int result = __real_pthread_create(thread, attributes, &RunInSystem, started);
  if (result != 0) std::free(started);
  return result;
}

int __real_sem_init(sem_t*, int, unsigned);
int __wrap_sem_init(sem_t* semaphore, int shared, unsigned value) {
  if (Refused(Fault::kKernelObject)) return Refuse(ENOSPC);
  return __real_sem_init(semaphore, shared, value);
}

int __real_pthread_mutex_init(pthread_mutex_t*, const pthread_mutexattr_t*);
int __wrap_pthread_mutex_init(pthread_mutex_t* mutex, const pthread_mutexattr_t* attributes) {
  if (Refused(Fault::kKernelObject)) return ENOMEM;
  return __real_pthread_mutex_init(mutex, attributes);
}

int __real_sem_clockwait(sem_t*, clockid_t, const timespec*);
int __wrap_sem_clockwait(sem_t* semaphore, clockid_t clock, const timespec* deadline) {
  constexpr long kUnloadMilliseconds = 2500;  // more than all but the wait of an unload
  constexpr long kStopMilliseconds = 260;     // less than what a thread that ends is given
  constexpr long kRetryMilliseconds = 150;    // more than a retry waits
  constexpr long kShortMilliseconds = 1;
  constexpr long kStragglerMilliseconds = 1000;  // where a busy machine lets a thread end late
  const long wait = t_in_system == 0 ? 0 : MillisecondsUntil(*deadline);
  timespec shortened = *deadline;
  if (wait > kUnloadMilliseconds && !t_worker) {
    const bool alone = LiveWorkerThreads::Live() + LiveEventFlags::Live() == 1;  // the wait's own
    shortened = InMilliseconds(alone ? 0 : kStragglerMilliseconds);
  } else if (t_worker && wait > kRetryMilliseconds && wait < kStopMilliseconds) {
    g_publishing_waits.fetch_add(1);
    shortened = InMilliseconds(kShortMilliseconds);
  }
  return __real_sem_clockwait(semaphore, clock, &shortened);
}

}  // extern "C"
// NOLINTEND(bugprone-reserved-identifier)

}  // namespace valmere::test

void* operator new(std::size_t size) {
  void* const memory = valmere::test::Allocate(size);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}
void* operator new(std::size_t size, const std::nothrow_t& /*nothrow*/) noexcept {
  return valmere::test::Allocate(size);
}
void* operator new[](std::size_t size) {
  return operator new(size);
}
void* operator new[](std::size_t size, const std::nothrow_t& nothrow) noexcept {
  return operator new(size, nothrow);
}
void operator delete(void* memory) noexcept {
  valmere::test::Free(memory);
}
void operator delete(void* memory, std::size_t /*size*/) noexcept {
  valmere::test::Free(memory);
}
void operator delete[](void* memory) noexcept {
  valmere::test::Free(memory);
}
void operator delete[](void* memory, std::size_t /*size*/) noexcept {
  valmere::test::Free(memory);
}
