#include "bench/program.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <time.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace valmere::bench {
namespace {

// Where service managers hand over the first listening socket.
constexpr int kHandedSocket = 3;

std::string MakeFolder() {
  std::string name = (std::filesystem::temp_directory_path() / "valmere-bench-XXXXXX").string();
  if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("no folder for a program");
  return name;
}

// What becomes of the child.
[[noreturn]] void Execute(const std::vector<std::string>& words, int handed) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
  dup2(nowhere, STDOUT_FILENO);
  dup2(nowhere, STDERR_FILENO);
  if (handed >= 0) {
    fcntl(dup2(handed, kHandedSocket), F_SETFD, 0);
    setenv("LISTEN_FDS", "1", 1);
    setenv("LISTEN_PID", std::to_string(getpid()).c_str(), 1);
  }
  std::vector<char*> arguments;
  for (const std::string& word : words)
    arguments.push_back(const_cast<char*>(word.c_str()));
  arguments.push_back(nullptr);
  execvp(arguments.front(), arguments.data());
  _exit(127);
}

pid_t Start(const std::vector<std::string>& words, int handed) {
  // What a program has started is the bench's to wait for once that program has ended.
  prctl(PR_SET_CHILD_SUBREAPER, 1);
  const pid_t child = fork();
  if (child == 0) Execute(words, handed);
  return child;
}

long PrivateKilobytesNow(const std::vector<pid_t>& processes) {
  long sum = 0;
  for (const pid_t process : processes)
    sum += ProcessFigure(process, "smaps_rollup", "Private_Dirty:");
  return sum;
}

}  // namespace

Folder::Folder() : path_(MakeFolder()) {}

Folder::~Folder() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

Program::Program(const std::vector<std::string>& words, int handed)
    : process_(Start(words, handed)) {}

Program::~Program() {
  if (process_ < 0) return;
  const std::vector<pid_t> all = WithChildren({process_});
  for (const pid_t process : all)
    kill(process, SIGKILL);
  for (const pid_t process : all)
    waitpid(process, nullptr, 0);
}

void AllowManyDescriptors() {
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  limit.rlim_cur = limit.rlim_max;
  setrlimit(RLIMIT_NOFILE, &limit);
}

long ProcessFigure(pid_t process, const char* file, const char* name) {
  std::ifstream lines("/proc/" + std::to_string(process) + "/" + file);
  std::string word;
  while (lines >> word)
    if (long value = 0; word == name && lines >> value) return value;
  return 0;
}

std::vector<pid_t> WithChildren(std::vector<pid_t> processes) {
  for (std::size_t i = 0; i < processes.size(); ++i) {
    const std::string process = std::to_string(processes[i]);
    std::ifstream children("/proc/" + process + "/task/" + process + "/children");
    for (pid_t child = 0; children >> child;)
      processes.push_back(child);
  }
  return processes;
}

double PrivateKilobytes(const std::vector<pid_t>& processes) {
  constexpr useconds_t kPause = 200'000;
  constexpr int kMostPauses = 25;
  long last = PrivateKilobytesNow(processes);
  for (int i = 0; i < kMostPauses; ++i) {
    usleep(kPause);
    const long now = PrivateKilobytesNow(processes);
    if (now == last) break;
    last = now;
  }
  return static_cast<double>(last);
}

double ProcessorMicroseconds(const std::vector<pid_t>& processes) {
  double sum = 0;
  for (const pid_t process : processes) {
    clockid_t clock{};
    timespec taken{};
    if (clock_getcpuclockid(process, &clock) == 0) clock_gettime(clock, &taken);
    sum += static_cast<double>(taken.tv_sec) * 1e6 + static_cast<double>(taken.tv_nsec) / 1e3;
  }
  return sum;
}

}  // namespace valmere::bench
