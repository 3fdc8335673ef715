// Threads of the kernel, without the standard library's: the device's tools know none.
#include <atomic>
#include <cassert>
#include <memory>
#include <new>
#include <utility>

#include "platform/kernel.h"
#include "platform/windows/thread_priority.h"
#include "platform/windows/windows_api.h"

namespace valmere::platform {

// A forced end has its place while the entry runs. Before and after it the kernel starts and ends the
// thread under locks of its own, which would stay held and keep every later thread from starting.
struct Thread::State {
  enum class Phase { kStarting, kRunning, kEnding, kForced };

  State(Entry thread_entry, void* thread_argument)
      : entry(thread_entry), argument(thread_argument) {}

  // True when the thread goes on from one phase to the next; false when it is to end.
  bool Advance(Phase from, Phase to) { return phase.compare_exchange_strong(from, to); }

  static DWORD WINAPI Run(void* state) {
    State* const self = static_cast<State*>(state);
    if (!self->Advance(Phase::kStarting, Phase::kRunning)) return 0;
    self->entry(self->argument);
    // Whoever forces the end has seen the entry run, and is about to.
    if (!self->Advance(Phase::kRunning, Phase::kEnding)) Sleep(INFINITE);
    return 0;
  }

  const Entry entry;
  void* const argument;
  HANDLE handle = nullptr;
  std::atomic<Phase> phase{Phase::kStarting};
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
  CloseHandle(state_->handle);
  delete std::exchange(state_, nullptr);
  return true;
}

void Thread::ForceEnd() noexcept {
  if (WaitEnded(0)) return;
  if (state_->phase.exchange(State::Phase::kForced) == State::Phase::kRunning)
    TerminateThread(state_->handle, 0);
  if (WaitEnded(kForceMilliseconds)) return;
  // The kernel holds the thread back; it may not even have begun, and needs its state then.
  CloseHandle(state_->handle);
  state_ = nullptr;
}

}  // namespace valmere::platform
