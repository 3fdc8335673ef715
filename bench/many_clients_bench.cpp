// A thousand clients that are idle and a thousand that have subscribed to everything: what each
// costs valmered, and how long a change takes to the last subscriber.
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "protocol/message_frame.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t kClients = 1000;
constexpr double kAimKilobytes = 40;
constexpr int kRounds = 5;
// A change is told at the end of a publishing period, which nobody can wait out sooner.
constexpr int kPeriodMilliseconds = 500;

constexpr char kGet[] =
    R"({"PropertyGetRequests": [{"Component": "955CFDC2-8EA6-478E-A927-7C870022EA03",)"
    R"("GUID": "ADC1E631-2C12-4267-B128-95830EC9857D:955CFDC2-8EA6-478E-A927-7C870022EA03"}]})";
constexpr char kSubscribeAll[] = R"({"SubscribeAllCurrentAndNewProperties": true})";

std::string FrameOf(const std::string& text) {
  std::string frame;
  valmere::BeginFrame(frame);
  frame += text;
  valmere::EndFrame(frame);
  return frame;
}

// Switches a property that nothing on the way depends on.
std::string SetFrame(bool on) {
  return FrameOf(
      std::string(
          R"({"PropertySetRequests": [{"Component": "955CFDC2-8EA6-478E-A927-7C870022EA03",)"
          R"("GUID": "E96B0063-C2EF-4545-92E1-AC4990BA1B37:8D6BC3E1-3943-4E0D-97E7-601690F93C1E",)"
          R"("Value": ")") +
      (on ? "True" : "False") + "\"}]}");
}

double MillisecondsBetween(Clock::time_point from, Clock::time_point to) {
  return std::chrono::duration<double, std::milli>(to - from).count();
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
      execl(VALMERED, VALMERED, "--root", (folder_ + "/root").c_str(), "--init-root", "--socket",
            socket_.c_str(), "--library", VALMERE_LIBRARY, nullptr);
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
  Daemon(const Daemon&) = delete;
  Daemon& operator=(const Daemon&) = delete;

  int Connect() const {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, socket_.c_str(), sizeof address.sun_path - 1);
    const int descriptor = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (connect(descriptor, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0)
      throw std::runtime_error("valmered can't be reached");
    return descriptor;
  }
  // The number behind `name` in a file below /proc/PID.
  long Figure(const char* file, const std::string& name) const {
    std::ifstream lines("/proc/" + std::to_string(child_) + "/" + file);
    std::string word;
    while (lines >> word) {
      if (long value = 0; word == name && lines >> value) return value;
    }
    return 0;
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

struct Cost {
  long kilobytes;  // memory of the process's own and its share of what others use as well
  long threads;
};

Cost CostOf(const Daemon& daemon) {
  return {daemon.Figure("smaps_rollup", "Pss:"), daemon.Figure("status", "Threads:")};
}

void PrintCost(const char* what, const Cost& before, const Cost& after) {
  std::printf("%-28s %6.1f kB a client (aim: under %.0f)   %.2f threads a client\n", what,
              static_cast<double>(after.kilobytes - before.kilobytes) / kClients, kAimKilobytes,
              static_cast<double>(after.threads - before.threads) / kClients);
}

void Send(int client, const std::string& bytes) {
  if (send(client, bytes.data(), bytes.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(bytes.size()))
    throw std::runtime_error("a client could not send");
}

// Waits for something to read, and reads it.
void ReceiveSome(int client) {
  char buffer[65536];
  if (recv(client, buffer, sizeof buffer, 0) <= 0) throw std::runtime_error("a client was closed");
}

// Clients that have been answered once; `request` goes before what they ask.
std::vector<int> Connect(const Daemon& daemon, const std::string& request) {
  std::vector<int> clients;
  for (std::size_t i = 0; i < kClients; ++i) {
    clients.push_back(daemon.Connect());
    Send(clients.back(), request + FrameOf(kGet));
  }
  for (const int client : clients)
    ReceiveSome(client);
  return clients;
}

// Reads whatever comes until nothing came for more than a period.
void Quieten(std::vector<pollfd>& wanted) {
  while (poll(wanted.data(), wanted.size(), 3 * kPeriodMilliseconds) > 0) {
    for (const pollfd& one : wanted)
      if (one.revents != 0) ReceiveSome(one.fd);
  }
}

// Makes one change; when the first and when the last client heard of it, after `start`.
void MeasureDelay(const Daemon& daemon, std::vector<pollfd> wanted, bool on) {
  Quieten(wanted);
  const int setter = daemon.Connect();
  const auto start = Clock::now();
  Send(setter, SetFrame(on));
  Clock::time_point first{};
  std::size_t left = wanted.size();
  while (left > 0) {
    if (poll(wanted.data(), wanted.size(), 10 * kPeriodMilliseconds) <= 0)
      throw std::runtime_error("a subscriber heard nothing");
    if (first == Clock::time_point{}) first = Clock::now();
    for (pollfd& one : wanted) {
      if (one.revents == 0) continue;
      ReceiveSome(one.fd);
      one.fd = -one.fd;  // not waited for any more
      --left;
    }
  }
  const auto last = Clock::now();
  std::printf("a change, to %zu subscribers: the first after %.0f ms, the last %.1f ms later\n",
              wanted.size(), MillisecondsBetween(start, first), MillisecondsBetween(first, last));
  close(setter);
}

void Run() {
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  limit.rlim_cur = limit.rlim_max;
  setrlimit(RLIMIT_NOFILE, &limit);

  const Daemon daemon;
  const Cost none = CostOf(daemon);
  const std::vector<int> idle = Connect(daemon, "");
  const Cost with_idle = CostOf(daemon);
  PrintCost("1,000 idle clients:", none, with_idle);
  const std::vector<int> subscribed = Connect(daemon, FrameOf(kSubscribeAll));
  std::vector<pollfd> wanted;
  for (const int client : subscribed)
    wanted.push_back({client, POLLIN, 0});
  Quieten(wanted);
  PrintCost("1,000 subscribed clients:", with_idle, CostOf(daemon));
  for (int round = 0; round < kRounds; ++round)
    MeasureDelay(daemon, wanted, round % 2 == 0);
  PrintCost("1,000 after changes:", with_idle, CostOf(daemon));
  for (const std::vector<int>& clients : {idle, subscribed})
    for (const int client : clients)
      close(client);
}

}  // namespace

int main() {
  try {
    Run();
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "many_clients_bench: %s\n", error.what());
    return 1;
  }
}
