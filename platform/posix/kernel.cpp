// Locks are recursive mutexes and semaphores are POSIX ones, made in place: neither costs memory or
// a system call until a thread has to sleep. Deadlines go by the monotonic clock, so that setting
// the wall clock neither shortens nor extends a wait.
#include "platform/kernel.h"

#include <pthread.h>
#include <semaphore.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <new>

#include "platform/posix/current_thread.h"
#include "platform/posix/sanitizers.h"
#ifdef VALMERE_THREAD_SANITIZER
#include <sanitizer/tsan_interface.h>
#endif

namespace valmere::platform {
namespace {

constexpr Ticks kTicksPerSecond = 1000 * kTicksPerMillisecond;
constexpr long kNanosecondsPerTick = 100;

// Two microseconds or so.
constexpr int kLooksBeforeSleep = 50;

// Tells the processor that this is a spinning thread.
inline void Pause() {
#if defined(__x86_64__) || defined(__i386__)
  __builtin_ia32_pause();
#elif defined(__arm__) || defined(__aarch64__)
  __asm__ volatile("yield");
#endif
}

timespec ToTimespec(Ticks ticks) {
  ticks = std::max<Ticks>(ticks, 0);
  timespec time{};
  time.tv_sec = static_cast<time_t>(ticks / kTicksPerSecond);
  time.tv_nsec = static_cast<long>(ticks % kTicksPerSecond) * kNanosecondsPerTick;
  return time;
}

pthread_mutex_t* Mutex(void* storage) {
  return static_cast<pthread_mutex_t*>(storage);
}
sem_t* Sem(void* storage) {
  return static_cast<sem_t*>(storage);
}

// A worker that holds a lock is not ended by force.
inline void CountTaken() {
  if (current_thread_mark != nullptr) current_thread_mark->TookLock();
}
inline void CountLeft() {
  if (current_thread_mark != nullptr) current_thread_mark->LeftLock();
}

}  // namespace

Ticks MonotonicNow() noexcept {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<Ticks>(now.tv_sec) * kTicksPerSecond + now.tv_nsec / kNanosecondsPerTick;
}

std::uint32_t CurrentThreadId() noexcept {
  return static_cast<std::uint32_t>(syscall(SYS_gettid));
}

Lock::Lock() {
  static_assert(sizeof(pthread_mutex_t) <= sizeof(storage_));
  static_assert(alignof(pthread_mutex_t) <= 8);
  pthread_mutexattr_t attributes;
  pthread_mutexattr_init(&attributes);
  pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
  const int failed = pthread_mutex_init(new (storage_) pthread_mutex_t, &attributes);
  pthread_mutexattr_destroy(&attributes);
  if (failed != 0) throw std::bad_alloc();
}

Lock::~Lock() {
  pthread_mutex_destroy(Mutex(storage_));
}

// A lock is held for far less time than it takes to sleep and be woken, so a thread that finds it
// held tries again for a moment before it sleeps.
void Lock::Enter() noexcept {
  CountTaken();
  for (int look = 0; look < kLooksBeforeSleep; ++look) {
    if (pthread_mutex_trylock(Mutex(storage_)) == 0) return;
    Pause();
  }
  pthread_mutex_lock(Mutex(storage_));
}

bool Lock::TryEnter() noexcept {
  if (pthread_mutex_trylock(Mutex(storage_)) != 0) return false;
  CountTaken();
  return true;
}

void Lock::Leave() noexcept {
  pthread_mutex_unlock(Mutex(storage_));
  CountLeft();
}

Semaphore::Semaphore(std::uint32_t initial) {
  static_assert(sizeof(sem_t) <= sizeof(storage_));
  static_assert(alignof(sem_t) <= 8);
  if (sem_init(new (storage_) sem_t, 0, initial) != 0) throw std::bad_alloc();
}

Semaphore::~Semaphore() {
  sem_destroy(Sem(storage_));
}

void Semaphore::Release() noexcept {
  sem_post(Sem(storage_));
}

void Semaphore::Wait() noexcept {
  const WaitInKernel wait;
  while (sem_wait(Sem(storage_)) != 0 && errno == EINTR) {
  }
}

bool Semaphore::WaitUntil(Ticks deadline) noexcept {
  const timespec time = ToTimespec(deadline);
  const WaitInKernel wait;
  for (;;) {
    // Asked first on every round: under the thread sanitizer this is also where a signal that broke
    // the sleep, such as a forced end, is handled.
    if (sem_trywait(Sem(storage_)) == 0) return true;
    if (sem_clockwait(Sem(storage_), CLOCK_MONOTONIC, &time) == 0) break;
    if (errno != EINTR) return false;
  }
#ifdef VALMERE_THREAD_SANITIZER
  // It does not know sem_clockwait and must be told what the wait has taken over.
  __tsan_acquire(storage_);
#endif
  return true;
}

}  // namespace valmere::platform
