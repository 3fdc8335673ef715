#include "tests/host/traced_child.h"

#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/user.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <exception>
#include <initializer_list>

namespace valmere::test {
namespace {

[[noreturn]] void RunTraced(const std::function<void()>& body) {
  if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) _exit(1);
  raise(SIGSTOP);
  try {
    body();
  } catch (const std::exception&) {
  }
  _exit(0);
}

// Purpose: the child, which stands still whenever no step is made.
// Owner: one run.
// Threads: one.
// Errors: a child that can't be traced has ended.
class TracedChild {
 public:
  explicit TracedChild(const std::function<void()>& body) : process_(fork()) {
    if (process_ == 0) RunTraced(body);
    Await();
  }
  ~TracedChild() {
    if (ended_) return;
    kill(process_, SIGKILL);
    waitpid(process_, nullptr, 0);
  }
  TracedChild(const TracedChild&) = delete;
  TracedChild& operator=(const TracedChild&) = delete;

  // On to where the next system call begins or ends.
  void Step() {
    if (ended_ || ptrace(PTRACE_SYSCALL, process_, nullptr, nullptr) == 0) Await();
  }
  bool ended() const { return ended_; }
  pid_t process() const { return process_; }

 private:
  void Await() {
    int status = 0;
    if (ended_) return;
    waitpid(process_, &status, 0);
    ended_ = WIFEXITED(status) || WIFSIGNALED(status);
  }

  const pid_t process_;
  bool ended_ = false;
};

#ifdef __x86_64__
using Registers = user_regs_struct;

Registers RegistersOf(const TracedChild& child) {
  Registers registers{};
  ptrace(PTRACE_GETREGS, child.process(), nullptr, &registers);
  return registers;
}

bool MayChangeAFile(const TracedChild& child) {
  const auto call = static_cast<long>(RegistersOf(child).orig_rax);
  for (const long changing : {SYS_mkdir, SYS_mkdirat, SYS_openat, SYS_write, SYS_fsync, SYS_rename,
                              SYS_renameat, SYS_renameat2, SYS_unlink, SYS_unlinkat, SYS_rmdir})
    if (call == changing) return true;
  return false;
}

// The kernel is asked for a call that there is not; then its answer is exchanged.
void RefuseCall(TracedChild& child) {
  Registers registers = RegistersOf(child);
  registers.orig_rax = static_cast<decltype(registers.orig_rax)>(-1);
  ptrace(PTRACE_SETREGS, child.process(), nullptr, &registers);
  child.Step();
  registers = RegistersOf(child);
  registers.rax = static_cast<decltype(registers.rax)>(-ENOSPC);
  ptrace(PTRACE_SETREGS, child.process(), nullptr, &registers);
}
#endif

}  // namespace

std::string WhyNothingCanBeTraced() {
  return RunAndKillAtCall(1, [] { syscall(SYS_getppid); }) ? "" : "no process can be traced";
}

bool RunAndKillAtCall(int n, const std::function<void()>& body) {
  TracedChild child(body);
  for (int call = 1; call < n && !child.ended(); ++call) {
    child.Step();
    child.Step();
  }
  child.Step();
  return !child.ended();
}

#ifdef __x86_64__
bool RunWithCallRefused(int n, const std::function<void()>& body) {
  TracedChild child(body);
  int seen = 0;
  while (!child.ended()) {
    child.Step();
    if (!child.ended() && MayChangeAFile(child) && ++seen == n)
      RefuseCall(child);
    else
      child.Step();
  }
  return seen >= n;
}
#endif

}  // namespace valmere::test
