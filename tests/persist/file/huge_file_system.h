// A file one byte larger than any that is read whole.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>

#include "persist/file/file_stream.h"
#include "platform/files.h"

namespace valmere::test {

// Purpose: every path leads to a file that claims its size and grants every transfer.
// Owner: the test.
// Threads: one at a time.
// Errors: none; the opens for writing are counted.
class HugeFileSystem final : public platform::FileSystem {
 public:
  explicit HugeFileSystem(std::uint64_t size = FileStream::kLargestWhole + 1) : size_(size) {}

  std::unique_ptr<platform::File> Open(platform::WidePathView, platform::OpenFlags flags) override {
    struct Huge final : platform::File {
      explicit Huge(std::uint64_t size) : size_(size) {}
      std::size_t Read(void*, std::size_t length) override { return length; }
      std::size_t Write(const void*, std::size_t length) override { return length; }
      std::optional<std::uint64_t> Size() override { return size_; }
      const std::uint64_t size_;
    };
    if (Has(flags, platform::OpenFlags::kWrite)) ++opens_for_writing_;
    return std::make_unique<Huge>(size_);
  }
  bool Exists(platform::WidePathView) override { return true; }
  bool Remove(platform::WidePathView) override { return false; }
  int opens_for_writing() const { return opens_for_writing_; }

 private:
  const std::uint64_t size_;
  int opens_for_writing_ = 0;
};

}  // namespace valmere::test
