// A rewrite of one line beside the least that it could be: reading the file whole and writing the
// same bytes back. The files lie under the device root (VALMERE_ROOT); lines are the file's length.
#include <benchmark/benchmark.h>

#include <memory>
#include <string>

#include "persist/file/file_stream.h"
#include "persist/file/property_file.h"
#include "persist/file/property_file_writer.h"
#include "tests/persist/file/property_file_samples.h"

namespace {

using valmere::FileStream;
using valmere::platform::OpenFlags;

constexpr valmere::platform::WidePathView kPath = u"/Store/bench.ini";

std::shared_ptr<valmere::platform::FileSystem> Prepare(benchmark::State& state, int lines) {
  auto files = valmere::platform::MakeDeviceFileSystem();
  FileStream file(*files, kPath, OpenFlags::kWrite | OpenFlags::kTruncate);
  if (!file.WriteAll(valmere::test::WithTrailer(valmere::test::ManyLines(lines))) ||
      !file.Complete())
    state.SkipWithError("the folder Store must be under the device root");
  return files;
}

void BM_BareReadAndWrite(benchmark::State& state) {
  const auto files = Prepare(state, static_cast<int>(state.range(0)));
  for ([[maybe_unused]] auto _ : state) {
    std::unique_ptr<char[]> bytes;
    std::size_t size = 0;
    {
      FileStream in(*files, kPath, OpenFlags::kRead);
      size = static_cast<std::size_t>(in.Size().value_or(0));
      bytes.reset(new char[size]);
      if (!in.ReadAll(bytes.get(), size)) state.SkipWithError("not read");
    }
    FileStream out(*files, kPath, OpenFlags::kWrite | OpenFlags::kTruncate);
    if (!out.WriteAll({bytes.get(), size}) || !out.Complete()) state.SkipWithError("not written");
  }
}

// Replaces the middle line.
void BM_Rewrite(benchmark::State& state) {
  const int lines = static_cast<int>(state.range(0));
  const auto files = Prepare(state, lines);
  const std::string line = valmere::test::ManyLines(lines / 2 + 1);
  const std::size_t start = line.rfind('\n', line.size() - 2) + 1;
  const std::string left_side = line.substr(start, line.find('=', start) - start);
  int value = 0;
  for ([[maybe_unused]] auto _ : state)
    if (RewriteLine(*files, valmere::MakeWriteRequest(left_side, std::to_string(++value), kPath)) !=
        valmere::RewriteResult::kWritten)
      state.SkipWithError("not written");
}

void BM_ReadPropertyFile(benchmark::State& state) {
  const auto files = Prepare(state, static_cast<int>(state.range(0)));
  for ([[maybe_unused]] auto _ : state) {
    valmere::PropertyMap map;
    if (ReadPropertyFile(*files, kPath, map) != valmere::PropertyFileResult::kRead)
      state.SkipWithError("not read");
  }
}

BENCHMARK(BM_BareReadAndWrite)->Arg(30)->Arg(1'000);
BENCHMARK(BM_Rewrite)->Arg(30)->Arg(1'000);
BENCHMARK(BM_ReadPropertyFile)->Arg(30)->Arg(1'000);

}  // namespace

BENCHMARK_MAIN();
