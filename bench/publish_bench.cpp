// The end of a publishing period with both stacks full, for 1, 16 and 256 subscribers to
// everything, beside what a further subscriber must cost at least: copying the text into its pipe.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "driver/service/loopback_pipe.h"
#include "store/engine/change_publisher.h"
#include "store/engine/pending_updates.h"
#include "store/engine/reply_memory.h"
#include "store/property/component_property.h"
#include "store/property/string_property.h"

namespace {

using namespace valmere;

constexpr char kGuid[] = "E0000000-0000-4000-8000-000000000000";
constexpr char kGroupGuid[] = "D0000000-0000-4000-8000-000000000000";

// Takes what was written to it; the bytes.
std::size_t Empty(LoopbackPipe& pipe, std::vector<char>& room) {
  std::size_t total = 0;
  while (pipe.driver_end()->IsOpen()) {
    const int got = pipe.driver_end()->Read(room.data(), static_cast<int>(room.size()));
    total += static_cast<std::size_t>(got);
    if (got < static_cast<int>(room.size())) break;
  }
  return total;
}

void BM_PeriodEnd(benchmark::State& state) {
  const auto own = StringProperty::Make("Valmere", kGuid, "Valmere", kGroupGuid, "Components");
  const auto period = UIntProperty::Make(250, kGuid, "Period", kGroupGuid, "General");
  std::vector<std::shared_ptr<Property>> changed;
  std::vector<std::shared_ptr<Property>> reported;
  for (std::uint32_t i = 1; i < ChangeStack::kSlots; ++i) {
    changed.push_back(
        StringProperty::Make("42", kGuid, "Property Name 000000", kGroupGuid, "General"));
    reported.push_back(ComponentProperty::Make("42", kGuid, "Property Name 000000", kGroupGuid,
                                               "Bench Group Name ....", kGuid,
                                               "Bench Component Name", nullptr));
  }
  const auto subscribers = std::make_shared<SubscriberList>();
  std::vector<LoopbackPipe> pipes(static_cast<std::size_t>(state.range(0)));
  {
    const ScopedLock hold(subscribers->lock);
    Subscriber::Keys all;
    for (const LoopbackPipe& pipe : pipes)
      subscribers->Add(std::make_shared<ClientConnection>(pipe.service_end()), all);
  }
  const auto pending = std::make_shared<PendingUpdates>();
  ChangePublisher publisher(own, period, subscribers, pending, ReplyMemory::Make(), {}, {});
  std::vector<char> room(4 << 20);
  std::size_t bytes = 0;
  for (auto _ : state) {
    state.PauseTiming();
    for (const auto& property : changed)
      pending->PushChange(property);
    for (const auto& property : reported)
      pending->PushChange(property);
    state.ResumeTiming();
    publisher.Pass();
    state.PauseTiming();
    for (LoopbackPipe& pipe : pipes)
      bytes = Empty(pipe, room);
    state.ResumeTiming();
  }
  state.counters["bytes"] = static_cast<double>(bytes);
}
BENCHMARK(BM_PeriodEnd)->Arg(1)->Arg(16)->Arg(256)->Unit(benchmark::kMicrosecond);

// Of a text as long as the one above, into as many pipes.
void BM_CopyTwiceIntoPipes(benchmark::State& state) {
  const std::string text(303'000, 'x');
  std::vector<LoopbackPipe> pipes(static_cast<std::size_t>(state.range(0)));
  std::vector<char> room(4 << 20);
  for (auto _ : state) {
    for (const LoopbackPipe& pipe : pipes)
      for (int i = 0; i < 2; ++i)
        pipe.service_end()->Write(text.data(), static_cast<int>(text.size()));
    state.PauseTiming();
    for (LoopbackPipe& pipe : pipes)
      Empty(pipe, room);
    state.ResumeTiming();
  }
}
BENCHMARK(BM_CopyTwiceIntoPipes)->Arg(1)->Arg(16)->Arg(256)->Unit(benchmark::kMicrosecond);

}  // namespace
