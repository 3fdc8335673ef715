// A file can be synced by any descriptor, also one that can only read; the one that it was written
// by need not be kept.
#include "platform/posix/folder.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "platform/posix/system_call.h"

namespace valmere::platform {
namespace {

bool Sync(const Descriptor& file) {
  return file.valid() && Uninterrupted([&] { return fsync(file.get()); }) == 0;
}

}  // namespace

bool SyncToDisk(const Place& place) noexcept {
  constexpr int kNoHarm = O_NOFOLLOW | O_NOCTTY | O_NONBLOCK;
  Descriptor file = OpenAt(place.folder.get(), place.name.c_str(), O_RDONLY | kNoHarm);
  // The file may be writable but not readable.
  if (!file.valid() && errno == EACCES)
    file = OpenAt(place.folder.get(), place.name.c_str(), O_WRONLY | kNoHarm);
  if (!file.valid()) return errno == ENOENT;
  if (!Sync(file)) return false;
  file = {};  // there may be no third descriptor
  // Some file systems can't sync a folder, and need not.
  return Sync(OpenAt(place.folder.get(), ".", O_RDONLY | O_DIRECTORY)) || errno == EINVAL ||
         errno == ENOTSUP;
}

}  // namespace valmere::platform
