// One get through the entry points, beside a bare ping-pong between two threads; one at a time and
// eight at once.
#include <benchmark/benchmark.h>
#include <malloc.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

#include "bench/messages.h"
#include "bench/ping_pong.h"
#include "bench/program.h"
#include "driver/prn.h"
#include "protocol/wire/message_frame.h"

namespace {

using valmere::kFrameHeaderBytes;
using valmere::bench::FrameOf;

std::string GetFrame() {
  return FrameOf(valmere::bench::GetText());
}

// An open handle on the running service.
class Handle {
 public:
  Handle() : handle_(PRN_Open(1, 0, 0)) {}
  ~Handle() { PRN_Close(handle_); }

  void Send(const std::string& frame) {
    PRN_Write(handle_, frame.data(), static_cast<std::uint32_t>(frame.size()));
  }

  // Sends the request and reads the reply; the length of its text.
  std::uint32_t Get(const std::string& frame) {
    Send(frame);
    unsigned char header[kFrameHeaderBytes];
    PRN_Read(handle_, header, 16);
    PRN_Read(handle_, header + 16, 4);
    const std::uint32_t length = valmere::DecodeLength(header + 16);
    text_.resize(length);
    PRN_Read(handle_, text_.data(), length);
    return length;
  }

  const std::string& text() const { return text_; }

 private:
  const std::uint32_t handle_;
  std::string text_;
};

void BM_GetThroughHandle(benchmark::State& state) {
  Handle handle;
  const std::string frame = GetFrame();
  handle.Get(frame);
  if (handle.text().find("\"Value\": \"Valmere\"") == std::string::npos)
    state.SkipWithError("the service does not answer");
  for (auto _ : state)
    benchmark::DoNotOptimize(handle.Get(frame));
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_GetThroughHandle)->UseRealTime();
BENCHMARK(BM_GetThroughHandle)->Threads(8)->UseRealTime();

void BM_PingPong(benchmark::State& state) {
  valmere::bench::PingPong peer;
  for (auto _ : state)
    peer.Trip();
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_PingPong)->UseRealTime();
BENCHMARK(BM_PingPong)->Threads(8)->UseRealTime();

// A component with so many properties, and the handle that it published them on.
class Publisher {
 public:
  explicit Publisher(int count) {
    handle_.Send(valmere::bench::PublicationFrame(0, count));
    handle_.Get(GetFrame());  // handled in order: everything is published when this is answered
  }

 private:
  Handle handle_;
};

// A line of /proc/self/status in bytes.
double StatusBytes(const char* name) {
  return static_cast<double>(valmere::bench::ProcessFigure(getpid(), "status", name)) * 1024;
}

// How much more than before `work` the process held at the most meanwhile.
template <class Work>
double PeakOf(Work work) {
  malloc_trim(0);
  if (std::FILE* file = std::fopen("/proc/self/clear_refs", "w")) {
    std::fputs("5", file);
    std::fclose(file);
  }
  const double before = StatusBytes("VmRSS:");
  work();
  return StatusBytes("VmHWM:") - before;
}

void BM_GetAllThroughHandle(benchmark::State& state) {
  const Publisher publisher(static_cast<int>(state.range(0)));
  Handle handle;
  const std::string frame = FrameOf(R"({"GetAllProperties": true})");
  std::uint32_t bytes = handle.Get(frame);
  // The client's own buffer is there already.
  const double peak = PeakOf([&] { bytes = handle.Get(frame); });
  for (auto _ : state)
    bytes = handle.Get(frame);
  state.counters["bytes"] = bytes;
  state.counters["peak_over_text"] = peak / bytes;
}
BENCHMARK(BM_GetAllThroughHandle)->Arg(1000)->Arg(10000)->UseRealTime();

// The service runs for the whole program.
struct Service {
  Service() {
    setenv("VALMERE_ROOT", "/tmp", 0);
    PRN_Init(0);
  }
  ~Service() { PRN_Deinit(1); }
} g_service;

}  // namespace
