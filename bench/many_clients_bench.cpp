// A thousand clients that have subscribed to everything: what each costs valmered, and how long a
// change takes from the first of them to the last. What idle ones cost is in socket_bench.
#include <poll.h>

#include <chrono>
#include <cstdio>
#include <exception>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/daemon.h"
#include "bench/messages.h"

namespace valmere::bench {
namespace {

using Clock = std::chrono::steady_clock;
using Clients = std::vector<std::unique_ptr<SocketClient>>;

constexpr std::size_t kClients = 1000;
constexpr double kAimKilobytes = 40;
constexpr int kRounds = 5;

double MillisecondsSince(Clock::time_point start) {
  return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

struct Cost {
  double kilobytes;
  long threads;
};

Cost CostOf(const Daemon& daemon) {
  return {PrivateKilobytes({daemon.process()}),
          ProcessFigure(daemon.process(), "status", "Threads:")};
}

void PrintCost(const char* what, const Cost& before, const Cost& after) {
  std::printf("%-28s %6.1f kB a client (aim: under %.0f)   %.2f threads a client\n", what,
              (after.kilobytes - before.kilobytes) / kClients, kAimKilobytes,
              static_cast<double>(after.threads - before.threads) / kClients);
}

Clients Subscribe(const Daemon& daemon) {
  Clients clients;
  for (std::size_t i = 0; i < kClients; ++i) {
    clients.push_back(std::make_unique<SocketClient>(daemon.socket_path()));
    clients.back()->Send(FrameOf(R"({"SubscribeAllCurrentAndNewProperties": true})"));
  }
  return clients;
}

// Makes a change and waits until all have heard of it; the time from the first to the last.
double MillisecondsToTell(const SocketClient& owner, const Clients& clients, int number) {
  std::vector<pollfd> wanted;
  for (const auto& client : clients)
    wanted.push_back({client->descriptor(), POLLIN, 0});
  owner.Send(ChangeFrame(number));
  if (poll(wanted.data(), wanted.size(), -1) <= 0) throw std::runtime_error("interrupted");
  const auto first = Clock::now();
  for (const auto& client : clients)
    while (!TellsChange(client->ReadFrame(), number)) {
    }
  return MillisecondsSince(first);
}

void Run() {
  AllowManyDescriptors();
  const Daemon daemon;
  SocketClient owner(daemon.socket_path());
  Publish(owner, 1);
  const Cost none = CostOf(daemon);
  const Clients clients = Subscribe(daemon);
  // At first all are told all values.
  int number = 1;
  MillisecondsToTell(owner, clients, number);
  PrintCost("1,000 subscribed clients:", none, CostOf(daemon));
  for (int round = 0; round < kRounds; ++round)
    std::printf("a change, to %zu subscribers: the last hears of it %.1f ms after the first\n",
                clients.size(), MillisecondsToTell(owner, clients, ++number));
  PrintCost("1,000 after changes:", none, CostOf(daemon));
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
