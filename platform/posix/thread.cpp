// Threads and their forced end. The kernel knows no call that ends another thread, so ForceEnd
// sends the thread a signal whose handler leaves by the bare exit call: nothing is unwound and no
// exit hook runs. It is sent only to a thread that ThreadMark has stopped in a wait in the kernel,
// and that runs no other code any more. The C library never learns that such a thread is gone; its
// stack stays allocated until the process ends.
#include <dlfcn.h>
#include <pthread.h>
#include <signal.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <cassert>
#include <cerrno>
#include <memory>
#include <new>
#include <utility>

#include "platform/kernel.h"
#include "platform/posix/current_thread.h"
#include "platform/posix/sanitizers.h"

namespace valmere::platform {

struct Thread::State {
  const Entry entry;
  void* const argument;
  ThreadMark mark;
  pthread_t handle{};
  pid_t forced_id = 0;  // the kernel's number of a thread that was ended by force
  Semaphore ended;      // released once, by the thread's last act or by its forced end

  State(Entry e, void* a) : entry(e), argument(a) {}

  static void* Run(void* state);
  static void OnEndSignal(int number, siginfo_t* info, void* context);
};

namespace {

// How long a forced end waits for the kernel; only a thread inside an uninterruptible system call
// takes longer than a moment.
constexpr std::uint32_t kForceMilliseconds = 1000;
constexpr Ticks kForceWait = kForceMilliseconds * kTicksPerMillisecond;

// Sanitizers keep their own data of a thread on its stack and make every frame larger.
#ifdef VALMERE_SANITIZER
constexpr std::size_t kStackFactor = 4;
#else
constexpr std::size_t kStackFactor = 1;
#endif

// One of the faults, because a worker must not block this signal. If it left any other signal
// unblocked, it could take one that the program has blocked elsewhere in order to wait for it.
// Programs have no other use for this one.
constexpr int kEndSignal = SIGSYS;

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

// Purpose: lends the end signal to threads that are being ended; the program's own handler is back
//   when the last of them has gone.
// Owner: a call of ForceEnd.
// Threads: any.
// Errors: none.
class LentSignal {
 public:
  explicit LentSignal(void (*handler)(int, siginfo_t*, void*)) {
    const ScopedLock hold(lock_);
    if (borrowers_++ > 0) return;
    struct sigaction action {};
    action.sa_sigaction = handler;
    action.sa_flags = SA_SIGINFO;
    sigfillset(&action.sa_mask);
    sigaction(kEndSignal, &action, &program_);
  }
  // Not after Keep: a thread that has yet to meet its signal must find our handler.
  ~LentSignal() {
    const ScopedLock hold(lock_);
    if (!kept_ && --borrowers_ == 0) sigaction(kEndSignal, &program_, nullptr);
  }
  LentSignal(const LentSignal&) = delete;
  LentSignal& operator=(const LentSignal&) = delete;

  void Keep() { kept_ = true; }
  // In our handler, for a signal of the program's own. Nothing changes while the signal is lent.
  static void PassOn(int number, siginfo_t* info, void* context) NO_THREAD_SAFETY_ANALYSIS {
    if ((program_.sa_flags & SA_SIGINFO) != 0) return program_.sa_sigaction(number, info, context);
    if (program_.sa_handler != SIG_DFL && program_.sa_handler != SIG_IGN)
      program_.sa_handler(number);
  }

 private:
  static inline Lock lock_;
  static inline int borrowers_ GUARDED_BY(lock_) = 0;
  static inline struct sigaction program_ GUARDED_BY(lock_) {};

  bool kept_ = false;
};

// Keeps the library that this code is in from being unloaded under a thread that still runs in it.
void StayLoaded() {
  Dl_info info{};
  if (dladdr(reinterpret_cast<void*>(&StayLoaded), &info) != 0)
    dlopen(info.dli_fname, RTLD_LAZY | RTLD_NOLOAD | RTLD_NODELETE);
}

constexpr timespec kPause{0, 100'000};  // nanoseconds

// True when the kernel has no such thread any more, false at the deadline.
bool AwaitGone(pid_t id, Ticks deadline) {
  while (syscall(SYS_tgkill, getpid(), id, 0) == 0) {
    if (MonotonicNow() >= deadline) return false;
    nanosleep(&kPause, nullptr);
  }
  return true;
}

// The kernel may be short of signals for a while.
void SendEndSignal(pthread_t thread, void* state, Ticks deadline) {
  sigval value{};
  value.sival_ptr = state;
  while (pthread_sigqueue(thread, kEndSignal, value) == EAGAIN && MonotonicNow() < deadline)
    nanosleep(&kPause, nullptr);
}

}  // namespace

void MarkedWait::StayForEver() {
  for (;;)
    pause();
}

void* Thread::State::Run(void* argument) {
  State* const state = static_cast<State*>(argument);
  current_thread_mark = &state->mark;
  state->entry(state->argument);
  current_thread_mark = nullptr;
  if (state->mark.End())
    state->ended.Release();
  else
    delete state;
  return nullptr;
}

// Any process can send this signal with any value; it is ours only if it names the thread that it
// meets.
void Thread::State::OnEndSignal(int number, siginfo_t* info, void* context) {
  State* const state = static_cast<State*>(info->si_value.sival_ptr);
  if (info->si_code != SI_QUEUE || info->si_pid != getpid() || current_thread_mark == nullptr ||
      current_thread_mark != &state->mark || !state->mark.forced())
    return LentSignal::PassOn(number, info, context);
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

Thread::ForcedEnd Thread::ForceEnd() noexcept {
  if (state_ == nullptr || !state_->mark.Force()) return ForcedEnd::kNotNow;
  LentSignal signal(&State::OnEndSignal);
  State* const state = std::exchange(state_, nullptr);
  const Ticks deadline = MonotonicNow() + kForceWait;
  SendEndSignal(state->handle, state, deadline);
  const bool gone = state->ended.WaitUntil(deadline) && AwaitGone(state->forced_id, deadline);
  // Not joined: that would wait for exit hooks that never run.
  pthread_detach(state->handle);
  if (gone) {
    delete state;
    return ForcedEnd::kGone;
  }
  // It meets its signal later, and needs its state and us then.
  signal.Keep();
  StayLoaded();
  return ForcedEnd::kHeldBack;
}

void Thread::LeaveBehind() noexcept {
  if (WaitEnded(0)) return;
  const pthread_t handle = state_->handle;
  StayLoaded();
  if (!state_->mark.LeaveBehind()) {
    while (!WaitEnded(kForceMilliseconds)) {
    }
    return;
  }
  state_ = nullptr;  // the thread gives it back
  pthread_detach(handle);
}

}  // namespace valmere::platform
