// Both pipes are read whenever either is waited for, so that a program never blocks on a full one.
#include "tests/host/subprocess.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>

#include "platform/posix/sanitizers.h"
#include "tests/support/exec_words.h"

extern char** environ;

namespace valmere::test {
namespace {

// The thread sanitizer's runtime takes a program's signals first and passes them on when it sees
// fit; about one in some hundred it has been seen to lose. There, and only there, a signal is sent
// again after ten silent seconds.
#ifdef VALMERE_THREAD_SANITIZER
constexpr bool kSignalsGetLost = true;
#else
constexpr bool kSignalsGetLost = false;
#endif
constexpr int kSilenceMilliseconds = 10'000;

void ReadSome(int& descriptor, std::string& text) {
  char buffer[65536];
  const ssize_t count = read(descriptor, buffer, sizeof(buffer));
  if (count > 0) {
    text.append(buffer, static_cast<std::size_t>(count));
    return;
  }
  close(descriptor);
  descriptor = -1;
}

}  // namespace

TemporaryFolder::TemporaryFolder() {
  std::string name = "/tmp/valmere-test-XXXXXX";
  if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
  path_ = name;
}

TemporaryFolder::~TemporaryFolder() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

Subprocess::Subprocess(const std::vector<std::string>& command,
                       const std::vector<std::string>& environment,
                       const std::vector<int>& passed) {
  int output[2];
  int errors[2];
  if (pipe2(output, O_CLOEXEC) != 0 || pipe2(errors, O_CLOEXEC) != 0)
    throw std::runtime_error("pipe2 failed");
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_adddup2(&actions, output[1], 1);
  posix_spawn_file_actions_adddup2(&actions, errors[1], 2);
  for (std::size_t i = 0; i < passed.size(); ++i) {
    posix_spawn_file_actions_adddup2(&actions, passed[i], 3 + static_cast<int>(i));
  }
  std::vector<std::string> arguments = command;
  std::vector<std::string> variables = environment;
  for (char** variable = environ; *variable != nullptr; ++variable) {
    variables.emplace_back(*variable);
  }
  const int result = posix_spawn(&process_, command[0].c_str(), &actions, nullptr,
                                 ExecWords(arguments).data(), ExecWords(variables).data());
  posix_spawn_file_actions_destroy(&actions);
  close(output[1]);
  close(errors[1]);
  output_ = output[0];
  errors_ = errors[0];
  if (result != 0) throw std::runtime_error("cannot run " + command[0]);
}

Subprocess::~Subprocess() {
  if (process_ > 0) {
    kill(process_, SIGKILL);
    waitpid(process_, nullptr, 0);
  }
  if (output_ >= 0) close(output_);
  if (errors_ >= 0) close(errors_);
}

void Subprocess::Signal(int number) {
  if (process_ > 0) kill(process_, number);
  signalled_ = number;
}

// Waits for either pipe; false when the time is up.
bool Subprocess::AwaitText(pollfd* pipes) {
  const auto deadline = std::chrono::steady_clock::now() + kPatience;
  while (poll(pipes, 2, kSilenceMilliseconds) == 0) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    if (kSignalsGetLost && signalled_ != 0) Signal(signalled_);
  }
  return true;
}

// Reads what is there of either pipe; false when both have ended or the time is up.
bool Subprocess::ReadMore() {
  pollfd pipes[] = {{output_, POLLIN, 0}, {errors_, POLLIN, 0}};
  if (output_ < 0 && errors_ < 0) return false;
  if (!AwaitText(pipes)) {
    ADD_FAILURE() << "the program says nothing and does not end";
    Signal(SIGKILL);
    return false;
  }
  if (pipes[0].revents != 0) ReadSome(output_, output_text_);
  if (pipes[1].revents != 0) ReadSome(errors_, errors_text_);
  return true;
}

std::string Subprocess::TakeLine(std::string& text) {
  std::size_t end = text.find('\n');
  while (end == std::string::npos && ReadMore()) {
    end = text.find('\n');
  }
  if (end == std::string::npos) return "";
  const std::string line = text.substr(0, end);
  text.erase(0, end + 1);
  return line;
}

int Subprocess::Wait() {
  while (ReadMore()) {
  }
  int status = 0;
  waitpid(process_, &status, 0);
  process_ = -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

}  // namespace valmere::test
