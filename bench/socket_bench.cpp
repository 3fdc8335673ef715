// valmered from its clients' side of the socket, and with `socket_bench PEER...` other programs
// beside it: a row for each thing that is measured, medians of rounds in which each has its turn.
// The limit is a program that only receives and sends as many bytes (bench/peers/bare_server.cpp).
// "Pinned" is all programs and clients on one core, "free" is where the system puts them.
#include <sched.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <exception>
#include <functional>
#include <future>
#include <limits>
#include <stdexcept>

#include "bench/peers/peer.h"
#include "bench/table.h"

namespace valmere::bench {
namespace {

using Clock = std::chrono::steady_clock;
using Clients = std::vector<std::unique_ptr<PeerClient>>;

constexpr int kRounds = 3;
constexpr int kGets = 5000;
constexpr int kGetAlls = 20;
constexpr std::size_t kManyClients = 8;
constexpr std::size_t kListeners = 16;
constexpr int kChanges = 10;
constexpr std::size_t kIdleClients = 1000;
constexpr int kStarts = 20;

std::atomic<bool> g_interrupted{false};

double MicrosecondsSince(Clock::time_point start) {
  return std::chrono::duration<double, std::micro>(Clock::now() - start).count();
}

template <class Work>
double Time(Work work) {
  const auto start = Clock::now();
  work();
  return MicrosecondsSince(start);
}

template <class Work>
std::vector<double> TimeEach(int count, Work work) {
  std::vector<double> took;
  for (int i = 0; i < count; ++i)
    took.push_back(Time(work));
  return took;
}

// A peer that runs for one measurement.
class Running {
 public:
  explicit Running(Peer& peer) : peer_(peer) {
    if (g_interrupted) throw std::runtime_error("interrupted");
    peer_.Start();
  }
  ~Running() { peer_.End(); }
  Running(const Running&) = delete;
  Running& operator=(const Running&) = delete;

 private:
  Peer& peer_;
};

// Keeps the bench on the first core, and with it what it starts meanwhile.
class Pinned {
 public:
  Pinned() {
    sched_getaffinity(0, sizeof before_, &before_);
    cpu_set_t first;
    CPU_ZERO(&first);
    CPU_SET(0, &first);
    sched_setaffinity(0, sizeof first, &first);
  }
  ~Pinned() { sched_setaffinity(0, sizeof before_, &before_); }
  Pinned(const Pinned&) = delete;
  Pinned& operator=(const Pinned&) = delete;

 private:
  cpu_set_t before_{};
};

Clients Connect(const Peer& peer, std::size_t count) {
  Clients clients;
  for (std::size_t i = 0; i < count; ++i)
    clients.push_back(peer.Connect());
  return clients;
}

void MeasureGet(Table& table, Peer& peer, const std::string& where) {
  const Running running(peer);
  const auto client = peer.Connect();
  TimeEach(kGets / 10, [&] { client->Get(); });
  std::vector<double> took = TimeEach(kGets, [&] { client->Get(); });
  std::sort(took.begin(), took.end());
  table.Note("one get, p50, " + where + ", us", peer.name(), took[took.size() / 2]);
  table.Note("one get, p99, " + where + ", us", peer.name(), took[took.size() / 100 * 99]);
}

void MeasureManyGets(Table& table, Peer& peer) {
  const Running running(peer);
  const Clients clients = Connect(peer, kManyClients);
  const double took = Time([&] {
    std::vector<std::future<void>> all;
    for (const auto& client : clients)
      all.push_back(std::async(std::launch::async, [&client] {
        for (int i = 0; i < kGets; ++i)
          client->Get();
      }));
    for (auto& one : all)
      one.get();
  });
  table.Note("8 clients, free, thousand gets/s in all", peer.name(),
             kGets * kManyClients * 1e3 / took);
}

// With values that are long enough to make an entry of 430 bytes, as long as the limit's.
void MeasureGetAll(Table& table, Peer& peer, int count, const std::string& of) {
  constexpr std::size_t kValueBytes = 150;
  const Running running(peer);
  const auto owner = peer.Connect();
  owner->Fill(count, kValueBytes);
  const auto client = peer.Connect();
  std::size_t bytes = 0;
  const auto took = TimeEach(kGetAlls, [&] { bytes = client->GetAll(count); });
  table.Note("get-all of " + of + ", pinned, us", peer.name(), Median(took));
  table.Note("the same, kB of " + of, peer.name(), static_cast<double>(bytes) / 1e3);
}

// With values of eight digits.
void MeasureProperty(Table& table, Peer& peer) {
  if (peer.IsBare()) return;
  constexpr int kCount = 10'000;
  const Running running(peer);
  const double before = PrivateKilobytes(peer.Processes());
  const auto owner = peer.Connect();
  owner->Fill(kCount, 8);
  table.Note("memory of one property at 10,000, bytes", peer.name(),
             (PrivateKilobytes(peer.Processes()) - before) * 1024 / kCount);
}

// From the moment a program is given a change until the last of its subscribers has read it, but
// for the time in which it waits: valmered tells changes at the end of a period only. So it is the
// processor time of all that take part, the bench's clients included, which on one core is the time
// that passes; nothing has to know when a period ends. What the program takes in as long a time
// without a change is left out.
void MeasureChange(Table& table, Peer& peer) {
  const Running running(peer);
  const auto owner = peer.Connect();
  owner->Fill(1, 8);
  const Clients listeners = Connect(peer, kListeners);
  for (const auto& listener : listeners)
    listener->Subscribe();
  std::vector<pid_t> all = peer.Processes();
  all.push_back(getpid());
  const auto tell = [&](int number) {
    owner->Change(number);
    for (const auto& listener : listeners)
      listener->ReceiveChange(number);
  };
  tell(1);
  constexpr useconds_t kRest = 1'000'000;
  double before = ProcessorMicroseconds(all);
  const double rested = Time([] { usleep(kRest); });
  const double at_rest = (ProcessorMicroseconds(all) - before) / rested;
  std::vector<double> took;
  for (int number = 2; number < 2 + kChanges; ++number) {
    before = ProcessorMicroseconds(all);
    const double passed = Time([&] { tell(number); });
    took.push_back(ProcessorMicroseconds(all) - before - at_rest * passed);
  }
  table.Note("a change to the last of 16 subscribers, pinned, us", peer.name(), Median(took));
}

// A client is silent when it has said what its protocol begins with, and nothing else.
void MeasureClients(Table& table, Peer& peer) {
  if (peer.IsBare()) return;
  const Running running(peer);
  const std::vector<pid_t> processes = peer.Processes();
  const double before = PrivateKilobytes(processes);
  Clients clients = Connect(peer, kIdleClients);
  const double silent = PrivateKilobytes(processes);
  for (const auto& client : clients)
    client->Get();
  const double answered = PrivateKilobytes(processes);
  clients.clear();
  const double gone = PrivateKilobytes(processes);
  table.Note("memory of a silent client, kB", peer.name(), (silent - before) / kIdleClients);
  table.Note("the same after one request, kB", peer.name(), (answered - before) / kIdleClients);
  table.Note("what stays when 1,000 of them have gone, kB", peer.name(), gone - before);
}

void MeasureStart(Table& table, Peer& peer) {
  double least = std::numeric_limits<double>::max();
  for (int i = 0; i < kStarts; ++i) {
    least = std::min(least, Time([&] { peer.Start(); }));
    peer.End();
  }
  table.Note("start to the first answer, least of 20, ms", peer.name(), least / 1e3);
}

using Measurement = std::function<void(Table&, Peer&)>;

std::vector<Measurement> Measurements() {
  const auto pinned = [](auto measure) {
    return [measure](Table& table, Peer& peer) {
      const Pinned pin;
      measure(table, peer);
    };
  };
  return {
      pinned([](Table& table, Peer& peer) { MeasureGet(table, peer, "pinned"); }),
      [](Table& table, Peer& peer) { MeasureGet(table, peer, "free"); },
      MeasureManyGets,
      pinned([](Table& table, Peer& peer) { MeasureGetAll(table, peer, 1000, "1,000"); }),
      pinned([](Table& table, Peer& peer) { MeasureGetAll(table, peer, 10'000, "10,000"); }),
      pinned(MeasureChange),
      MeasureProperty,
      MeasureClients,
      MeasureStart,
  };
}

std::vector<std::unique_ptr<Peer>> MakePeers(const std::vector<std::string>& wanted) {
  static const std::vector<std::pair<std::string, std::unique_ptr<Peer> (*)()>> kPeers = {
      {"redis", MakeRedisPeer},
      {"dbus-broker", MakeBrokerPeer},
      {"sd-bus", MakeDirectBusPeer},
      {"mosquitto", MakeMosquittoPeer}};
  std::vector<std::unique_ptr<Peer>> peers;
  peers.push_back(MakeBarePeer());
  peers.push_back(MakeValmeredPeer());
  for (const std::string& name : wanted) {
    const auto peer = std::find_if(kPeers.begin(), kPeers.end(),
                                   [&name](const auto& known) { return known.first == name; });
    if (peer == kPeers.end()) throw std::runtime_error("no peer is called " + name);
    peers.push_back(peer->second());
  }
  return peers;
}

// Each measurement goes through all peers before the next, so that they see the same machine.
void Run(const std::vector<std::string>& wanted) {
  const auto peers = MakePeers(wanted);
  std::vector<std::string> names;
  for (const auto& peer : peers)
    names.push_back(peer->name());
  Table table(names);
  for (int round = 0; round < kRounds; ++round)
    for (const Measurement& measure : Measurements())
      for (const auto& peer : peers)
        measure(table, *peer);
  table.Print();
}

// Ends what was started and removes what was written, which the signal's own way would not.
void EndOnSignals() {
  struct sigaction action {};
  action.sa_handler = [](int) { g_interrupted = true; };
  for (const int signal : {SIGINT, SIGTERM, SIGHUP})
    sigaction(signal, &action, nullptr);
}

}  // namespace
}  // namespace valmere::bench

int main(int argc, char** argv) {
  try {
    valmere::bench::EndOnSignals();
    valmere::bench::AllowManyDescriptors();
    valmere::bench::Run({argv + 1, argv + argc});
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "socket_bench: %s\n", error.what());
    return 1;
  }
}
