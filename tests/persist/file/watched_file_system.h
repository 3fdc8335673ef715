#pragma once

#include <functional>
#include <memory>
#include <utility>

#include "platform/files.h"
#include "tests/support/memory_file_system.h"

namespace valmere::test {

// A disk that tells of each file that is opened for writing, on the thread that does it: the file
// has lost its old content then and has no new one yet.
class WatchedFileSystem final : public platform::FileSystem {
 public:
  explicit WatchedFileSystem(std::function<void()> in_a_rewrite)
      : in_a_rewrite_(std::move(in_a_rewrite)) {}

  std::unique_ptr<platform::File> Open(platform::WidePathView path,
                                       platform::OpenFlags flags) override {
    auto file = disk.Open(path, flags);
    if (Has(flags, platform::OpenFlags::kWrite)) in_a_rewrite_();
    return file;
  }
  bool Exists(platform::WidePathView path) override { return disk.Exists(path); }
  bool Remove(platform::WidePathView path) override { return disk.Remove(path); }

  MemoryFileSystem disk;

 private:
  const std::function<void()> in_a_rewrite_;
};

}  // namespace valmere::test
