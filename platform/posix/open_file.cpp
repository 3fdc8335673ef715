// Objects are made before files are: a file that is emptied, or made, and then not opened for lack
// of memory would be lost.
#include "platform/posix/open_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <optional>
#include <utility>

#include "platform/posix/bounded_file.h"
#include "platform/posix/host_file.h"
#include "platform/posix/replacing_file.h"
#include "platform/posix/system_call.h"

namespace valmere::platform {
namespace {

// The flags of open(2); nothing when the combination makes no sense. The first position is the
// File's own business, and a file is emptied only when it is known to be one.
std::optional<int> SystemFlags(OpenFlags flags) {
  const bool read = Has(flags, OpenFlags::kRead);
  const bool append = Has(flags, OpenFlags::kAppend);
  const bool truncate = Has(flags, OpenFlags::kTruncate);
  const bool write = Has(flags, OpenFlags::kWrite) || append;
  if (!write) return read && !truncate ? std::optional<int>(O_RDONLY) : std::nullopt;
  int system = read ? O_RDWR : O_WRONLY;
  if (!read || append || truncate) system |= O_CREAT;
  if (append) system |= O_APPEND;
  return system;
}

// Opening must not wait for the other end of a pipe that lies in the tree.
Descriptor OpenEntry(const Place& place, int system) {
  return OpenAt(place.folder.get(), place.name.c_str(),
                system | O_NOFOLLOW | O_NOCTTY | O_NONBLOCK);
}

Descriptor OpenRegular(const Place& place, int system) {
  Descriptor file = OpenEntry(place, system);
  struct stat status {};
  if (!file.valid() || fstat(file.get(), &status) != 0) return {};
  if (S_ISREG(status.st_mode)) return file;
  errno = EINVAL;
  return {};
}

std::unique_ptr<File> Replace(Place place, FileMatters matters, int system) {
  auto replacing = std::make_unique<ReplacingFile>(matters.path, matters.ledger);
  auto in_place = std::make_unique<HostFile>(matters.path, std::move(matters.ledger));
  switch (replacing->Begin(place, (system & O_ACCMODE) == O_RDWR)) {
    case ReplacingFile::Begun::kYes:
      return replacing;
    case ReplacingFile::Begun::kNo:
      return nullptr;
    case ReplacingFile::Begun::kNotPossible:
      break;
  }
  Descriptor file = OpenRegular(place, system & ~O_CREAT);
  if (!file.valid() || ftruncate(file.get(), 0) != 0) return nullptr;
  in_place->Adopt(std::move(file));
  return in_place;
}

std::unique_ptr<File> OpenBounded(Place place, FileMatters matters, int system) {
  auto opened =
      std::make_unique<BoundedFile>(matters.path, std::move(matters.ledger), matters.max_log);
  Descriptor file = OpenRegular(place, system);
  if (!file.valid() || !opened->Begin(std::move(place), std::move(file))) return nullptr;
  return opened;
}

}  // namespace

std::unique_ptr<File> OpenFile(Place place, FileMatters matters, OpenFlags flags) {
  const std::optional<int> system = SystemFlags(flags);
  if (!system) {
    errno = 0;
    return nullptr;
  }
  if (Has(flags, OpenFlags::kTruncate))
    return Replace(std::move(place), std::move(matters), *system);
  if (Has(flags, OpenFlags::kBounded))
    return OpenBounded(std::move(place), std::move(matters), *system);
  auto opened = std::make_unique<HostFile>(matters.path, std::move(matters.ledger));
  Descriptor file = OpenRegular(place, *system);
  if (!file.valid()) return nullptr;
  if (Has(flags, OpenFlags::kAtEnd)) lseek(file.get(), 0, SEEK_END);
  opened->Adopt(std::move(file));
  return opened;
}

}  // namespace valmere::platform
