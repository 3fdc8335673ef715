#pragma once

#include <atomic>
#include <memory>
#include <utility>

#include "platform/files.h"
#include "platform/kernel.h"

namespace valmere::test {

// One service's way to a disk that it shares with another. It can be told to hang in the next call
// that opens a file for reading.
class HangingFiles final : public platform::FileSystem {
 public:
  explicit HangingFiles(std::shared_ptr<platform::FileSystem> disk) : disk_(std::move(disk)) {}

  void HangAtTheNextRead() { hang_ = true; }
  void AwaitHanging() { hanging_.Wait(); }
  void GoOn() { go_on_.Release(); }

  std::unique_ptr<platform::File> Open(platform::WidePathView path,
                                       platform::OpenFlags flags) override {
    if (!Has(flags, platform::OpenFlags::kWrite) && hang_.exchange(false)) {
      hanging_.Release();
      go_on_.Wait();
    }
    return disk_->Open(path, flags);
  }
  bool Exists(platform::WidePathView path) override { return disk_->Exists(path); }
  bool Remove(platform::WidePathView path) override { return disk_->Remove(path); }

 private:
  const std::shared_ptr<platform::FileSystem> disk_;
  std::atomic<bool> hang_{false};
  platform::Semaphore hanging_;
  platform::Semaphore go_on_;
};

}  // namespace valmere::test
