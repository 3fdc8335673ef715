// Threads and their forced end. The kernel knows no call that ends another thread where it stands,
// so ForceEnd sends the thread a signal whose handler leaves by the bare exit call: nothing is
// unwound, no exit hook runs, and it works whether the thread sleeps or spins. The C library never
// learns that such a thread is gone; its stack stays allotted until the process ends.
#include <pthread.h>
#include <signal.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <cassert>
#include <memory>
#include <new>
#include <utility>

#include "platform/kernel.h"
#include "platform/posix/sanitizers.h"

namespace valmere::platform {

struct Thread::State {
  const Entry entry;
  void* const argument;
  pthread_t handle{};
  pid_t forced_id = 0;  // the kernel's number of a thread that was ended by force
  Semaphore ended;      // released once, by the thread's last act or by its forced end

  State(Entry e, void* a) : entry(e), argument(a) {}

  static void* Run(void* state);
  static void OnEndSignal(int, siginfo_t* info, void*);
};

namespace {

// How long a forced end waits for the kernel; only a thread inside an uninterruptible system call
// takes longer than a moment.
constexpr Ticks kForceWait = 1000 * kTicksPerMillisecond;

// Sanitizers keep their own data of a thread on its stack and make every frame larger.
#ifdef VALMERE_SANITIZER
constexpr std::size_t kStackFactor = 4;
#else
constexpr std::size_t kStackFactor = 1;
#endif

int EndSignal() {
  return SIGRTMIN + 3;
}

sigset_t EndSignalSet() {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, EndSignal());
  return set;
}

// What workers do not take: every signal but faults. The process's other signals are for the
// threads of the program that loaded the library.
sigset_t SignalsOfOthers() {
  sigset_t set;
  sigfillset(&set);
  for (int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGABRT, SIGSYS})
    sigdelset(&set, fault);
  return set;
}

bool SetAttributes(pthread_attr_t* attributes) {
  const sigset_t blocked = SignalsOfOthers();
  return pthread_attr_setstacksize(attributes, Thread::kStackBytes * kStackFactor) == 0 &&
         pthread_attr_setsigmask_np(attributes, &blocked) == 0;
}

void InstallEndHandler(void (*handler)(int, siginfo_t*, void*)) {
  struct sigaction action {};
  action.sa_sigaction = handler;
  action.sa_flags = SA_SIGINFO;
  sigfillset(&action.sa_mask);
  sigaction(EndSignal(), &action, nullptr);
}

// Returns when the kernel has no such thread of ours any more, or at the deadline.
void AwaitGone(pid_t id, Ticks deadline) {
  constexpr timespec kPause{0, 100'000};  // nanoseconds
  while (syscall(SYS_tgkill, getpid(), id, 0) == 0 && MonotonicNow() < deadline)
    nanosleep(&kPause, nullptr);
}

}  // namespace

void* Thread::State::Run(void* argument) {
  State* const state = static_cast<State*>(argument);
  // A forced end has its place while the entry runs: before that it would break the C library's
  // start of the thread, after that it would release a second time.
  const sigset_t end = EndSignalSet();
  pthread_sigmask(SIG_UNBLOCK, &end, nullptr);
  state->entry(state->argument);
  pthread_sigmask(SIG_BLOCK, &end, nullptr);
  state->ended.Release();
  return nullptr;
}

void Thread::State::OnEndSignal(int, siginfo_t* info, void*) {
  if (info->si_code != SI_QUEUE || info->si_pid != getpid()) return;
  State* const state = static_cast<State*>(info->si_value.sival_ptr);
  state->forced_id = static_cast<pid_t>(syscall(SYS_gettid));
  state->ended.Release();
  syscall(SYS_exit, 0);
}

Thread::~Thread() {
  assert(state_ == nullptr && "a thread outlives its object");
}

bool Thread::Start(Entry entry, void* argument, int /*priority*/) noexcept {
  assert(state_ == nullptr && "started twice");
  std::unique_ptr<State> state;
  try {
    state = std::make_unique<State>(entry, argument);
  } catch (const std::bad_alloc&) {
    return false;
  }
  pthread_attr_t attributes;
  if (pthread_attr_init(&attributes) != 0) return false;
  const bool started = SetAttributes(&attributes) &&
                       pthread_create(&state->handle, &attributes, &State::Run, state.get()) == 0;
  pthread_attr_destroy(&attributes);
  if (started) state_ = state.release();
  return started;
}

bool Thread::WaitEnded(std::uint32_t milliseconds) noexcept {
  if (state_ == nullptr) return true;
  if (!state_->ended.WaitUntil(MonotonicNow() + milliseconds * kTicksPerMillisecond)) return false;
  pthread_join(state_->handle, nullptr);
  delete std::exchange(state_, nullptr);
  return true;
}

void Thread::ForceEnd() noexcept {
  if (WaitEnded(0)) return;
  InstallEndHandler(&State::OnEndSignal);
  State* const state = std::exchange(state_, nullptr);
  const Ticks deadline = MonotonicNow() + kForceWait;
  sigval value{};
  value.sival_ptr = state;
  pthread_sigqueue(state->handle, EndSignal(), value);
  const bool ended = state->ended.WaitUntil(deadline);
  if (ended && state->forced_id != 0) AwaitGone(state->forced_id, deadline);
  // Not joined: that would wait for exit hooks that never run.
  pthread_detach(state->handle);
  // A thread that the kernel holds back still meets its signal later, and needs its state then.
  if (ended) delete state;
}

}  // namespace valmere::platform
