// One get through the entry points, beside a bare ping-pong between two threads; one at a time and
// eight at once.
#include <benchmark/benchmark.h>
#include <malloc.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "bench/ping_pong.h"
#include "driver/prn.h"
#include "protocol/wire/message_frame.h"
#include "tests/support/frames.h"

namespace {

using valmere::kFrameHeaderBytes;

std::string GetFrame() {
  return valmere::test::FrameOf(
      R"({"PropertyGetRequests": [{"Component": "955CFDC2-8EA6-478E-A927-7C870022EA03",)"
      R"("GUID": "ADC1E631-2C12-4267-B128-95830EC9857D:955CFDC2-8EA6-478E-A927-7C870022EA03"}]})");
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
    std::string frame;
    valmere::BeginFrame(frame);
    frame += "{\"PropertyGetResponses\": [";
    for (int i = 0; i < count; ++i) {
      char entry[512];
      std::snprintf(entry, sizeof entry,
                    "%s{\"Component\": \"C0000000-0000-4000-8000-000000000000\","
                    "\"ComponentString\": \"Bench Component Name\","
                    "\"GUID\": \"D0000000-0000-4000-8000-000000000000:"
                    "E0000000-0000-4000-8000-%012d\","
                    "\"GroupString\": \"Bench Group Name ....\","
                    "\"NameString\": \"Property Name %06d\",\"Status\": \"Successful\","
                    "\"Value\": \"%d\"}",
                    i == 0 ? "" : ",", i, i, i);
      frame += entry;
    }
    frame += "]}";
    valmere::EndFrame(frame);
    handle_.Send(frame);
    handle_.Get(GetFrame());  // handled in order: everything is published when this is answered
  }

 private:
  Handle handle_;
};

// A line of /proc/self/status in bytes.
double StatusBytes(const char* name) {
  double kilobytes = 0;
  if (std::FILE* file = std::fopen("/proc/self/status", "r")) {
    char line[256];
    while (std::fgets(line, sizeof line, file) != nullptr)
      if (std::strncmp(line, name, std::strlen(name)) == 0)
        kilobytes = std::atof(line + std::strlen(name));
    std::fclose(file);
  }
  return kilobytes * 1024;
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
  const std::string frame = valmere::test::FrameOf(R"({"GetAllProperties": true})");
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
