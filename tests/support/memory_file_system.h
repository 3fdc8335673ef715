// A disk in memory that can be made to fail.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "platform/files.h"
#include "platform/kernel.h"

namespace valmere::test {

// Purpose: files for tests, with faults to order; `/` and `\` are the same in its paths.
// Owner: the test; must outlive the files opened on it.
// Threads: any thread may call anything.
// Errors: only the ordered ones. Counts of calls and bytes start when the fault is ordered.
class MemoryFileSystem final : public platform::FileSystem {
 public:
  void Put(platform::WidePathView path, std::string_view bytes) {
    platform::ScopedLock hold(lock_);
    MakeNode(path, Kind::kFile).bytes = bytes;
  }
  // Can be opened for reading and has a size, but gives no byte; can't be written.
  void PutDirectory(platform::WidePathView path) {
    platform::ScopedLock hold(lock_);
    MakeNode(path, Kind::kDirectory);
  }
  // Exists, but can't be opened.
  void PutUnopenable(platform::WidePathView path) {
    platform::ScopedLock hold(lock_);
    MakeNode(path, Kind::kUnopenable);
  }
  // What the file holds; nothing when there is none.
  std::optional<std::string> Get(platform::WidePathView path) {
    platform::ScopedLock hold(lock_);
    const auto entry = nodes_.find(Normal(path));
    if (entry == nodes_.end()) return std::nullopt;
    return entry->second->bytes;
  }

  // The n-th open from now fails (1 is the next).
  void FailOpen(std::uint64_t n) {
    platform::ScopedLock hold(lock_);
    failing_open_ = opens_ + n;
  }
  // The n-th read from now gives at most `bytes`.
  void ShortenRead(std::uint64_t n, std::size_t bytes) {
    platform::ScopedLock hold(lock_);
    short_read_ = reads_ + n;
    short_read_bytes_ = bytes;
  }
  // The disk takes that many bytes more; the write that reaches the limit is torn there.
  void FillDiskAfter(std::uint64_t bytes) {
    platform::ScopedLock hold(lock_);
    room_ = bytes;
  }
  void FailRemovals(bool fail) {
    platform::ScopedLock hold(lock_);
    removals_fail_ = fail;
  }
  void FailSizes(bool fail) {
    platform::ScopedLock hold(lock_);
    sizes_fail_ = fail;
  }
  // Ends all faults ordered so far.
  void EndFaults() {
    platform::ScopedLock hold(lock_);
    failing_open_ = short_read_ = 0;
    room_ = steps_left_ = kEndless;
    removals_fail_ = sizes_fail_ = false;
  }

  // Steps taken so far: one for each file created, truncated or removed and for each byte written.
  std::uint64_t steps() {
    platform::ScopedLock hold(lock_);
    return steps_;
  }
  // What comes after the next `steps` steps never reaches the disk, though its callers, which
  // in truth would be gone, are told that it did.
  void CutPowerAfter(std::uint64_t steps) {
    platform::ScopedLock hold(lock_);
    steps_left_ = steps;
  }
  std::uint64_t opens() {
    platform::ScopedLock hold(lock_);
    return opens_;
  }

  std::unique_ptr<platform::File> Open(platform::WidePathView path,
                                       platform::OpenFlags flags) override {
    using platform::OpenFlags;
    platform::ScopedLock hold(lock_);
    if (++opens_ == failing_open_) return nullptr;
    const bool write = Has(flags, OpenFlags::kWrite);
    auto entry = nodes_.find(Normal(path));
    std::shared_ptr<Node> node;
    if (entry != nodes_.end()) {
      node = entry->second;
      if (node->kind == Kind::kUnopenable || (write && node->kind == Kind::kDirectory))
        return nullptr;
      if (write && Has(flags, OpenFlags::kTruncate) && TakeSteps(1) == 1) node->bytes.clear();
    } else {
      if (!write) return nullptr;
      node = std::make_shared<Node>();
      if (TakeSteps(1) == 1) nodes_[Normal(path)] = node;
    }
    const bool at_end = Has(flags, OpenFlags::kAtEnd);
    return std::make_unique<MemoryFile>(*this, node, flags, at_end ? node->bytes.size() : 0);
  }
  bool Exists(platform::WidePathView path) override {
    platform::ScopedLock hold(lock_);
    return nodes_.count(Normal(path)) != 0;
  }
  bool Remove(platform::WidePathView path) override {
    platform::ScopedLock hold(lock_);
    const auto entry = nodes_.find(Normal(path));
    if (removals_fail_ || entry == nodes_.end() || entry->second->kind == Kind::kDirectory)
      return false;
    if (TakeSteps(1) == 1) nodes_.erase(entry);
    return true;
  }

 private:
  enum class Kind { kFile, kDirectory, kUnopenable };
  struct Node {
    Kind kind = Kind::kFile;
    std::string bytes;
  };
  static constexpr std::uint64_t kEndless = std::numeric_limits<std::uint64_t>::max();
  static constexpr std::uint64_t kDirectorySize = 4096;

  class MemoryFile final : public platform::File {
   public:
    MemoryFile(MemoryFileSystem& system, std::shared_ptr<Node> node, platform::OpenFlags flags,
               std::size_t position)
        : system_(system), node_(std::move(node)), flags_(flags), position_(position) {}

    std::size_t Read(void* buffer, std::size_t length) override {
      if (!Has(flags_, platform::OpenFlags::kRead)) return 0;
      return system_.ReadNode(*node_, position_, buffer, length);
    }
    std::size_t Write(const void* buffer, std::size_t length) override {
      if (!Has(flags_, platform::OpenFlags::kWrite)) return 0;
      const bool append = Has(flags_, platform::OpenFlags::kAppend);
      return system_.WriteNode(*node_, append, position_,
                               {static_cast<const char*>(buffer), length});
    }
    std::optional<std::uint64_t> Size() override { return system_.SizeOf(*node_); }

   private:
    MemoryFileSystem& system_;
    const std::shared_ptr<Node> node_;
    const platform::OpenFlags flags_;
    std::size_t position_;
  };

  static platform::WidePath Normal(platform::WidePathView path) {
    platform::WidePath normal(path);
    std::replace(normal.begin(), normal.end(), u'\\', u'/');
    return normal;
  }

  Node& MakeNode(platform::WidePathView path, Kind kind) REQUIRES(lock_) {
    std::shared_ptr<Node>& node = nodes_[Normal(path)];
    node = std::make_shared<Node>();
    node->kind = kind;
    return *node;
  }

  // How many of the steps still reach the disk.
  std::uint64_t TakeSteps(std::uint64_t count) REQUIRES(lock_) {
    steps_ += count;
    const std::uint64_t taken = std::min(count, steps_left_);
    if (steps_left_ != kEndless) steps_left_ -= taken;
    return taken;
  }

  std::size_t ReadNode(const Node& node, std::size_t& position, void* buffer, std::size_t length) {
    platform::ScopedLock hold(lock_);
    if (++reads_ == short_read_) length = std::min(length, short_read_bytes_);
    if (node.kind == Kind::kDirectory || position >= node.bytes.size()) return 0;
    length = std::min(length, node.bytes.size() - position);
    std::memcpy(buffer, node.bytes.data() + position, length);
    position += length;
    return length;
  }

  std::size_t WriteNode(Node& node, bool append, std::size_t& position, std::string_view bytes) {
    platform::ScopedLock hold(lock_);
    if (room_ != kEndless) {
      bytes =
          bytes.substr(0, static_cast<std::size_t>(std::min<std::uint64_t>(bytes.size(), room_)));
      room_ -= bytes.size();
    }
    const std::string_view kept =
        bytes.substr(0, static_cast<std::size_t>(TakeSteps(bytes.size())));
    if (append) position = node.bytes.size();
    if (!kept.empty()) {
      node.bytes.resize(std::max(node.bytes.size(), position + kept.size()));
      kept.copy(node.bytes.data() + position, kept.size());
    }
    position += bytes.size();
    return bytes.size();
  }

  std::optional<std::uint64_t> SizeOf(const Node& node) {
    platform::ScopedLock hold(lock_);
    if (sizes_fail_) return std::nullopt;
    return node.kind == Kind::kDirectory ? kDirectorySize : node.bytes.size();
  }

  platform::Lock lock_;
  std::map<platform::WidePath, std::shared_ptr<Node>> nodes_ GUARDED_BY(lock_);
  std::uint64_t opens_ GUARDED_BY(lock_) = 0;
  std::uint64_t failing_open_ GUARDED_BY(lock_) = 0;
  std::uint64_t reads_ GUARDED_BY(lock_) = 0;
  std::uint64_t short_read_ GUARDED_BY(lock_) = 0;
  std::size_t short_read_bytes_ GUARDED_BY(lock_) = 0;
  std::uint64_t room_ GUARDED_BY(lock_) = kEndless;
  std::uint64_t steps_ GUARDED_BY(lock_) = 0;
  std::uint64_t steps_left_ GUARDED_BY(lock_) = kEndless;
  bool removals_fail_ GUARDED_BY(lock_) = false;
  bool sizes_fail_ GUARDED_BY(lock_) = false;
};

}  // namespace valmere::test
