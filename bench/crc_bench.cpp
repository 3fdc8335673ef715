// How fast the checksum of a property file is taken.
#include <benchmark/benchmark.h>

#include <string>

#include "persist/file/crc16.h"

namespace {

void BM_Crc16(benchmark::State& state) {
  const std::string bytes(static_cast<std::size_t>(state.range(0)), 'x');
  for ([[maybe_unused]] auto _ : state)
    benchmark::DoNotOptimize(valmere::Crc16(bytes));
  state.SetBytesProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_Crc16)->Arg(100)->Arg(3'000)->Arg(100'000)->Arg(10'000'000);

}  // namespace

BENCHMARK_MAIN();
