// Each transfer is one call on the file, and a short one is not continued: the readers and writers
// of property files conclude from it that something is wrong.
#include "persist/file/file_stream.h"

#include <new>

namespace valmere {

FileStream::FileStream(platform::FileSystem& files, platform::WidePathView path,
                       platform::OpenFlags flags)
    : file_(files.Open(path, flags)) {}

int FileStream::Read(void* buffer, int length) {
  if (length <= 0 || !IsOpen()) return 0;
  return static_cast<int>(file_->Read(buffer, static_cast<std::size_t>(length)));
}

int FileStream::Write(const void* buffer, int length) {
  if (length <= 0 || !IsOpen()) return 0;
  return static_cast<int>(file_->Write(buffer, static_cast<std::size_t>(length)));
}

void FileStream::Close() {
  closed_.store(true, std::memory_order_release);
}

bool FileStream::IsOpen() const {
  return file_ != nullptr && !closed_.load(std::memory_order_acquire);
}

std::optional<std::uint64_t> FileStream::Size() {
  return IsOpen() ? file_->Size() : std::nullopt;
}

std::optional<std::string> FileStream::ReadWhole() {
  const std::optional<std::uint64_t> size = Size();
  if (!size || *size > kLargestWhole) return std::nullopt;
  try {
    std::string bytes(static_cast<std::size_t>(*size), '\0');
    if (!ReadAll(bytes.data(), bytes.size())) return std::nullopt;
    return bytes;
  } catch (const std::bad_alloc&) {
    return std::nullopt;
  }
}

bool FileStream::ReadAll(void* buffer, std::size_t length) {
  return IsOpen() && (length == 0 || file_->Read(buffer, length) == length);
}

bool FileStream::WriteAll(std::string_view bytes) {
  return IsOpen() && (bytes.empty() || file_->Write(bytes.data(), bytes.size()) == bytes.size());
}

bool FileStream::Complete() {
  return IsOpen() && file_->Complete();
}

}  // namespace valmere
