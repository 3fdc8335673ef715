// Requests through valmered's socket, beside a bare ping-pong of as many bytes between two
// processes over the same kind of socket. Percentiles are of single exchanges.
#include <benchmark/benchmark.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "bench/daemon.h"

namespace valmere::bench {
namespace {

constexpr int kMostClients = 8;
constexpr std::size_t kReplyBytes = 330;

// How long each exchange took.
class Latencies {
 public:
  template <typename Exchange>
  bool Time(Exchange exchange) {
    const auto begin = std::chrono::steady_clock::now();
    const bool done = exchange();
    const std::chrono::duration<double, std::micro> took = std::chrono::steady_clock::now() - begin;
    microseconds_.push_back(took.count());
    return done;
  }
  // Of the threads of a run the mean is shown.
  void Report(benchmark::State& state) {
    state.counters["p50_us"] = {Percentile(50), benchmark::Counter::kAvgThreads};
    state.counters["p99_us"] = {Percentile(99), benchmark::Counter::kAvgThreads};
  }

 private:
  double Percentile(std::size_t percent) {
    if (microseconds_.empty()) return 0;
    const auto place = microseconds_.begin() +
                       static_cast<std::ptrdiff_t>((microseconds_.size() - 1) * percent / 100);
    std::nth_element(microseconds_.begin(), place, microseconds_.end());
    return *place;
  }

  std::vector<double> microseconds_;
};

void RunExchanges(benchmark::State& state, const Daemon& daemon, const std::string& request) {
  RawClient client(daemon.socket_path());
  Latencies latencies;
  for (auto _ : state) {
    if (!latencies.Time([&] { return client.Send(request) && client.ReceiveFrame() > 0; })) {
      state.SkipWithError("no reply");
      break;
    }
  }
  latencies.Report(state);
}

// One valmered for the clients of a run: made by its first thread, which ends it as well.
std::unique_ptr<Daemon> shared_daemon;

void StartDaemon(const benchmark::State&) {
  shared_daemon = std::make_unique<Daemon>();
}
void EndDaemon(const benchmark::State&) {
  shared_daemon.reset();
}

void BM_GetThroughSocket(benchmark::State& state) {
  RunExchanges(state, *shared_daemon, FrameOf(GetText()));
}
BENCHMARK(BM_GetThroughSocket)
    ->UseRealTime()
    ->Threads(1)
    ->Threads(kMostClients)
    ->Setup(StartDaemon)
    ->Teardown(EndDaemon);

// The child sends back as many bytes as a reply has for each request that it reads.
class Echo {
 public:
  Echo() {
    std::vector<pollfd> served(kMostClients);
    for (int i = 0; i < kMostClients; ++i) {
      int ends[2];
      if (socketpair(AF_UNIX, SOCK_STREAM, 0, ends) != 0) throw std::runtime_error("no sockets");
      clients_.push_back(ends[0]);
      served[static_cast<std::size_t>(i)] = {ends[1], POLLIN, 0};
    }
    child_ = fork();
    if (child_ == 0) {
      for (const int client : clients_)
        close(client);
      Serve(served);
      _exit(0);
    }
    for (const pollfd& end : served)
      close(end.fd);
  }
  ~Echo() {
    for (const int client : clients_)
      close(client);
    waitpid(child_, nullptr, 0);
  }
  Echo(const Echo&) = delete;
  Echo& operator=(const Echo&) = delete;

  int client(int index) const { return clients_[static_cast<std::size_t>(index)]; }

 private:
  static void Serve(std::vector<pollfd>& served) {
    char buffer[4096];
    for (;;) {
      poll(served.data(), served.size(), -1);
      for (const pollfd& end : served) {
        if (end.revents == 0) continue;
        if (read(end.fd, buffer, sizeof buffer) <= 0) return;
        if (send(end.fd, buffer, kReplyBytes, MSG_NOSIGNAL) < 0) return;
      }
    }
  }

  std::vector<int> clients_;
  pid_t child_ = -1;
};

std::unique_ptr<Echo> shared_echo;

void BM_SocketPingPong(benchmark::State& state) {
  const int descriptor = shared_echo->client(state.thread_index());
  const std::string request = FrameOf(GetText());
  char reply[kReplyBytes];
  Latencies latencies;
  for (auto _ : state) {
    latencies.Time([&] {
      return send(descriptor, request.data(), request.size(), MSG_NOSIGNAL) > 0 &&
             recv(descriptor, reply, sizeof reply, MSG_WAITALL) > 0;
    });
  }
  latencies.Report(state);
}
BENCHMARK(BM_SocketPingPong)
    ->UseRealTime()
    ->Threads(1)
    ->Threads(kMostClients)
    ->Setup([](const benchmark::State&) { shared_echo = std::make_unique<Echo>(); })
    ->Teardown([](const benchmark::State&) { shared_echo.reset(); });

// Aim: under 400 us pinned to one core.
void BM_GetAllThousandThroughSocket(benchmark::State& state) {
  const Daemon daemon;
  RawClient owner(daemon.socket_path());
  // The answer to the get says that the publication has been handled.
  if (!owner.Send(PublicationFrame(1000)) || !owner.Send(FrameOf(GetText())) ||
      owner.ReceiveFrame() == 0) {
    state.SkipWithError("nothing published");
    return;
  }
  RunExchanges(state, daemon, FrameOf(R"({"GetAllProperties": true})"));
}
BENCHMARK(BM_GetAllThousandThroughSocket)->UseRealTime();

}  // namespace
}  // namespace valmere::bench
