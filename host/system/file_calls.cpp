// Other programs may write into a root, so no name in it is trusted to be what it says.
#include "host/system/file_calls.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

#include "platform/posix/write_all.h"

namespace valmere::host {
namespace {

platform::Descriptor Open(int folder, const char* name, int flags, unsigned mode = 0) {
  int number = -1;
  do {
    number = openat(folder, name, flags | O_NOFOLLOW | O_NOCTTY | O_CLOEXEC, mode);
  } while (number < 0 && errno == EINTR);
  if (number < 0) ThrowSystemError(errno);
  return platform::Descriptor(number);
}

}  // namespace

void ThrowSystemError(int error) {
  throw std::system_error(error, std::generic_category());
}

platform::Descriptor OpenFolder(int parent, const char* name) {
  return Open(parent, name, O_RDONLY | O_DIRECTORY);
}

platform::Descriptor OpenFile(int folder, const char* name, int flags) {
  platform::Descriptor file = Open(folder, name, flags | O_NONBLOCK);
  struct stat status {};
  if (fstat(file.get(), &status) != 0) ThrowSystemError(errno);
  if (S_ISDIR(status.st_mode)) ThrowSystemError(EISDIR);
  if (!S_ISREG(status.st_mode)) ThrowSystemError(EINVAL);
  return file;
}

platform::Descriptor MakeFile(int folder, const char* name, unsigned mode) {
  return Open(folder, name, O_WRONLY | O_CREAT | O_EXCL, mode);
}

void WriteAll(int file, std::string_view bytes) {
  if (!platform::WriteAll(file, bytes)) ThrowSystemError(errno);
}

void Sync(int descriptor) {
  while (fsync(descriptor) != 0) {
    if (errno == EINVAL || errno == ENOTSUP) return;
    if (errno != EINTR) ThrowSystemError(errno);
  }
}

// The root is this process's alone, so its number is enough. In a container each start may have the
// same number; a leftover with it is removed before the next file is made.
std::string UnfinishedName() {
  return ".valmere-" + std::to_string(getpid()) + "-0.new";
}

}  // namespace valmere::host
