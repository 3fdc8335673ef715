// A thousand clients that are idle and a thousand that have subscribed to everything: what each
// costs valmered, and how long a change takes to the last subscriber.
#include <poll.h>
#include <sys/resource.h>

#include <chrono>
#include <cstdio>
#include <exception>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/daemon.h"

namespace valmere::bench {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t kClients = 1000;
constexpr double kAimKilobytes = 40;
constexpr int kRounds = 5;
// A change is told at the end of a publishing period, before which there is nothing to wait for.
constexpr int kPeriodMilliseconds = 500;

constexpr char kSubscribeAll[] = R"({"SubscribeAllCurrentAndNewProperties": true})";

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

// The number behind `name` in a file below the service's folder in /proc.
long Figure(const Daemon& daemon, const char* file, const std::string& name) {
  std::ifstream lines("/proc/" + std::to_string(daemon.process()) + "/" + file);
  std::string word;
  while (lines >> word)
    if (long value = 0; word == name && lines >> value) return value;
  return 0;
}

struct Cost {
  long kilobytes;  // memory of the process's own and its share of what others use as well
  long threads;
};

Cost CostOf(const Daemon& daemon) {
  return {Figure(daemon, "smaps_rollup", "Pss:"), Figure(daemon, "status", "Threads:")};
}

void PrintCost(const char* what, const Cost& before, const Cost& after) {
  std::printf("%-28s %6.1f kB a client (aim: under %.0f)   %.2f threads a client\n", what,
              static_cast<double>(after.kilobytes - before.kilobytes) / kClients, kAimKilobytes,
              static_cast<double>(after.threads - before.threads) / kClients);
}

using Clients = std::vector<std::unique_ptr<RawClient>>;

void Send(const RawClient& client, const std::string& frames) {
  if (!client.Send(frames)) throw std::runtime_error("a client could not send");
}

void Receive(RawClient& client) {
  if (client.ReceiveFrame() == 0) throw std::runtime_error("a client was closed");
}

// Clients that have been answered once; `request` goes before what they ask.
Clients Connect(const Daemon& daemon, const std::string& request) {
  Clients clients;
  for (std::size_t i = 0; i < kClients; ++i) {
    clients.push_back(std::make_unique<RawClient>(daemon.socket_path()));
    Send(*clients.back(), request + FrameOf(GetText()));
  }
  for (const auto& client : clients)
    Receive(*client);
  return clients;
}

std::vector<pollfd> Readable(const Clients& clients) {
  std::vector<pollfd> wanted;
  for (const auto& client : clients)
    wanted.push_back({client->descriptor(), POLLIN, 0});
  return wanted;
}

// Reads all that comes until nothing came for more than a period.
void Quieten(const Clients& clients) {
  std::vector<pollfd> wanted = Readable(clients);
  while (poll(wanted.data(), wanted.size(), 3 * kPeriodMilliseconds) > 0) {
    for (std::size_t i = 0; i < wanted.size(); ++i)
      if (wanted[i].revents != 0) Receive(*clients[i]);
  }
}

// Makes one change; when the first and when the last client heard of it, after `start`.
void MeasureDelay(const Daemon& daemon, const Clients& clients, bool on) {
  Quieten(clients);
  std::vector<pollfd> wanted = Readable(clients);
  const RawClient setter(daemon.socket_path());
  const auto start = Clock::now();
  Send(setter, SetFrame(on));
  Clock::time_point first{};
  std::size_t left = wanted.size();
  while (left > 0) {
    if (poll(wanted.data(), wanted.size(), 10 * kPeriodMilliseconds) <= 0)
      throw std::runtime_error("a subscriber heard nothing");
    if (first == Clock::time_point{}) first = Clock::now();
    for (std::size_t i = 0; i < wanted.size(); ++i) {
      if (wanted[i].revents == 0) continue;
      Receive(*clients[i]);
      wanted[i].fd = -1;  // not waited for any more
      wanted[i].revents = 0;
      --left;
    }
  }
  const auto last = Clock::now();
  std::printf("a change, to %zu subscribers: the first after %.0f ms, the last %.1f ms later\n",
              wanted.size(), MillisecondsBetween(start, first), MillisecondsBetween(first, last));
}

void Run() {
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  limit.rlim_cur = limit.rlim_max;
  setrlimit(RLIMIT_NOFILE, &limit);

  const Daemon daemon;
  const Cost none = CostOf(daemon);
  const Clients idle = Connect(daemon, "");
  const Cost with_idle = CostOf(daemon);
  PrintCost("1,000 idle clients:", none, with_idle);
  const Clients subscribed = Connect(daemon, FrameOf(kSubscribeAll));
  Quieten(subscribed);
  PrintCost("1,000 subscribed clients:", with_idle, CostOf(daemon));
  for (int round = 0; round < kRounds; ++round)
    MeasureDelay(daemon, subscribed, round % 2 == 0);
  PrintCost("1,000 after changes:", with_idle, CostOf(daemon));
}

}  // namespace
}  // namespace valmere::bench

int main() {
  try {
    valmere::bench::Run();
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "many_clients_bench: %s\n", error.what());
    return 1;
  }
}
