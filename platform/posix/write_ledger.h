// The results of the writes to files.
#pragma once

#include <atomic>
#include <cstddef>
#include <string>
#include <vector>

#include "platform/kernel.h"
#include "platform/wide_path.h"

namespace valmere::platform {

// Purpose: knows which files have been written and not yet synced, and reports on standard error
// each that can't be written, once, and when it can be written again.
// Owner: shared by the file system and its files, which may outlive it.
// Threads: any.
// Errors: none. Without memory a file is reported at its next failure.
class WriteLedger {
 public:
  // Of more files than this it does not remember whether they have been reported.
  static constexpr std::size_t kMostTroubles = 16;
  // More are not kept: the writer of one more file has to sync it itself.
  static constexpr std::size_t kMostUnsynced = 64;

  explicit WriteLedger(std::string root) : root_(std::move(root)) {}
  WriteLedger(const WriteLedger&) = delete;
  WriteLedger& operator=(const WriteLedger&) = delete;

  // The file can't be written; errno has the cause.
  void Failed(const WidePath& path) noexcept EXCLUDES(lock_);
  // What was to be written is in the file.
  void Succeeded(const WidePath& path) noexcept EXCLUDES(lock_);

  // It is to be synced. False when there is no room for it.
  bool AddUnsynced(const WidePath& path) noexcept EXCLUDES(lock_);
  // Hands all of them over.
  std::vector<WidePath> TakeUnsynced() noexcept EXCLUDES(lock_);

 private:
  struct Trouble {
    WidePath path;
    int error;
  };

  bool IsNew(const WidePath& path, int error) EXCLUDES(lock_);
  std::string NameOf(const WidePath& path) const;

  const std::string root_;
  std::atomic<bool> any_trouble_{false};  // spares all others the lock
  Lock lock_;
  std::vector<Trouble> troubles_ GUARDED_BY(lock_);  // the oldest first
  std::vector<WidePath> unsynced_ GUARDED_BY(lock_);
};

}  // namespace valmere::platform
