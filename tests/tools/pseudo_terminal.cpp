#include "tests/tools/pseudo_terminal.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <stdexcept>

#include "tests/host/subprocess.h"
#include "tests/support/exec_words.h"

namespace valmere::test {
namespace {

constexpr unsigned short kColumns = 80;
constexpr unsigned short kRows = 24;

}  // namespace

PseudoTerminal::PseudoTerminal(const std::vector<std::string>& command,
                               const std::vector<std::string>& environment) {
  std::vector<std::string> arguments = command;
  std::vector<std::string> variables = environment;
  const std::vector<char*> argument_pointers = ExecWords(arguments);
  const std::vector<char*> variable_pointers = ExecWords(variables);
  winsize size{kRows, kColumns, 0, 0};
  process_ = forkpty(&terminal_, nullptr, nullptr, &size);
  if (process_ < 0) throw std::runtime_error("forkpty failed");
  if (process_ == 0) {
    // The test program's own choices are not those of a user's shell.
    for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGPIPE, SIGQUIT, SIGTSTP}) {
      signal(number, SIG_DFL);
    }
    execve(argument_pointers[0], argument_pointers.data(), variable_pointers.data());
    _exit(127);
  }
  fcntl(terminal_, F_SETFD, FD_CLOEXEC);
}

PseudoTerminal::~PseudoTerminal() {
  if (process_ > 0) {
    kill(process_, SIGKILL);
    waitpid(process_, nullptr, 0);
  }
  close(terminal_);
}

void PseudoTerminal::Type(const std::string& keys) const {
  EXPECT_EQ(write(terminal_, keys.data(), keys.size()), static_cast<ssize_t>(keys.size()));
}

std::string PseudoTerminal::Await(const std::string& text) {
  std::size_t at = 0;
  while ((at = shown_.find(text)) == std::string::npos) {
    if (!ReadMore()) {
      ADD_FAILURE() << "\"" << text << "\" is not shown, but\n" << shown_;
      return std::exchange(shown_, "");
    }
  }
  std::string before = shown_.substr(0, at);
  shown_.erase(0, at + text.size());
  return before;
}

void PseudoTerminal::Resize(unsigned short columns) const {
  winsize size{kRows, columns, 0, 0};
  EXPECT_EQ(ioctl(terminal_, TIOCSWINSZ, &size), 0);
}

void PseudoTerminal::Signal(int number) const {
  EXPECT_EQ(kill(process_, number), 0);
}

int PseudoTerminal::Wait() {
  // What it still prints has to go somewhere.
  while (ReadMore()) {
  }
  int status = 0;
  EXPECT_EQ(waitpid(process_, &status, 0), process_);
  process_ = -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

// False at the end of the program, or of the patience.
bool PseudoTerminal::ReadMore() {
  pollfd readable{terminal_, POLLIN, 0};
  const auto patience = std::chrono::milliseconds(kPatience).count();
  if (poll(&readable, 1, static_cast<int>(patience)) <= 0) {
    ADD_FAILURE() << "nothing more is shown";
    if (process_ > 0) kill(process_, SIGKILL);
    return false;
  }
  char buffer[4096];
  const ssize_t count = read(terminal_, buffer, sizeof(buffer));
  if (count <= 0) return false;
  shown_.append(buffer, static_cast<std::size_t>(count));
  return true;
}

}  // namespace valmere::test
