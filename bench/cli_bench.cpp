// The valmere command as a whole process against a service with 10,000 properties, beside a process
// that does nothing.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>

#include <cstdlib>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/daemon.h"

extern char** environ;

namespace valmere::bench {
namespace {

constexpr int kProperties = 10'000;

// The exit code of a program whose output goes nowhere.
int RunProgram(const std::vector<std::string>& words) {
  std::vector<char*> arguments;
  for (const std::string& word : words)
    arguments.push_back(const_cast<char*>(word.c_str()));
  arguments.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
  pid_t child = -1;
  const int error =
      posix_spawn(&child, arguments.front(), &actions, nullptr, arguments.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (error != 0) throw std::runtime_error("cannot start " + words.front());
  int status = 0;
  waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

class ManyProperties {
 public:
  ManyProperties() : owner_(daemon_.socket_path()) { Publish(owner_, kProperties); }
  const std::string& socket_path() const { return daemon_.socket_path(); }

 private:
  const Daemon daemon_;
  SocketClient owner_;
};

void RunCommand(benchmark::State& state, const std::vector<std::string>& words) {
  const ManyProperties service;
  setenv("VALMERE_SOCKET", service.socket_path().c_str(), 1);
  std::vector<std::string> command = {VALMERE};
  command.insert(command.end(), words.begin(), words.end());
  for (auto _ : state) {
    if (RunProgram(command) != 0) {
      state.SkipWithError("the command failed");
      break;
    }
  }
}

// Aim: under 0.2 s.
void BM_List(benchmark::State& state) {
  RunCommand(state, {"list"});
}
BENCHMARK(BM_List)->UseRealTime()->Unit(benchmark::kMillisecond);

void BM_ListTree(benchmark::State& state) {
  RunCommand(state, {"list", "--tree"});
}
BENCHMARK(BM_ListTree)->UseRealTime()->Unit(benchmark::kMillisecond);

// Aim: under 50 ms.
void BM_CompleteName(benchmark::State& state) {
  RunCommand(state, {"__complete", "--", "get", "Measured Property 99"});
}
BENCHMARK(BM_CompleteName)->UseRealTime()->Unit(benchmark::kMillisecond);

void BM_CompleteCommand(benchmark::State& state) {
  RunCommand(state, {"__complete", "--", "wa"});
}
BENCHMARK(BM_CompleteCommand)->UseRealTime()->Unit(benchmark::kMillisecond);

void BM_NothingAtAll(benchmark::State& state) {
  for (auto _ : state)
    benchmark::DoNotOptimize(RunProgram({"/bin/true"}));
}
BENCHMARK(BM_NothingAtAll)->UseRealTime()->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace valmere::bench
