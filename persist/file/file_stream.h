// A file or a device as a byte stream.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "net/connection.h"
#include "platform/files.h"

namespace valmere {

// Purpose: the connection over a file; the bytes are moved as they stand.
// Owner: its opener. The file is closed when the object is destroyed, not by Close, so that no
//   transfer runs on a file that is closed already.
// Threads: transfers by one thread at a time; Close and IsOpen by any.
// Errors: a file that can't be opened gives a stream that transfers nothing: counts of 0.
class FileStream final : public Connection {
 public:
  // Larger files are not read whole. The service's own files have some kilobytes; but a client may
  // name any file as the property file, and reading, checking and writing one can't be interrupted.
  static constexpr std::uint64_t kLargestWhole = std::uint64_t{16} << 20;

  FileStream(platform::FileSystem& files, platform::WidePathView path, platform::OpenFlags flags);

  // The count; 0 at the end, on an error and once closed.
  int Read(void* buffer, int length) override;
  int Write(const void* buffer, int length) override;
  void Close() override;
  bool IsOpen() const override;

  // The file's size in bytes; nothing when it isn't open or its size can't be read.
  std::optional<std::uint64_t> Size();
  // All of the file: its size is read first, then that many bytes. Nothing when it isn't open, when
  // its size can't be read, when fewer bytes come, or when it is too large for the memory.
  std::optional<std::string> ReadWhole();
  // True when all `length` bytes were transferred.
  bool ReadAll(void* buffer, std::size_t length);
  bool WriteAll(std::string_view bytes);
  // Call it when all is written. True when that is the file's content now.
  bool Complete();

 private:
  const std::unique_ptr<platform::File> file_;
  std::atomic<bool> closed_{false};
};

}  // namespace valmere
