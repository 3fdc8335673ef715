#include "tests/kill/service.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "tests/kill/settings.h"

namespace valmere::test {
namespace {

namespace fs = std::filesystem;

constexpr std::uintmax_t kMarkerBytes = 4;

// False when nothing comes, be it the end, for longer than anybody has patience.
bool AwaitOutput(int output) {
  pollfd wanted{output, POLLIN, 0};
  return poll(&wanted, 1, static_cast<int>(std::chrono::milliseconds(kPatience).count())) > 0;
}

}  // namespace

Service::Service(const std::string& folder, const std::vector<std::string>& options)
    : folder_(folder), command_{VALMERED, "--root", root(), "--init-root", "--socket", socket()} {
  command_.insert(command_.end(), options.begin(), options.end());
}

// In the child, between fork and exec, where only system calls are allowed.
void Service::Run(int output, int errors) const {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  dup2(output, STDOUT_FILENO);
  dup2(errors, STDERR_FILENO);
}

void Service::Start() {
  std::vector<char*> arguments;
  for (std::string& argument : command_)
    arguments.push_back(argument.data());
  arguments.push_back(nullptr);
  const int errors =
      open((folder_ + "/errors").c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  int output[2];
  if (errors < 0 || pipe2(output, O_CLOEXEC) != 0) throw std::runtime_error("no descriptors");
  process_ = fork();
  if (process_ == 0) {
    Run(output[1], errors);
    execv(VALMERED, arguments.data());
    _exit(127);
  }
  close(output[1]);
  close(errors);
  output_ = output[0];
  if (process_ < 0 || !AwaitReady())
    throw std::runtime_error("valmered does not start: " + Errors());
}

std::string Service::Errors() const {
  std::ifstream file(folder_ + "/errors");
  return {std::istreambuf_iterator<char>(file), {}};
}

bool Service::AwaitReady() const {
  char line[256];
  return AwaitOutput(output_) && read(output_, line, sizeof line) > 0;
}

void Service::Kill() {
  if (process_ <= 0) return;
  kill(process_, SIGKILL);
  AwaitEnd();
}

void Service::AskToStop() {
  kill(process_, SIGTERM);
}

int Service::AwaitEnd() {
  // Its end closes the pipe.
  if (!AwaitOutput(output_)) kill(process_, SIGKILL);
  int status = 0;
  waitpid(process_, &status, 0);
  process_ = -1;
  close(output_);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

void Service::ForgetRoot() {
  fs::remove_all(root());
}

client::Client Service::Connect() const {
  auto client = client::Client::Connect(socket(), Patience());
  if (!client) throw std::runtime_error("cannot connect: " + client.error().text);
  return std::move(*client);
}

std::uintmax_t Service::CleanEnds() const {
  std::error_code missing;
  const std::uintmax_t size = fs::file_size(root() + "/DriverUnloadSuccessful", missing);
  return missing ? 0 : size / kMarkerBytes;
}

std::string Service::Leftover() const {
  for (const fs::directory_entry& entry : fs::recursive_directory_iterator(root())) {
    const std::string name = entry.path().filename().string();
    if (name.starts_with(".valmere-")) return entry.path().string();
  }
  return "";
}

bool Service::HasRefusedCopy() const {
  return fs::exists(property_file() + ".refused");
}

}  // namespace valmere::test
