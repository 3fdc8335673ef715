// What the tests of files share, those for every system and those for one.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <string_view>

#include "platform/files.h"
#include "tests/platform/device_root.h"

namespace valmere::test {
using namespace platform;

inline constexpr OpenFlags kRead = OpenFlags::kRead;
inline constexpr OpenFlags kWrite = OpenFlags::kWrite;

class DeviceFiles : public ::testing::Test {
 protected:
  std::unique_ptr<File> Open(WidePathView path, OpenFlags flags) {
    return files_->Open(path, flags);
  }
  // What a read of the whole file gives; "(null)" when it can't be opened.
  std::string Read(WidePathView path) {
    const std::unique_ptr<File> file = Open(path, kRead);
    if (!file) return "(null)";
    std::string bytes(static_cast<std::size_t>(file->Size().value_or(0)), '\0');
    bytes.resize(file->Read(bytes.data(), bytes.size()));
    return bytes;
  }
  static std::size_t Write(const std::unique_ptr<File>& file, std::string_view bytes) {
    return file ? file->Write(bytes.data(), bytes.size()) : 0;
  }

  test::DeviceRoot root_;
  std::shared_ptr<FileSystem> files_ = MakeDeviceFileSystem();
};

}  // namespace valmere::test
