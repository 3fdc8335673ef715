// One turn of two threads waking each other, through event flags and, as the measure, through the
// barest that the language offers: a mutex, a condition variable and an integer. Run once with both
// cores free and once pinned to one (taskset -c 0), where a wake-up costs little and the work
// shows.
#include <benchmark/benchmark.h>

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <thread>

#include "driver/sync/event_flags.h"

namespace valmere {
namespace {

constexpr std::uint32_t kPing = 1;
constexpr std::uint32_t kPong = 2;
constexpr std::uint32_t kEnd = 4;

void BM_MutexAndCondition(benchmark::State& state) {
  std::mutex mutex;
  std::condition_variable changed;
  std::uint32_t turn = 0;
  const auto pass = [&](std::uint32_t next) {
    {
      std::lock_guard hold(mutex);
      turn = next;
    }
    changed.notify_one();
  };
  const auto await = [&](std::uint32_t mask) {
    std::unique_lock hold(mutex);
    changed.wait(hold, [&] { return (turn & mask) != 0; });
    return turn;
  };
  std::thread partner([&] {
    while (await(kPing | kEnd) == kPing)
      pass(kPong);
  });
  for (auto _ : state) {
    pass(kPing);
    await(kPong);
  }
  pass(kEnd);
  partner.join();
}
BENCHMARK(BM_MutexAndCondition)->UseRealTime();

// Both ways through one object, as the peer above does it with one mutex.
void BM_EventFlags(benchmark::State& state) {
  EventFlags flags(EventFlags::AutoClear::kYes);
  std::thread partner([&] {
    while ((flags.Wait(kPing | kEnd) & kEnd) == 0)
      flags.Set(kPong);
  });
  for (auto _ : state) {
    flags.Set(kPing);
    flags.Wait(kPong);
  }
  flags.Set(kEnd);
  partner.join();
}
BENCHMARK(BM_EventFlags)->UseRealTime();

// As a pipe uses them: an object for each way.
void BM_EventFlagsTwoObjects(benchmark::State& state) {
  EventFlags there(EventFlags::AutoClear::kYes);
  EventFlags back(EventFlags::AutoClear::kYes);
  std::thread partner([&] {
    while ((there.Wait(kPing | kEnd) & kEnd) == 0)
      back.Set(kPong);
  });
  for (auto _ : state) {
    there.Set(kPing);
    back.Wait(kPong);
  }
  there.Set(kEnd);
  partner.join();
}
BENCHMARK(BM_EventFlagsTwoObjects)->UseRealTime();

// What it costs when no thread has to sleep.
void BM_EventFlagsSetAndPoll(benchmark::State& state) {
  EventFlags flags(EventFlags::AutoClear::kYes);
  for (auto _ : state) {
    flags.Set(kPing);
    benchmark::DoNotOptimize(flags.Poll(kPing));
  }
}
BENCHMARK(BM_EventFlagsSetAndPoll);

}  // namespace
}  // namespace valmere
