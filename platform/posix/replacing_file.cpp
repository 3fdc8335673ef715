// A file that is being written is locked, and a lock ends with its process, however that ends: so a
// leftover can be told from a file that another process, or another thread, is writing.
#include "platform/posix/replacing_file.h"

#include <dirent.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <iterator>
#include <string_view>
#include <utility>

#include "platform/posix/folder.h"
#include "platform/posix/system_call.h"

namespace valmere::platform {
namespace {

constexpr std::string_view kPrefix = ".valmere-";
constexpr std::string_view kSuffix = ".new";
constexpr mode_t kPrivateMode = 0600;  // until it has the old one's owner
constexpr int kMostNames = 100;

// Short whatever the file is called, so that there is room for it where the other name has room.
std::string NextSideName() {
  static std::atomic<std::uint32_t> last{0};
  return std::string(kPrefix) + std::to_string(getpid()) + "-" + std::to_string(++last) +
         std::string(kSuffix);
}

bool IsSideName(std::string_view name) {
  return name.size() > kPrefix.size() + kSuffix.size() && name.starts_with(kPrefix) &&
         name.ends_with(kSuffix);
}

bool LockIsFree(const Descriptor& file) {
  return file.valid() && Uninterrupted([&] { return flock(file.get(), LOCK_EX | LOCK_NB); }) == 0;
}

void Remove(const Descriptor& folder, const std::string& name) {
  Uninterrupted([&] { return unlinkat(folder.get(), name.c_str(), 0); });
}

// A sandbox that is older than the call refuses it; then a later call shows whether the file can be
// replaced.
bool MayWrite(const Place& place) {
  constexpr int kOfTheFileItself = AT_EACCESS | AT_SYMLINK_NOFOLLOW;
  return Uninterrupted([&] {
           return faccessat(place.folder.get(), place.name.c_str(), W_OK, kOfTheFileItself);
         }) == 0 ||
         errno == EPERM;
}

// The rights of the folder, or of the old file, allow no more than writing into it.
bool IsForbidden(int error) {
  return error == EACCES || error == EPERM;
}

}  // namespace

ReplacingFile::~ReplacingFile() {
  if (!side_name_.empty()) Remove(place_.folder, side_name_);
}

bool ReplacingFile::Old::IsSameFile(const Old& other) const {
  return exists == other.exists && std::equal(device, std::end(device), other.device) &&
         number == other.number && std::equal(changed, std::end(changed), other.changed);
}

std::optional<ReplacingFile::Old> ReplacingFile::LookAt(const Place& place) {
  struct statx status {};
  if (Uninterrupted([&] {
        return statx(place.folder.get(), place.name.c_str(), AT_SYMLINK_NOFOLLOW, STATX_BASIC_STATS,
                     &status);
      }) != 0)
    return errno == ENOENT ? std::optional<Old>(Old()) : std::nullopt;
  if (!S_ISREG(status.stx_mode)) {
    errno = S_ISLNK(status.stx_mode) ? ELOOP : EINVAL;
    return std::nullopt;
  }
  return Old{true,
             {status.stx_dev_major, status.stx_dev_minor},
             status.stx_ino,
             {status.stx_ctime.tv_sec, status.stx_ctime.tv_nsec},
             status.stx_mode,
             status.stx_uid,
             status.stx_gid,
             (status.stx_attributes & STATX_ATTR_MOUNT_ROOT) != 0};
}

// Private at first where it will get another owner.
mode_t ReplacingFile::FirstMode(const Old& old) {
  if (!old.exists) return kNewFileMode;
  const bool ours = old.user == geteuid() && old.group == getegid();
  return ours ? old.mode & kRights : kPrivateMode;
}

// Mode after owner: a change of owner takes mode bits away.
bool ReplacingFile::CopyOwnerAndMode(const Descriptor& file, const Old& old) {
  struct stat status {};
  if (fstat(file.get(), &status) != 0) return false;
  if ((status.st_uid != old.user || status.st_gid != old.group) &&
      Uninterrupted([&] { return fchown(file.get(), old.user, old.group); }) != 0)
    return false;
  if ((status.st_mode & kRights) == (old.mode & kRights)) return true;
  return Uninterrupted([&] { return fchmod(file.get(), old.mode & kRights); }) == 0;
}

// A process that may not write the old file may not replace it either. Where the folder belongs to
// another user, or the file is mounted there, we may write the file but not replace its name.
ReplacingFile::Begun ReplacingFile::Begin(Place& place, bool readable) {
  const std::optional<Old> old = LookAt(place);
  if (!old || (old->exists && !MayWrite(place))) return Begun::kNo;
  if (old->is_mount_point) return Begun::kNotPossible;
  const bool made = MakeBeside(place.folder, readable, FirstMode(*old));
  if (!made || (old->exists && !CopyOwnerAndMode(descriptor(), *old))) {
    const int error = errno;
    if (made) Remove(place.folder, std::exchange(side_name_, {}));
    Adopt({});  // there may be no other descriptor for a file that is written in place
    errno = error;
    return IsForbidden(error) && old->exists ? Begun::kNotPossible : Begun::kNo;
  }
  place_ = std::move(place);
  old_ = *old;
  return Begun::kYes;
}

// The number of a process that was killed may be ours by now.
bool ReplacingFile::MakeBeside(const Descriptor& folder, bool readable, mode_t mode) {
  const int flags = (readable ? O_RDWR : O_WRONLY) | O_CREAT | O_EXCL | O_NOFOLLOW;
  std::string name;
  Descriptor file;
  for (int tries = 0; !file.valid(); ++tries) {
    if (tries > 0 && (errno != EEXIST || tries == kMostNames)) return false;
    name = NextSideName();
    file = OpenAt(folder.get(), name.c_str(), flags, mode);
  }
  side_name_ = std::move(name);
  // A process that clears leftovers at this very moment may remove it: Complete fails then.
  LockIsFree(file);
  Adopt(std::move(file));
  return true;
}

bool ReplacingFile::Complete() {
  if (failed()) return false;
  if (!CloseNow()) {
    Fail();
    return false;
  }
  const std::optional<Old> now = LookAt(place_);
  if (!now || !now->IsSameFile(old_)) return false;
  if (Uninterrupted([this] {
        return renameat(place_.folder.get(), side_name_.c_str(), place_.folder.get(),
                        place_.name.c_str());
      }) != 0) {
    Fail();
    return false;
  }
  side_name_.clear();
  Succeed();
  if (!LeaveForSync()) SyncToDisk(place_);
  return true;
}

void ClearLeftovers(const Descriptor& folder) noexcept {
  Descriptor listed = OpenAt(folder.get(), ".", O_RDONLY | O_DIRECTORY);
  DIR* const entries = listed.valid() ? fdopendir(listed.get()) : nullptr;
  if (entries == nullptr) return;
  listed.Release();
  // NOLINTNEXTLINE(concurrency-mt-unsafe): no other thread reads these entries
  while (const dirent* entry = readdir(entries)) {
    if (!IsSideName(entry->d_name)) continue;
    const Descriptor file =
        OpenAt(folder.get(), entry->d_name, O_WRONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY);
    if (LockIsFree(file)) Remove(folder, entry->d_name);
  }
  closedir(entries);
}

}  // namespace valmere::platform
