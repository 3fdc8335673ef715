#include "platform/posix/host_file.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "platform/posix/system_call.h"

namespace valmere::platform {
namespace {

// Calls until all is done, nothing more comes or an error ends it; returns the bytes moved.
template <class Step>
std::size_t MoveAll(std::size_t length, Step step) {
  std::size_t done = 0;
  while (done < length) {
    const ssize_t moved = Uninterrupted([&] { return step(done); });
    if (moved <= 0) break;
    done += static_cast<std::size_t>(moved);
  }
  return done;
}

}  // namespace

std::size_t HostFile::Read(void* buffer, std::size_t length) {
  return MoveAll(length, [&](std::size_t done) {
    return read(descriptor_.get(), static_cast<char*>(buffer) + done, length - done);
  });
}

std::size_t HostFile::Write(const void* buffer, std::size_t length) {
  const std::size_t count = MoveAll(length, [&](std::size_t done) {
    return write(descriptor_.get(), static_cast<const char*>(buffer) + done, length - done);
  });
  if (count == length) return count;
  // A file that was opened only for reading says nothing about the disk.
  if (errno != EBADF) Fail();
  return count;
}

std::optional<std::uint64_t> HostFile::Size() {
  struct stat status {};
  if (fstat(descriptor_.get(), &status) != 0) return std::nullopt;
  return static_cast<std::uint64_t>(status.st_size);
}

bool HostFile::Complete() {
  if (failed_) return false;
  Succeed();
  if (!LeaveForSync()) Uninterrupted([this] { return fsync(descriptor_.get()); });
  return true;
}

bool HostFile::CloseNow() {
  const WaitInKernel wait;
  // Not repeated on EINTR: Linux has given the number back by then.
  return close(descriptor_.Release()) == 0 || errno == EINTR;
}

}  // namespace valmere::platform
