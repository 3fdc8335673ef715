#include "tools/propfile/propfile_storage.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "platform/posix/descriptor.h"
#include "platform/posix/write_all.h"

namespace valmere::tools {
namespace {

using platform::Descriptor;

Failure Refused(const std::string& doing, const std::string& path) {
  return {kExitRefused, doing + " " + path + ": " + std::strerror(errno)};
}

// The content must be on the disk before the name is: a power cut in between would leave an empty
// file otherwise.
bool Fill(int file, std::string_view bytes, const struct stat& old) {
  // Only root may give a file away; without that the new one is the user's own, as any editor's.
  if (fchown(file, old.st_uid, old.st_gid) != 0 && errno != EPERM) return false;
  return fchmod(file, old.st_mode & 07777) == 0 && platform::WriteAll(file, bytes) &&
         fsync(file) == 0;
}

// The folder's entries are on the disk too.
bool SyncFolderOf(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  const std::string folder = slash == std::string::npos ? "." : path.substr(0, slash + 1);
  const Descriptor opened(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  return opened.valid() && fsync(opened.get()) == 0;
}

// Where the file system can't refuse a name that is taken, it is looked for just before.
bool RenameToNew(const std::string& from, const std::string& to) {
  if (renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) return true;
  if (errno != EINVAL && errno != ENOSYS) return false;
  if (IsThere(to)) {
    errno = EEXIST;
    return false;
  }
  return std::rename(from.c_str(), to.c_str()) == 0;
}

enum class Name { kTaken, kFree };

// Writes a file beside `path`, with the mode and owner of `like`, that then takes its name.
std::optional<Failure> WriteBeside(const std::string& path, const struct stat& like,
                                   std::string_view bytes, Name name) {
  std::string temporary = path + ".XXXXXX";
  const Descriptor file(mkostemp(temporary.data(), O_CLOEXEC));
  if (!file.valid()) return Refused("cannot write beside", path);
  const bool filled = Fill(file.get(), bytes, like);
  const bool renamed =
      filled && (name == Name::kFree ? RenameToNew(temporary, path)
                                     : rename(temporary.c_str(), path.c_str()) == 0);
  if (!renamed) {
    const Failure failure = Refused("cannot write", path);
    unlink(temporary.c_str());
    return failure;
  }
  if (!SyncFolderOf(path)) return Refused("cannot bring to the disk the folder of", path);
  return std::nullopt;
}

}  // namespace

bool IsThere(const std::string& path) {
  struct stat status {};
  return lstat(path.c_str(), &status) == 0;
}

std::variant<std::string, Failure> ReadWholeFile(const std::string& path, std::size_t most) {
  const Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  struct stat status {};
  if (!file.valid() || fstat(file.get(), &status) != 0) return Refused("cannot read", path);
  if (!S_ISREG(status.st_mode)) return Failure{kExitRefused, path + " is no regular file"};
  std::string bytes;
  char buffer[65536];
  while (bytes.size() < most) {
    const ssize_t count = read(file.get(), buffer, std::min(sizeof buffer, most - bytes.size()));
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return Refused("cannot read", path);
    if (count == 0) break;
    bytes.append(buffer, static_cast<std::size_t>(count));
  }
  return bytes;
}

std::optional<Failure> ReplaceFile(const std::string& path, std::string_view bytes) {
  const std::unique_ptr<char, void (*)(void*)> real(realpath(path.c_str(), nullptr), std::free);
  struct stat old {};
  if (!real || stat(real.get(), &old) != 0) return Refused("cannot write", path);
  if (!S_ISREG(old.st_mode)) return Failure{kExitRefused, path + " is no regular file"};
  return WriteBeside(real.get(), old, bytes, Name::kTaken);
}

std::optional<Failure> CreateFile(const std::string& path, const std::string& like,
                                  std::string_view bytes) {
  struct stat status {};
  if (stat(like.c_str(), &status) != 0) return Refused("cannot read", like);
  // The owner is the user who makes it.
  status.st_uid = geteuid();
  status.st_gid = getegid();
  return WriteBeside(path, status, bytes, Name::kFree);
}

}  // namespace valmere::tools
