// Locks are critical sections and semaphores are the kernel's. The monotonic clock is the
// performance counter: the tick count wraps after 49 days, which a printer may well see.
#include "platform/kernel.h"

#include <algorithm>
#include <new>

#include "platform/windows/current_thread.h"
#include "platform/windows/windows_api.h"

namespace valmere::platform {
namespace {

constexpr Ticks kTicksPerSecond = 1000 * kTicksPerMillisecond;

// Two microseconds or so.
constexpr int kLooksBeforeSleep = 50;

CRITICAL_SECTION* Section(void* storage) {
  return static_cast<CRITICAL_SECTION*>(storage);
}
HANDLE& HandleIn(void* storage) {
  return *static_cast<HANDLE*>(storage);
}

// A worker that holds a lock is not ended by force.
void CountTaken() {
  if (ThreadMark* const mark = CurrentThreadMark()) mark->TookLock();
}
void CountLeft() {
  if (ThreadMark* const mark = CurrentThreadMark()) mark->LeftLock();
}

// The counter's steps a second never change while the system runs.
Ticks CounterFrequency() {
  LARGE_INTEGER frequency{};
  QueryPerformanceFrequency(&frequency);
  return frequency.QuadPart;
}

// Rounded up, so that a wait of this length reaches the deadline, and never the value that means
// "for ever".
DWORD MillisecondsUntil(Ticks deadline) {
  const Ticks left = std::max<Ticks>(deadline - MonotonicNow(), 0);
  const Ticks milliseconds = (left + kTicksPerMillisecond - 1) / kTicksPerMillisecond;
  return static_cast<DWORD>(std::min<Ticks>(milliseconds, INFINITE - 1));
}

}  // namespace

// Whole seconds and the rest apart: the product of the count and 10,000,000 would not fit for long.
Ticks MonotonicNow() noexcept {
  static const Ticks frequency = CounterFrequency();
  LARGE_INTEGER count{};
  QueryPerformanceCounter(&count);
  const Ticks seconds = count.QuadPart / frequency;
  return seconds * kTicksPerSecond + count.QuadPart % frequency * kTicksPerSecond / frequency;
}

std::uint32_t CurrentThreadId() noexcept {
  return GetCurrentThreadId();
}

Lock::Lock() {
  static_assert(sizeof(CRITICAL_SECTION) <= sizeof(storage_));
  static_assert(alignof(CRITICAL_SECTION) <= 8);
  InitializeCriticalSection(new (storage_) CRITICAL_SECTION);
}

Lock::~Lock() {
  DeleteCriticalSection(Section(storage_));
}

// A lock is held for far less time than it takes to sleep and be woken, so a thread that finds it
// held tries again for a moment before it sleeps.
void Lock::Enter() noexcept {
  CountTaken();
  for (int look = 0; look < kLooksBeforeSleep; ++look) {
    if (TryEnterCriticalSection(Section(storage_)) != FALSE) return;
    YieldProcessor();
  }
  EnterCriticalSection(Section(storage_));
}

bool Lock::TryEnter() noexcept {
  if (TryEnterCriticalSection(Section(storage_)) == FALSE) return false;
  CountTaken();
  return true;
}

void Lock::Leave() noexcept {
  LeaveCriticalSection(Section(storage_));
  CountLeft();
}

Semaphore::Semaphore(std::uint32_t initial) {
  static_assert(sizeof(HANDLE) <= sizeof(storage_));
  const HANDLE made =
      CreateSemaphoreW(nullptr, static_cast<LONG>(initial), static_cast<LONG>(kMaximum), nullptr);
  if (made == nullptr) throw std::bad_alloc();
  new (storage_) HANDLE(made);
}

Semaphore::~Semaphore() {
  CloseHandle(HandleIn(storage_));
}

void Semaphore::Release() noexcept {
  ReleaseSemaphore(HandleIn(storage_), 1, nullptr);
}

void Semaphore::Wait() noexcept {
  const WaitInKernel wait;
  WaitForSingleObject(HandleIn(storage_), INFINITE);
}

// The kernel counts in its own clock's steps and may come back a little early.
bool Semaphore::WaitUntil(Ticks deadline) noexcept {
  const WaitInKernel wait;
  for (;;) {
    const DWORD milliseconds = MillisecondsUntil(deadline);
    if (WaitForSingleObject(HandleIn(storage_), milliseconds) == WAIT_OBJECT_0) return true;
    if (MonotonicNow() >= deadline) return false;
  }
}

}  // namespace valmere::platform
