// One get through valmered's socket, beside a bare ping-pong of the same bytes between two
// processes over the same kind of socket.
#include <benchmark/benchmark.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

#include "protocol/message_frame.h"

namespace {

constexpr char kRequest[] =
    "{\"PropertyGetRequests\": [{\"Component\": \"955CFDC2-8EA6-478E-A927-7C870022EA03\","
    "\"GUID\": \"ADC1E631-2C12-4267-B128-95830EC9857D:955CFDC2-8EA6-478E-A927-7C870022EA03\"}]}";

std::string RequestFrame() {
  std::string frame;
  valmere::BeginFrame(frame);
  frame += kRequest;
  valmere::EndFrame(frame);
  return frame;
}

// One send, then one receive of what must be a whole reply.
std::size_t Exchange(int descriptor, const std::string& request, std::vector<char>& reply) {
  if (send(descriptor, request.data(), request.size(), MSG_NOSIGNAL) !=
      static_cast<ssize_t>(request.size()))
    return 0;
  const ssize_t got = recv(descriptor, reply.data(), reply.size(), 0);
  return got > 0 ? static_cast<std::size_t>(got) : 0;
}

// valmered on a root of its own, as a child process.
class Daemon {
 public:
  Daemon() : folder_(MakeFolder()), socket_(folder_ + "/socket") {
    int ready[2];
    if (pipe(ready) != 0) throw std::runtime_error("no pipe");
    child_ = fork();
    if (child_ == 0) {
      dup2(ready[1], STDOUT_FILENO);
      execl(VALMERED, VALMERED, "--root", (folder_ + "/root").c_str(), "--socket", socket_.c_str(),
            "--library", VALMERE_LIBRARY, nullptr);
      _exit(127);
    }
    close(ready[1]);
    char line[256];
    if (read(ready[0], line, sizeof line) <= 0) throw std::runtime_error("valmered did not start");
    close(ready[0]);
  }
  ~Daemon() {
    kill(child_, SIGTERM);
    waitpid(child_, nullptr, 0);
    std::filesystem::remove_all(folder_);
  }

  int Connect() const {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, socket_.c_str(), sizeof address.sun_path - 1);
    const int descriptor = socket(AF_UNIX, SOCK_STREAM, 0);
    if (connect(descriptor, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0)
      throw std::runtime_error("valmered can't be reached");
    return descriptor;
  }

 private:
  static std::string MakeFolder() {
    char name[] = "/tmp/valmere-bench-XXXXXX";
    return mkdtemp(name);
  }

  const std::string folder_;
  const std::string socket_;
  pid_t child_ = -1;
};

void BM_GetThroughSocket(benchmark::State& state) {
  const Daemon daemon;
  const int descriptor = daemon.Connect();
  const std::string request = RequestFrame();
  std::vector<char> reply(64 * 1024);
  for (auto _ : state) {
    if (Exchange(descriptor, request, reply) < valmere::kFrameHeaderBytes) {
      state.SkipWithError("no reply");
      break;
    }
  }
  close(descriptor);
}
BENCHMARK(BM_GetThroughSocket)->UseRealTime();

// The child sends back as many bytes as a reply has for every request that it reads.
void BM_SocketPingPong(benchmark::State& state) {
  constexpr std::size_t kReplyBytes = 330;
  int ends[2];
  if (socketpair(AF_UNIX, SOCK_STREAM, 0, ends) != 0) {
    state.SkipWithError("no socket pair");
    return;
  }
  const pid_t child = fork();
  if (child == 0) {
    close(ends[0]);
    char buffer[4096];
    while (read(ends[1], buffer, sizeof buffer) > 0) {
      if (send(ends[1], buffer, kReplyBytes, MSG_NOSIGNAL) < 0) break;
    }
    _exit(0);
  }
  close(ends[1]);
  const std::string request = RequestFrame();
  std::vector<char> reply(64 * 1024);
  for (auto _ : state)
    benchmark::DoNotOptimize(Exchange(ends[0], request, reply));
  close(ends[0]);
  waitpid(child, nullptr, 0);
}
BENCHMARK(BM_SocketPingPong)->UseRealTime();

}  // namespace
