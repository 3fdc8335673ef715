// A round trip is a get of a property that no component has: all the way to the registries and
// back.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <memory>

#include "tools/commands/command.h"
#include "tools/commands/commands.h"
#include "tools/output/property_json.h"
#include "tools/service/service_clients.h"

namespace valmere::tools {
namespace {

using client::Client;
using client::Deadline;
using Microseconds = std::chrono::duration<double, std::micro>;

constexpr std::size_t kUsualCount = 100;
const client::PropertyAddress kNobodys{"none", "none", "none"};

// The smallest value that so many hundredths of all do not exceed. The values are sorted.
double Percentile(const std::vector<double>& sorted, std::size_t hundredths) {
  return sorted[(sorted.size() * hundredths + 99) / 100 - 1];
}

void PrintTimes(std::vector<double> times, Output& out) {
  std::sort(times.begin(), times.end());
  const double half = Percentile(times, 50);
  const double most = Percentile(times, 99);
  if (out.form() == OutputForm::kJson) {
    Json object;
    object["count"] = times.size();
    object["p50_us"] = half;
    object["p99_us"] = most;
    object["max_us"] = times.back();
    out.Line(object.dump());
    return;
  }
  char text[128];
  std::snprintf(text, sizeof(text), "%zu round trips: p50 %.1f us, p99 %.1f us, max %.1f us",
                times.size(), half, most, times.back());
  out.Line(text);
}

// The time-out is for each round trip, the first one's for connecting too.
std::optional<Failure> Ping(Client& client, Deadline deadline, std::size_t count,
                            std::chrono::milliseconds timeout, Output& out) {
  std::vector<double> times;
  times.reserve(count);
  for (std::size_t i = 0; i < count; ++i) {
    const auto start = std::chrono::steady_clock::now();
    const auto answer = client.Get({&kNobodys, 1}, i == 0 ? deadline : Deadline::After(timeout));
    if (!answer) return FailureOf(answer.error());
    times.push_back(Microseconds(std::chrono::steady_clock::now() - start).count());
  }
  PrintTimes(std::move(times), out);
  return std::nullopt;
}

}  // namespace

void AddPingCommand(CLI::App& app, Invocation& invocation) {
  const auto count = std::make_shared<std::size_t>(kUsualCount);
  Command ping(app, "ping", "Measure round trips to the service");
  ping.AddCount(*count, "So many round trips");
  ping.SetRun(invocation, [count, &invocation](Output& out) {
    return WithClient(invocation.global, [&](Client& client, Deadline deadline) {
      return Ping(client, deadline, *count, invocation.global.timeout, out);
    });
  });
}

}  // namespace valmere::tools
