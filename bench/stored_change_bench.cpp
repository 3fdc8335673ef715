// From a change of a stored property to its line in the file, and "Store Properties" with a thousand
// of them, beside a bare read and write of the same file, and beside a bare write of the same bytes into
// a new file that takes the old one's name.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
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

  std::string Path(const char* name) const { return std::string(name_) + "/" + name; }

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

// What any program does that replaces a file, with no call more than that takes.
class BareFile {
 public:
  explicit BareFile(const Root& root)
      : path_(root.Path("Properties.ini")), beside_(root.Path("Properties.new")) {}

  const std::string& Read() {
    const int file = open(path_.c_str(), O_RDONLY | O_CLOEXEC);
    content_.resize(std::filesystem::file_size(path_));
    Require(read(file, content_.data(), content_.size()) == static_cast<ssize_t>(content_.size()));
    close(file);
    return content_;
  }
  void Replace(std::string_view content) const {
    constexpr mode_t kMode = 0644;
    const int file = open(beside_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, kMode);
    Require(write(file, content.data(), content.size()) == static_cast<ssize_t>(content.size()));
    close(file);
    Require(rename(beside_.c_str(), path_.c_str()) == 0);
  }

 private:
  static void Require(bool condition) {
    if (!condition) throw std::runtime_error("the file can't be replaced");
  }

  const std::string path_;
  const std::string beside_;
  std::string content_;
};

double SecondsSince(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// Changes and bare replacements take turns, so that both see the same disk and the same hour. The time
// is that of a change; with `read` the replacement reads the old file first, as a change has to.
void BM_ChangeBesideBareReplace(benchmark::State& state) {
  Store store(static_cast<int>(state.range(0)));
  const bool read = state.range(1) != 0;
  UIntProperty& property = *store.properties[store.properties.size() / 2];
  BareFile bare(store.root);
  const std::string content = bare.Read();
  std::uint32_t value = 0;
  double bare_seconds = 0;
  double change_seconds = 0;
  for (auto _ : state) {
    auto start = std::chrono::steady_clock::now();
    property.SetFromString(std::to_string(++value));
    store.files->AwaitRewrite();
    const double seconds = SecondsSince(start);
    state.SetIterationTime(seconds);
    change_seconds += seconds;
    start = std::chrono::steady_clock::now();
    bare.Replace(read ? bare.Read() : content);
    bare_seconds += SecondsSince(start);
  }
  state.counters["bare_us"] = 1e6 * bare_seconds / static_cast<double>(state.iterations());
  state.counters["ratio"] = change_seconds / bare_seconds;
}
BENCHMARK(BM_ChangeBesideBareReplace)
    ->ArgNames({"lines", "read"})
    ->ArgsProduct({{30, 1000}, {0, 1}})
    ->UseManualTime()
    ->Unit(benchmark::kMicrosecond);

void BM_StoreProperties(benchmark::State& state) {
  Store store(static_cast<int>(state.range(0)));
  for (auto _ : state)
    store.StoreAll();
}
BENCHMARK(BM_StoreProperties)->Arg(1000)->UseRealTime()->Unit(benchmark::kMillisecond);

}  // namespace
