#include "platform/posix/bounded_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "platform/posix/system_call.h"

namespace valmere::platform {

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
  if (size_ > most_ - length && !BeginAnew()) {
    Fail();
    return 0;
  }
  const std::size_t count = HostFile::Write(buffer, length);
  size_ += count;
  if (count == length) Succeed();
  return count;
}

// Without a new one the old one stays open, and the next line is the next try.
bool BoundedFile::BeginAnew() {
  struct stat old {};
  if (fstat(descriptor().get(), &old) != 0) return false;
  if (Uninterrupted([this] {
        return renameat(place_.folder.get(), place_.name.c_str(), place_.folder.get(),
                        older_name_.c_str());
      }) != 0 &&
      errno != ENOENT)
    return false;
  Descriptor file =
      OpenAt(place_.folder.get(), place_.name.c_str(),
             O_WRONLY | O_APPEND | O_CREAT | O_EXCL | O_NOFOLLOW | O_NOCTTY, old.st_mode & 0777);
  if (!file.valid()) return false;
  // Where another's file was written, this one is ours, as its mode says.
  if (fchown(file.get(), old.st_uid, old.st_gid) == 0) fchmod(file.get(), old.st_mode & 07777);
  Adopt(std::move(file));
  size_ = 0;
  return true;
}

}  // namespace valmere::platform
