// From PRN_Init to the first reply, and the memory of open handles without and with a thread.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "bench/program.h"
#include "driver/prn.h"
#include "tests/support/frames.h"

namespace {

// A device root of its own.
class Root {
 public:
  Root() { setenv("VALMERE_ROOT", folder_.Path(".").c_str(), 1); }

 private:
  const valmere::bench::Folder folder_;
};

void Ask(std::uint32_t handle) {
  const std::string frame = valmere::test::FrameOf(R"({"PropertyGetRequests": []})");
  PRN_Write(handle, frame.data(), static_cast<std::uint32_t>(frame.size()));
  char reply[256];
  PRN_Read(handle, reply, sizeof reply);
}

void BM_InitToFirstReply(benchmark::State& state) {
  const Root root;
  for (auto _ : state) {
    const auto start = std::chrono::steady_clock::now();
    PRN_Init(0);
    Ask(PRN_Open(1, 0, 0));
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
    state.SetIterationTime(taken.count());
    PRN_Deinit(1);
  }
}
BENCHMARK(BM_InitToFirstReply)->UseManualTime()->Iterations(5)->Unit(benchmark::kMillisecond);

double ResidentBytes() {
  return static_cast<double>(valmere::bench::ProcessFigure(getpid(), "status", "VmRSS:")) * 1024;
}

void BM_MemoryOfAHandle(benchmark::State& state) {
  constexpr int kHandles = 1000;
  const Root root;
  PRN_Init(0);
  for (auto _ : state) {
    const double before = ResidentBytes();
    std::vector<std::uint32_t> handles;
    for (int i = 0; i < kHandles; ++i)
      handles.push_back(PRN_Open(1, 0, 0));
    const double opened = ResidentBytes();
    for (const std::uint32_t handle : handles)
      Ask(handle);
    const double served = ResidentBytes();
    state.counters["never_written"] = (opened - before) / kHandles;
    state.counters["with_thread"] = (served - before) / kHandles;
  }
  PRN_Deinit(1);
}
BENCHMARK(BM_MemoryOfAHandle)->Iterations(1);

}  // namespace
