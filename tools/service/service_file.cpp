// The root is opened by its path each time, as the service does it: where the path leads elsewhere
// by now, what the old folder holds is nothing that a service will read.
#include "tools/service/service_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <utility>

#include "persist/file/file_stream.h"
#include "platform/wide_path.h"
#include "tools/process/environment.h"
#include "tools/propfile/propfile_text.h"
#include "tools/service/service_process.h"

namespace valmere::tools {
namespace {

using platform::Descriptor;

constexpr const char* kUsualRoot = "/var/lib/valmere";
// More than a tick of any kernel's clock.
constexpr long kYoungNanoseconds = 20'000'000;

bool SameTime(const timespec& one, const timespec& other) {
  return one.tv_sec == other.tv_sec && one.tv_nsec == other.tv_nsec;
}

FileVersion VersionOf(const struct stat& status) {
  return {status.st_dev, status.st_ino, status.st_size, status.st_mtim, status.st_ctim};
}

// The names from the root down, as the service finds them; none when the path can't be a file's.
std::vector<std::string> SplitDevicePath(std::string_view path) {
  const platform::WidePath wide = platform::WidenPath(path);
  // Bytes that aren't UTF-8 are others in the service's file names, and so they are here.
  const std::string normal = platform::NarrowPath(platform::NormalPath(wide));
  const bool device = normal.ends_with(':');
  std::vector<std::string> names;
  if (device || wide.find(u'\0') != platform::WidePath::npos) return names;
  for (std::size_t slash = 0; slash < normal.size();) {
    const std::size_t end = std::min(normal.find('/', slash + 1), normal.size());
    names.push_back(normal.substr(slash + 1, end - slash - 1));
    slash = end;
  }
  return names;
}

// As much of the file as the service would read; nothing when it can't be read, or is longer.
std::optional<std::string> ReadAtMostWhole(int file, std::size_t size) {
  if (size > FileStream::kLargestWhole) return std::nullopt;
  std::string bytes(size, '\0');
  std::size_t done = 0;
  while (done < size) {
    const ssize_t count = read(file, bytes.data() + done, size - done);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return std::nullopt;  // shorter by now
    done += static_cast<std::size_t>(count);
  }
  return bytes;
}

void TakeValues(const std::string& bytes, FileLook& look) {
  const PropfileText text = ReadPropfileText(bytes);
  look.sound = text.crc_is_good() && !text.body.empty();
  if (!look.sound) return;
  for (const PropfileLine& line : text.lines)
    if (line.fault.empty()) look.values[line.key] = line.value;
}

// Some file systems can't sync a folder, and say so.
bool SyncFolder(int folder) {
  return fsync(folder) == 0 || errno == EINVAL;
}

}  // namespace

bool FileVersion::operator==(const FileVersion& other) const {
  return device == other.device && number == other.number && size == other.size &&
         SameTime(written, other.written) && SameTime(changed, other.changed);
}

bool FileVersion::IsYoung() const {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  const double age = std::difftime(now.tv_sec, changed.tv_sec) * 1e9 +
                     static_cast<double>(now.tv_nsec - changed.tv_nsec);
  return age < static_cast<double>(kYoungNanoseconds);
}

ServiceFile::ServiceFile(std::string root, std::vector<std::string> path)
    : root_(std::move(root)), path_(std::move(path)), name_(root_) {
  for (const std::string& name : path_) {
    if (!name_.ends_with('/')) name_ += '/';
    name_ += name;
  }
}

std::variant<ServiceFile, Failure> ServiceFile::Find(const std::optional<std::string>& root,
                                                     const std::string& socket,
                                                     std::string_view path) {
  const std::vector<std::string> names = SplitDevicePath(path);
  if (names.empty())
    return Failure{kExitRefused, "the service's property file, \"" + std::string(path) +
                                     "\", is no file below its root"};
  std::string place = root.value_or(Variable("VALMERE_ROOT"));
  if (place.empty()) {
    // The process may be a service manager that listens on the service's behalf.
    place = WorkingFolderOfListener(socket);
    if (!place.empty() && !ServiceFile(place, names).OpenFolder().valid()) place.clear();
  }
  if (place.empty()) place = kUsualRoot;
  ServiceFile file(place, names);
  if (!file.OpenFolder().valid()) return file.Unreadable(errno);
  return file;
}

Descriptor ServiceFile::OpenFolder() const {
  constexpr int kFlags = O_PATH | O_DIRECTORY | O_CLOEXEC;
  Descriptor folder(open(root_.c_str(), kFlags));
  for (std::size_t i = 0; i + 1 < path_.size() && folder.valid(); ++i)
    folder = Descriptor(openat(folder.get(), path_[i].c_str(), kFlags | O_NOFOLLOW));
  if (!folder.valid()) return folder;
  return Descriptor(openat(folder.get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
}

Failure ServiceFile::Unreadable(int error) const {
  return {kExitRefused, "cannot look at the service's property file " + name_ + ": " +
                            std::strerror(error) + "; name the service's root with --root"};
}

std::variant<FileLook, Failure> ServiceFile::Look() const {
  FileLook look;
  look.folder = OpenFolder();
  if (!look.folder.valid()) return Unreadable(errno);
  look.file = Descriptor(openat(look.folder.get(), path_.back().c_str(),
                                O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  if (!look.file.valid() && errno == ENOENT) return look;
  struct stat status {};
  if (!look.file.valid() || fstat(look.file.get(), &status) != 0) return Unreadable(errno);
  if (!S_ISREG(status.st_mode))
    return Failure{kExitRefused,
                   name_ + " is no regular file; name the service's root with --root"};
  look.version = VersionOf(status);
  const auto bytes = ReadAtMostWhole(look.file.get(), static_cast<std::size_t>(status.st_size));
  if (bytes) TakeValues(*bytes, look);
  return look;
}

std::optional<Failure> ServiceFile::Sync(const FileLook& look) const {
  if (fsync(look.file.get()) == 0 && SyncFolder(look.folder.get())) return std::nullopt;
  return Failure{kExitRefused, "cannot bring " + name_ + " to the disk: " + std::strerror(errno)};
}

bool ServiceFile::IsCurrent(const FileLook& look) const {
  struct stat status {};
  return look.version &&
         fstatat(look.folder.get(), path_.back().c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
         status.st_dev == look.version->device && status.st_ino == look.version->number;
}

}  // namespace valmere::tools
