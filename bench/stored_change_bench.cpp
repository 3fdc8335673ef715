// From a change of a stored property to its line in the file, and "Store Properties" with a
// thousand of them, beside a bare read and write of the same file, and beside a bare write of the
// same bytes into a new file that takes the old one's name.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
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

#include "persist/file/property_file_writer.h"
#include "persist/settings/persistence.h"
#include "platform/kernel.h"
#include "store/property/uint_property.h"

namespace {

using namespace valmere;

constexpr platform::WidePathView kPath = u"/Properties.ini";

// The real files; says when one that was rewritten is closed, which is when its old content is let
// go.
class WatchedFiles : public platform::FileSystem {
 public:
  std::unique_ptr<platform::File> Open(platform::WidePathView path,
                                       platform::OpenFlags flags) override {
    auto file = real_->Open(path, flags);
    return file ? std::make_unique<Watched>(std::move(file), written_) : nullptr;
  }
  bool Exists(platform::WidePathView path) override { return real_->Exists(path); }
  bool Remove(platform::WidePathView path) override { return real_->Remove(path); }
  bool Sync() override { return real_->Sync(); }
  void AwaitRewrite() { written_.Wait(); }

 private:
  class Watched : public platform::File {
   public:
    Watched(std::unique_ptr<platform::File> file, platform::Semaphore& written)
        : file_(std::move(file)), written_(written) {}
    ~Watched() override {
      file_.reset();
      if (rewritten_) written_.Release();
    }
    std::size_t Read(void* buffer, std::size_t length) override {
      return file_->Read(buffer, length);
    }
    std::size_t Write(const void* buffer, std::size_t length) override {
      return file_->Write(buffer, length);
    }
    std::optional<std::uint64_t> Size() override { return file_->Size(); }
    bool Complete() override {
      rewritten_ = true;
      return file_->Complete();
    }

   private:
    std::unique_ptr<platform::File> file_;
    platform::Semaphore& written_;
    bool rewritten_ = false;
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
    persistence->StartWorkers(251, 253);
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

// What any program does with a file, with no call more than that takes.
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
  void Overwrite(std::string_view content) const {
    Write(open(path_.c_str(), O_WRONLY | O_TRUNC | O_CLOEXEC), content);
  }
  void Replace(std::string_view content) const {
    constexpr mode_t kMode = 0644;
    Write(open(beside_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, kMode), content);
    Require(rename(beside_.c_str(), path_.c_str()) == 0);
  }

 private:
  static void Write(int file, std::string_view content) {
    Require(write(file, content.data(), content.size()) == static_cast<ssize_t>(content.size()));
    close(file);
  }
  static void Require(bool condition) {
    if (!condition) throw std::runtime_error("the file can't be read or written");
  }

  const std::string path_;
  const std::string beside_;
  std::string content_;
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
  BareFile bare(store.root);
  for (auto _ : state)
    bare.Overwrite(bare.Read());
}
BENCHMARK(BM_BareReadAndWrite)->Arg(30)->Arg(1000)->UseRealTime()->Unit(benchmark::kMicrosecond);

double Median(std::vector<double>& values) {
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

double SecondsSince(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// Ours and bare replacements take turns, so that both see the same disk and the same hour; the
// counters are medians, since now and then a disk takes long. With `read` the replacement reads the
// old file first, as ours has to.
template <class Ours>
void BesideBareReplace(benchmark::State& state, const Store& store, Ours ours) {
  const bool read = state.range(1) != 0;
  BareFile bare(store.root);
  const std::string content = bare.Read();
  std::vector<double> of_ours;
  std::vector<double> replacements;
  std::uint32_t value = 0;
  for (auto _ : state) {
    auto start = std::chrono::steady_clock::now();
    ours(++value);
    of_ours.push_back(SecondsSince(start));
    state.SetIterationTime(of_ours.back());
    start = std::chrono::steady_clock::now();
    bare.Replace(read ? bare.Read() : content);
    replacements.push_back(SecondsSince(start));
  }
  const double median = Median(of_ours);
  const double replacement = Median(replacements);
  state.counters["ours_us"] = 1e6 * median;
  state.counters["bare_us"] = 1e6 * replacement;
  state.counters["ratio"] = median / replacement;
}

// The line alone, on the thread that asks for it.
void BM_LineBesideBareReplace(benchmark::State& state) {
  Store store(static_cast<int>(state.range(0)));
  const UIntProperty& property = *store.properties[store.properties.size() / 2];
  const std::string left_side = property.key().Text() + "|" + std::string(property.group_name()) +
                                ":" + std::string(property.name());
  BesideBareReplace(state, store, [&](std::uint32_t value) {
    RewriteLine(*store.files, MakeWriteRequest(left_side, std::to_string(value), kPath));
    store.files->AwaitRewrite();
  });
}

// From the property's change, over the line writer's thread.
void BM_ChangeBesideBareReplace(benchmark::State& state) {
  Store store(static_cast<int>(state.range(0)));
  UIntProperty& property = *store.properties[store.properties.size() / 2];
  BesideBareReplace(state, store, [&](std::uint32_t value) {
    property.SetFromString(std::to_string(value));
    store.files->AwaitRewrite();
  });
}

void LinesAndReading(benchmark::internal::Benchmark* bench) {
  bench->ArgNames({"lines", "read"})
      ->ArgsProduct({{30, 1000}, {0, 1}})
      ->UseManualTime()
      ->Unit(benchmark::kMicrosecond);
}
BENCHMARK(BM_LineBesideBareReplace)->Apply(LinesAndReading);
BENCHMARK(BM_ChangeBesideBareReplace)->Apply(LinesAndReading);

void BM_StoreProperties(benchmark::State& state) {
  Store store(static_cast<int>(state.range(0)));
  for (auto _ : state)
    store.StoreAll();
}
BENCHMARK(BM_StoreProperties)->Arg(1000)->UseRealTime()->Unit(benchmark::kMillisecond);

}  // namespace
