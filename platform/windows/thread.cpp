// Threads of the kernel, without the standard library's: the device's tools know none.
#include <cassert>
#include <memory>
#include <new>
#include <utility>

#include "platform/kernel.h"
#include "platform/windows/thread_priority.h"
#include "platform/windows/windows_api.h"

namespace valmere::platform {

struct Thread::State {
  const Entry entry;
  void* const argument;
  HANDLE handle = nullptr;

  static DWORD WINAPI Run(void* state) {
    State* const self = static_cast<State*>(state);
    self->entry(self->argument);
    return 0;
  }
};

namespace {

// How long a forced end waits for the kernel.
constexpr DWORD kForceMilliseconds = 1000;

}  // namespace

Thread::~Thread() {
  assert(state_ == nullptr && "a thread outlives its object");
}

// Started only when its priority is set, so that it never runs at another.
bool Thread::Start(Entry entry, void* argument, int priority) noexcept {
  assert(state_ == nullptr && "started twice");
  std::unique_ptr<State> state(new (std::nothrow) State{entry, argument});
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
  CloseHandle(state_->handle);
  delete std::exchange(state_, nullptr);
  return true;
}

void Thread::ForceEnd() noexcept {
  if (WaitEnded(0)) return;
  TerminateThread(state_->handle, 0);
  if (WaitEnded(kForceMilliseconds)) return;
  // The kernel holds the thread back; it may not even have begun, and needs its state then.
  CloseHandle(state_->handle);
  state_ = nullptr;
}

}  // namespace valmere::platform
