#include "platform/posix/bounded_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "platform/posix/system_call.h"

namespace valmere::platform {
namespace {

// Where the old file belongs to another user, the new one may have to stay ours.
void CopyOwnerAndMode(const Descriptor& file, const struct stat& status, const struct stat& old) {
  const bool has_owner = status.st_uid == old.st_uid && status.st_gid == old.st_gid;
  if (has_owner || fchown(file.get(), old.st_uid, old.st_gid) == 0)
    fchmod(file.get(), old.st_mode & kRights);
}

}  // namespace

bool BoundedFile::Begin(Place place, Descriptor file) {
  place_ = std::move(place);
  older_name_ = place_.name + ".1";
  Adopt(std::move(file));
  const auto size = Size();
  size_ = size.value_or(0);
  return size.has_value();
}

std::size_t BoundedFile::Write(const void* buffer, std::size_t length) {
  if (length > most_) return 0;
  // The file that is there now may be one that another has begun and filled.
  for (int tries = 0; size_ > most_ - length; ++tries) {
    if (tries < 2 && BeginAnew()) continue;
    Fail();
    return 0;
  }
  const std::size_t count = HostFile::Write(buffer, length);
  size_ += count;
  if (count == length) Succeed();
  return count;
}

// Without a new file the old one stays open, and the next line tries again.
bool BoundedFile::BeginAnew() {
  struct stat old {};
  if (fstat(descriptor().get(), &old) != 0 || (IsStillThere(old) && !PutAside())) return false;
  Descriptor file = OpenAt(place_.folder.get(), place_.name.c_str(),
                           O_WRONLY | O_APPEND | O_CREAT | O_NOFOLLOW | O_NOCTTY | O_NONBLOCK,
                           old.st_mode & kRights);
  struct stat status {};
  if (!file.valid() || fstat(file.get(), &status) != 0) return false;
  if (!S_ISREG(status.st_mode)) {
    errno = EINVAL;
    return false;
  }
  if (status.st_size == 0) CopyOwnerAndMode(file, status, old);
  Adopt(std::move(file));
  size_ = static_cast<std::uint64_t>(status.st_size);
  return true;
}

// Not there any more if another service, or an administrator, has moved it already.
bool BoundedFile::IsStillThere(const struct stat& file) const {
  struct stat status {};
  return fstatat(place_.folder.get(), place_.name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
         status.st_dev == file.st_dev && status.st_ino == file.st_ino;
}

bool BoundedFile::PutAside() {
  return Uninterrupted([this] {
           return renameat(place_.folder.get(), place_.name.c_str(), place_.folder.get(),
                           older_name_.c_str());
         }) == 0;
}

}  // namespace valmere::platform
