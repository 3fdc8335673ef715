// Many clients of one service in one process, over its entry points, for as long as one likes. At
// quiet points what each of them believes is held against what is so; when all have gone, threads,
// descriptors and memory are what they were before the first came.
#include <charconv>
#include <cstdio>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "driver/prn.h"
#include "tests/driver/busy_messages.h"
#include "tests/driver/process_state.h"
#include "tests/soak/generation.h"
#include "tests/support/allocations.h"
#include "tests/support/frame_client.h"

namespace valmere::test {
namespace {

constexpr int kRoundsOfAGeneration = 5;
constexpr int kFloodedRound = 3;
// The service keeps its buffers up to a certain size, and what waits for a period's end.
constexpr std::size_t kMemorySlack = std::size_t{192} * 1024;
constexpr std::size_t kMostKept = std::size_t{512} * 1024;
constexpr std::size_t kMarkerOfOne = 4;
constexpr char kUsage[] =
    "usage: soak [SECONDS [SEED]]\n"
    "Runs for about SECONDS (60), with the choices that SEED gives (a new one each time).\n";

struct Resources {
  std::size_t threads = ThreadCount();
  std::size_t handles = HandleCount();
  std::size_t memory = BytesInUse();
};

std::size_t MarkerBytes(const DeviceRoot& device) {
  constexpr char kMarker[] = "root/DriverUnloadSuccessful";
  return device.Has(kMarker) ? device.Get(kMarker).size() : 0;
}

// The last of what clients held goes shortly after them.
void AwaitAllGone(World& world, const Resources& before) {
  const bool gone = Await([&] {
    const Resources now;
    return now.threads <= before.threads && now.handles <= before.handles &&
           now.memory <= before.memory + kMemorySlack;
  });
  const Resources now;
  std::printf("%zu threads, %zu descriptors, %zu bytes are left\n", now.threads, now.handles,
              now.memory);
  std::fflush(stdout);
  if (!gone)
    world.summary.Fail("there were " + std::to_string(before.threads) + " threads, " +
                       std::to_string(before.handles) + " descriptors and " +
                       std::to_string(before.memory) + " bytes");
}

// Ends the service while it is at work on long messages of every kind, and starts the next.
void UnloadAtWork(World& world, const DeviceRoot& device) {
  constexpr EntryPoints kEntry = {PRN_Open, PRN_Close, PRN_Read, PRN_Write};
  const std::size_t marker = MarkerBytes(device);
  {
    std::vector<std::unique_ptr<FrameClient>> clients;
    for (const BusyMessage& message : MakeBusyMessages(kLongTextBytes)) {
      clients.push_back(std::make_unique<FrameClient>(kEntry));
      clients.back()->Send(message.text);
      clients.back()->Send(message.text);
    }
    PRN_Deinit(1);
  }
  if (MarkerBytes(device) != marker + kMarkerOfOne)
    world.summary.Fail("an unload amid long messages was not clean");
  PRN_Init(0);
  world.summary.Add(Kind::kUnloads);
}

// The first generation leaves what grows once, such as buffers that are kept. It also outlives the
// thread that serves the service's own device, which ends soon after a start.
void RunGenerations(World& world, Deadline end, DeviceRoot& device) {
  Resources before;
  before.memory += kMostKept;
  for (std::uint32_t number = 1; number == 1 || !end.passed(); ++number) {
    {
      Generation generation(world, number, device);
      for (int round = 1; round <= kRoundsOfAGeneration && !end.passed(); ++round) {
        generation.Live();
        if (round == kFloodedRound) generation.Flood();
        world.summary.Add(Kind::kRounds);
        if (world.summary.Failed()) return;
      }
    }
    UnloadAtWork(world, device);
    AwaitAllGone(world, before);
    if (world.summary.Failed()) return;
    if (number == 1) before = Resources();
  }
}

int Run(std::chrono::seconds time, std::uint32_t seed) {
  std::printf("soak: %lld seconds, seed %u\n", static_cast<long long>(time.count()), seed);
  std::fflush(stdout);
  DeviceRoot device;
  device.MakeFolder("root/Store");
  World world;
  world.seed = seed;
  std::thread([] {}).join();  // a sanitizer's own thread comes with the first other one
  const Resources before;
  PRN_Init(0);
  RunGenerations(world, Deadline::After(time), device);
  const std::size_t marker = MarkerBytes(device);
  PRN_Deinit(1);
  if (MarkerBytes(device) != marker + kMarkerOfOne) world.summary.Fail("the unload was not clean");
  if (ThreadCount() != before.threads || HandleCount() != before.handles)
    world.summary.Fail("threads or descriptors are left behind the unload");
  world.summary.Print();
  if (world.summary.Failed()) std::printf("soak: FAILED with seed %u\n", seed);
  return world.summary.Failed() ? 1 : 0;
}

// False when the text is no number.
bool ReadNumber(const char* text, std::uint32_t& number) {
  const char* const end = text + std::strlen(text);
  const auto [rest, error] = std::from_chars(text, end, number);
  return error == std::errc() && rest == end;
}

}  // namespace
}  // namespace valmere::test

int main(int argc, char** argv) {
  std::uint32_t seconds = 60;
  std::uint32_t seed = std::random_device()();
  if (argc > 3 || (argc > 1 && !valmere::test::ReadNumber(argv[1], seconds)) ||
      (argc > 2 && !valmere::test::ReadNumber(argv[2], seed))) {
    std::fputs(valmere::test::kUsage, stderr);
    return 2;
  }
  return valmere::test::Run(std::chrono::seconds(seconds), seed);
}
