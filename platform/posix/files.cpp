// The device's files under one folder of the host. A path is first taken apart as text, which deals
// with separators and ".."; then each folder is opened inside the one before it without following
// symbolic links. No link is followed below the root, so no link can lead out of it, whatever
// another process does to the tree meanwhile.
#include "platform/files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/kernel.h"
#include "platform/posix/folder.h"
#include "platform/posix/open_file.h"
#include "platform/posix/replacing_file.h"
#include "platform/posix/system_call.h"
#include "platform/posix/write_ledger.h"

namespace valmere::platform {
namespace {

constexpr const char* kRootVariable = "VALMERE_ROOT";
constexpr const char* kDefaultRoot = "/var/lib/valmere";
constexpr const char* kMaxLogVariable = "VALMERE_MAX_LOG";

// Errors that say nothing about the file.
bool IsShortage(int error) {
  return error == EMFILE || error == ENFILE || error == ENOMEM || error == EIO;
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
    if (name != u"..")
      names.push_back(NarrowPath(name));
    else if (!names.empty())
      names.pop_back();
  }
  return names;
}

bool NamesDevice(const Names& names) {
  return !names.empty() && names.back().back() == ':';
}

// Files that are being written have such names, here and when the root is made; clients can't use
// them.
bool IsReserved(const std::string& name) {
  return name.starts_with(".valmere-");
}

// Purpose: the files below one folder of the host; no path leads out of it.
// Owner: the service, shared with all components that open files.
// Threads: any.
// Errors: what can't be reached can't be opened.
class HostFileSystem final : public FileSystem {
 public:
  HostFileSystem(const char* root, std::uint64_t max_log)
      : root_(root), max_log_(max_log), ledger_(std::make_shared<WriteLedger>(root)) {}

  std::unique_ptr<File> Open(WidePathView path, OpenFlags flags) override {
    errno = 0;
    std::optional<Place> place = Find(path);
    std::unique_ptr<File> opened;
    if (place) {
      ClearOnce(path, place->folder);
      opened = OpenFile(*std::move(place), {path, ledger_, max_log_}, flags);
    }
    const bool must_be_written = Has(flags, OpenFlags::kTruncate) || Has(flags, OpenFlags::kAppend);
    if (!opened && must_be_written && errno != 0) ledger_->Failed(WidePath(path));
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

  bool Sync() override {
    bool all = true;
    for (const WidePath& path : ledger_->TakeUnsynced()) {
      if (SyncOne(path)) continue;
      ledger_->Failed(path);
      ledger_->AddUnsynced(path);
      all = false;
    }
    return all;
  }

 private:
  // Nothing when a folder on the way is missing or the path names a device, or what is the system's
  // own.
  std::optional<Place> Find(WidePathView path) const {
    std::optional<Names> names = SplitPath(path);
    if (!names || NamesDevice(*names)) return std::nullopt;
    if (std::any_of(names->begin(), names->end(), IsReserved)) {
      errno = EACCES;
      return std::nullopt;
    }
    if (names->empty()) names->push_back(".");
    Descriptor folder = OpenAt(AT_FDCWD, root_.c_str(), O_PATH | O_DIRECTORY);
    for (std::size_t i = 0; i + 1 < names->size() && folder.valid(); ++i)
      folder = OpenAt(folder.get(), (*names)[i].c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW);
    if (!folder.valid()) return std::nullopt;
    return Place{std::move(folder), std::move(names->back())};
  }

  bool SyncOne(WidePathView path) const noexcept try {
    const std::optional<Place> place = Find(path);
    if (place) return SyncToDisk(*place);
    // A folder that has gone leaves nothing to sync; a root may come back.
    return errno == ENOENT && OpenAt(AT_FDCWD, root_.c_str(), O_PATH | O_DIRECTORY).valid();
  } catch (const std::bad_alloc&) {
    errno = ENOMEM;
    return false;
  }

  // Once for each folder, the first time that a file in it is opened.
  void ClearOnce(WidePathView path, const Descriptor& folder) EXCLUDES(lock_) {
    const WidePathView name = path.substr(0, path.find_last_of(u"/\\") + 1);
    {
      const ScopedLock hold(lock_);
      if (cleared_.size() == kMostCleared ||
          std::find(cleared_.begin(), cleared_.end(), name) != cleared_.end())
        return;
      cleared_.emplace_back(name);
    }
    ClearLeftovers(folder);
  }

  static constexpr std::size_t kMostCleared = 32;

  const std::string root_;
  const std::uint64_t max_log_;
  const std::shared_ptr<WriteLedger> ledger_;
  Lock lock_;
  std::vector<WidePath> cleared_ GUARDED_BY(lock_);
};

// The environment changes while a host starts, before it loads the library, and not after.
const char* FromEnvironment(const char* name) {
  const char* value = std::getenv(name);  // NOLINT(concurrency-mt-unsafe)
  return value != nullptr && *value != '\0' ? value : nullptr;
}

std::uint64_t MaxLog() {
  const char* text = FromEnvironment(kMaxLogVariable);
  if (text == nullptr) return kDefaultMaxLog;
  std::uint64_t bytes = 0;
  const char* const end = text + std::strlen(text);
  const auto [stop, error] = std::from_chars(text, end, bytes);
  return error == std::errc() && stop == end ? bytes : kDefaultMaxLog;
}

}  // namespace

std::shared_ptr<FileSystem> MakeDeviceFileSystem() {
  const char* root = FromEnvironment(kRootVariable);
  return std::make_shared<HostFileSystem>(root != nullptr ? root : kDefaultRoot, MaxLog());
}

}  // namespace valmere::platform
