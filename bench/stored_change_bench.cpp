// From a change of a stored property to its line in the file, and "Store Properties" with a thousand
// of them, beside a bare read and write of the same file.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "persist/file_stream.h"
#include "persist/persistence.h"
#include "platform/kernel.h"
#include "store/uint_property.h"

namespace {

using namespace valmere;

constexpr platform::WidePathView kPath = u"/Properties.ini";

// The real files; says when a trailer, which ends a rewrite, has been written.
class WatchedFiles : public platform::FileSystem {
 public:
  std::unique_ptr<platform::File> Open(platform::WidePathView path,
                                       platform::OpenFlags flags) override {
    auto file = real_->Open(path, flags);
    return file ? std::make_unique<Watched>(std::move(file), written_) : nullptr;
  }
  bool Exists(platform::WidePathView path) override { return real_->Exists(path); }
  bool Remove(platform::WidePathView path) override { return real_->Remove(path); }
  void AwaitRewrite() { written_.Wait(); }

 private:
  class Watched : public platform::File {
   public:
    Watched(std::unique_ptr<platform::File> file, platform::Semaphore& written)
        : file_(std::move(file)), written_(written) {}
    std::size_t Read(void* buffer, std::size_t length) override {
      return file_->Read(buffer, length);
    }
    std::size_t Write(const void* buffer, std::size_t length) override {
      const std::size_t count = file_->Write(buffer, length);
      if (length == 2) written_.Release();
      return count;
    }
    std::optional<std::uint64_t> Size() override { return file_->Size(); }

   private:
    const std::unique_ptr<platform::File> file_;
    platform::Semaphore& written_;
  };

  const std::shared_ptr<platform::FileSystem> real_ = platform::MakeDeviceFileSystem();
  platform::Semaphore written_;
};

// A device root of its own.
class Root {
 public:
  Root() { setenv("VALMERE_ROOT", mkdtemp(name_), 1); }
  ~Root() { std::filesystem::remove_all(name_); }

 private:
  char name_[32] = "/tmp/valmere-bench-XXXXXX";
};

struct Store {
  explicit Store(int count) {
    for (int i = 0; i < count; ++i) {
      char guid[40];
      std::snprintf(guid, sizeof guid, "E0000000-0000-4000-8000-%012d", i);
      properties.push_back(UIntProperty::Make(0, guid, "Property Name 000000",
                                              "D0000000-0000-4000-8000-000000000000",
                                              "Bench Group Name ...."));
      persistence->RegisterProperty(properties.back());
    }
    persistence->StartWorker(251);
    StoreAll();
  }
  void StoreAll() {
    persistence->StoreAll();
    for (std::size_t i = 0; i < properties.size(); ++i)
      files->AwaitRewrite();
  }

  const Root root;
  const std::shared_ptr<WatchedFiles> files = std::make_shared<WatchedFiles>();
  const std::shared_ptr<Persistence> persistence =
      Persistence::Make(files, kPath, u"/Override.ini");
  std::vector<std::shared_ptr<UIntProperty>> properties;
};

void BM_ChangeToLine(benchmark::State& state) {
  Store store(static_cast<int>(state.range(0)));
  UIntProperty& property = *store.properties[store.properties.size() / 2];
  std::uint32_t value = 0;
  for (auto _ : state) {
    property.SetFromString(std::to_string(++value));
    store.files->AwaitRewrite();
  }
}
BENCHMARK(BM_ChangeToLine)->Arg(30)->Arg(1000)->UseRealTime()->Unit(benchmark::kMicrosecond);

void BM_BareReadAndWrite(benchmark::State& state) {
  Store store(static_cast<int>(state.range(0)));
  for (auto _ : state) {
    const auto content = FileStream(*store.files, kPath, platform::OpenFlags::kRead).ReadWhole();
    FileStream(*store.files, kPath, platform::OpenFlags::kWrite | platform::OpenFlags::kTruncate)
        .WriteAll(*content);
  }
}
BENCHMARK(BM_BareReadAndWrite)->Arg(30)->Arg(1000)->UseRealTime()->Unit(benchmark::kMicrosecond);

void BM_StoreProperties(benchmark::State& state) {
  Store store(static_cast<int>(state.range(0)));
  for (auto _ : state)
    store.StoreAll();
}
BENCHMARK(BM_StoreProperties)->Arg(1000)->UseRealTime()->Unit(benchmark::kMillisecond);

}  // namespace
