// Threads of the kernel, not the standard library's, which the device's tools don't have.
#include <cassert>
#include <memory>
#include <new>
#include <utility>

#include "platform/kernel.h"
#include "platform/windows/current_thread.h"
#include "platform/windows/thread_priority.h"
#include "platform/windows/windows_api.h"

namespace valmere::platform {

struct Thread::State {
  State(Entry thread_entry, void* thread_argument)
      : entry(thread_entry), argument(thread_argument) {}
  ~State() {
    if (handle != nullptr) CloseHandle(handle);
  }

  static DWORD WINAPI Run(void* state) {
    State* const self = static_cast<State*>(state);
    SetCurrentThreadMark(&self->mark);
    self->entry(self->argument);
    SetCurrentThreadMark(nullptr);
    if (!self->mark.End()) delete self;
    return 0;
  }

  const Entry entry;
  void* const argument;
  HANDLE handle = nullptr;
  ThreadMark mark;
};

namespace {

// How long a forced end waits for the kernel.
constexpr DWORD kForceMilliseconds = 1000;

// Keeps the library that this code is in from being unloaded under a thread that still runs in it.
void StayLoaded() {
  MEMORY_BASIC_INFORMATION info{};
  if (VirtualQuery(reinterpret_cast<const void*>(&StayLoaded), &info, sizeof info) == 0) return;
  wchar_t path[MAX_PATH];
  const DWORD length =
      GetModuleFileNameW(static_cast<HMODULE>(info.AllocationBase), path, MAX_PATH);
  if (length > 0 && length < MAX_PATH) LoadLibraryW(path);
}

// Allocated when the library is loaded and freed when it is unloaded.
class Slot {
 public:
  Slot() : index_plus_one_(TlsAlloc() + 1) {}
  ~Slot() {
    if (index_plus_one_ != 0) TlsFree(index_plus_one_ - 1);
  }
  Slot(const Slot&) = delete;
  Slot& operator=(const Slot&) = delete;

  // Without a slot no worker is ended by force.
  void* Get() const { return index_plus_one_ != 0 ? TlsGetValue(index_plus_one_ - 1) : nullptr; }
  void Set(void* value) const {
    if (index_plus_one_ != 0) TlsSetValue(index_plus_one_ - 1, value);
  }

 private:
  // 0 when the system gives none, and before it was asked for.
  const DWORD index_plus_one_;
};
const Slot g_slot;

}  // namespace

ThreadMark* CurrentThreadMark() noexcept {
  return static_cast<ThreadMark*>(g_slot.Get());
}
void SetCurrentThreadMark(ThreadMark* mark) noexcept {
  g_slot.Set(mark);
}

void MarkedWait::StayForEver() {
  for (;;)
    Sleep(INFINITE);
}

Thread::~Thread() {
  assert(state_ == nullptr && "a thread outlives its object");
}

// Started only when its priority is set, so that it never runs at another.
bool Thread::Start(Entry entry, void* argument, int priority) noexcept {
  assert(state_ == nullptr && "started twice");
  std::unique_ptr<State> state(new (std::nothrow) State(entry, argument));
  if (!state) return false;
  state->handle = CreateThread(nullptr, kStackBytes, &State::Run, state.get(),
                               CREATE_SUSPENDED | STACK_SIZE_PARAM_IS_A_RESERVATION, nullptr);
  if (state->handle == nullptr) return false;
  SetPriority(state->handle, priority);
  ResumeThread(state->handle);
  state_ = state.release();
  return true;
}

bool Thread::WaitEnded(std::uint32_t milliseconds) noexcept {
  if (state_ == nullptr) return true;
  if (WaitForSingleObject(state_->handle, milliseconds) != WAIT_OBJECT_0) return false;
  delete std::exchange(state_, nullptr);
  return true;
}

// The kernel starts and ends a thread under locks of its own; one that waits is far from either.
Thread::ForcedEnd Thread::ForceEnd() noexcept {
  if (state_ == nullptr || !state_->mark.Force()) return ForcedEnd::kNotNow;
  TerminateThread(state_->handle, 0);
  if (WaitEnded(kForceMilliseconds)) return ForcedEnd::kGone;
  // It may come out of its wait yet, and needs its state and us then.
  StayLoaded();
  state_ = nullptr;
  return ForcedEnd::kHeldBack;
}

void Thread::LeaveBehind() noexcept {
  if (WaitEnded(0)) return;
  StayLoaded();
  if (state_->mark.LeaveBehind()) {
    state_ = nullptr;  // the thread gives it back
    return;
  }
  while (!WaitEnded(kForceMilliseconds)) {
  }
}

}  // namespace valmere::platform
