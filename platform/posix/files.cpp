// The device's files under one folder of the host. A path is first taken apart as text, which deals
// with separators and ".."; then each folder is opened inside the one before it without following
// symbolic links. No link is followed below the root, so none can lead out of it, whatever another
// process does to the tree meanwhile.
#include "platform/files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/posix/current_thread.h"
#include "platform/posix/descriptor.h"

namespace valmere::platform {
namespace {

constexpr const char* kRootVariable = "VALMERE_ROOT";
constexpr const char* kDefaultRoot = "/var/lib/valmere";
constexpr mode_t kNewFileMode = 0644;

// Asks again for as long as a signal breaks the call, which may hang with the file system that it
// goes to.
template <class Call>
auto Uninterrupted(Call call) {
  const WaitInKernel wait;
  auto result = call();
  while (result < 0 && errno == EINTR)
    result = call();
  return result;
}

// Errors that say nothing of the file.
bool IsShortage(int error) {
  return error == EMFILE || error == ENFILE || error == ENOMEM || error == EIO;
}

Descriptor OpenAt(int folder, const char* name, int flags) {
  return Descriptor(
      Uninterrupted([&] { return openat(folder, name, flags | O_CLOEXEC, kNewFileMode); }));
}

// A path below the root, without anything that could lead out of it: the names from the top down.
// An empty list is the root itself.
using Names = std::vector<std::string>;

std::optional<Names> SplitPath(WidePathView path) {
  if (path.find(u'\0') != WidePathView::npos) return std::nullopt;
  Names names;
  while (!path.empty()) {
    const std::size_t end = std::min(path.find_first_of(u"/\\"), path.size());
    const WidePathView name = path.substr(0, end);
    path.remove_prefix(std::min(end + 1, path.size()));
    if (name.empty() || name == u".") continue;
    if (name != u"..") {
      names.push_back(NarrowPath(name));
    } else if (!names.empty()) {
      names.pop_back();
    }
  }
  return names;
}

bool NamesDevice(const Names& names) {
  return !names.empty() && names.back().back() == ':';
}

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

class HostFile final : public File {
 public:
  // Empty until it is given its descriptor, once.
  void Adopt(Descriptor descriptor) { descriptor_ = std::move(descriptor); }

  std::size_t Read(void* buffer, std::size_t length) override {
    return Transfer(length, [&](std::size_t done) {
      return read(descriptor_.get(), static_cast<char*>(buffer) + done, length - done);
    });
  }
  std::size_t Write(const void* buffer, std::size_t length) override {
    return Transfer(length, [&](std::size_t done) {
      return write(descriptor_.get(), static_cast<const char*>(buffer) + done, length - done);
    });
  }
  std::optional<std::uint64_t> Size() override {
    struct stat status {};
    if (fstat(descriptor_.get(), &status) != 0) return std::nullopt;
    return static_cast<std::uint64_t>(status.st_size);
  }

 private:
  // Calls until all is done, nothing more comes or an error ends it; the bytes moved until then.
  template <class Step>
  static std::size_t Transfer(std::size_t length, Step step) {
    std::size_t done = 0;
    while (done < length) {
      const ssize_t moved = Uninterrupted([&] { return step(done); });
      if (moved <= 0) break;
      done += static_cast<std::size_t>(moved);
    }
    return done;
  }

  Descriptor descriptor_;
};

// Purpose: the files below one folder of the host; no path leads out of it.
// Owner: the service, shared with all that open files.
// Threads: any; nothing changes after construction.
// Errors: what can't be reached can't be opened.
class HostFileSystem final : public FileSystem {
 public:
  explicit HostFileSystem(std::string root) : root_(std::move(root)) {}

  std::unique_ptr<File> Open(WidePathView path, OpenFlags flags) override {
    const std::optional<int> system = SystemFlags(flags);
    const std::optional<Place> place = Find(path);
    if (!system || !place) return nullptr;
    // Made first: a file that is emptied and then not opened, for want of memory, would be lost.
    auto opened = std::make_unique<HostFile>();
    // Opening must not wait for the other end of a pipe that somebody put there.
    Descriptor file = OpenAt(place->folder.get(), place->name.c_str(),
                             *system | O_NOFOLLOW | O_NOCTTY | O_NONBLOCK);
    struct stat status {};
    if (!file.valid() || fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode))
      return nullptr;
    if (Has(flags, OpenFlags::kTruncate) && ftruncate(file.get(), 0) != 0) return nullptr;
    if (Has(flags, OpenFlags::kAtEnd)) lseek(file.get(), 0, SEEK_END);
    opened->Adopt(std::move(file));
    return opened;
  }

  bool Exists(WidePathView path) override {
    errno = 0;
    const std::optional<Place> place = Find(path);
    struct stat status {};
    if (!place ||
        fstatat(place->folder.get(), place->name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0)
      return IsShortage(errno);
    return S_ISREG(status.st_mode) || S_ISDIR(status.st_mode);
  }

  bool Remove(WidePathView path) override {
    const std::optional<Place> place = Find(path);
    return place && unlinkat(place->folder.get(), place->name.c_str(), 0) == 0;
  }

 private:
  // A folder below the root, held open, and a name in it.
  struct Place {
    Descriptor folder;
    std::string name;
  };

  // Nothing when a folder on the way is missing or the path names a device.
  std::optional<Place> Find(WidePathView path) const {
    std::optional<Names> names = SplitPath(path);
    if (!names || NamesDevice(*names)) return std::nullopt;
    if (names->empty()) names->push_back(".");
    Descriptor folder = OpenAt(AT_FDCWD, root_.c_str(), O_PATH | O_DIRECTORY);
    for (std::size_t i = 0; i + 1 < names->size() && folder.valid(); ++i)
      folder = OpenAt(folder.get(), (*names)[i].c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW);
    if (!folder.valid()) return std::nullopt;
    return Place{std::move(folder), std::move(names->back())};
  }

  const std::string root_;
};

}  // namespace

std::shared_ptr<FileSystem> MakeDeviceFileSystem() {
  // The environment changes while a host starts, before it loads the library, and not after.
  const char* root = std::getenv(kRootVariable);  // NOLINT(concurrency-mt-unsafe)
  if (root == nullptr || *root == '\0') root = kDefaultRoot;
  return std::make_shared<HostFileSystem>(root);
}

}  // namespace valmere::platform
