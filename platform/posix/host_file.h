// An open file of the host.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <utility>

#include "platform/files.h"
#include "platform/posix/descriptor.h"
#include "platform/posix/write_ledger.h"
#include "platform/wide_path.h"

namespace valmere::platform {

// Purpose: moves bytes from and to a file; tells the ledger the results of its writes.
// Owner, threads: as File.
// Errors: as File; a write that fails is reported, and the file is never complete then.
class HostFile : public File {
 public:
  HostFile(WidePathView path, std::shared_ptr<WriteLedger> ledger)
      : path_(path), ledger_(std::move(ledger)) {}

  // Empty until it is given its descriptor, once.
  void Adopt(Descriptor descriptor) { descriptor_ = std::move(descriptor); }

  std::size_t Read(void* buffer, std::size_t length) override;
  std::size_t Write(const void* buffer, std::size_t length) override;
  std::optional<std::uint64_t> Size() override;
  bool Complete() override;

 protected:
  const Descriptor& descriptor() const { return descriptor_; }
  // Something could not be written.
  bool failed() const { return failed_; }
  // Has the ledger report the cause in errno.
  void Fail() {
    failed_ = true;
    ledger_->Failed(path_);
  }
  void Succeed() { ledger_->Succeeded(path_); }
  // False when it must be synced here and now.
  bool LeaveForSync() { return ledger_->AddUnsynced(path_); }
  // Closes the file; false when that fails, as it may where data go over a network by then.
  bool CloseNow();

 private:
  const WidePath path_;
  const std::shared_ptr<WriteLedger> ledger_;
  Descriptor descriptor_;
  bool failed_ = false;
};

}  // namespace valmere::platform
