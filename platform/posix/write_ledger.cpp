// A client may name the files that are written, so reports about them are limited, and a path is
// shown without what a terminal would take for a command.
#include "platform/posix/write_ledger.h"

#include <string.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <exception>
#include <utility>

#include "platform/standard_error.h"

namespace valmere::platform {
namespace {

constexpr std::size_t kLongestShown = 512;

const char* CauseOf(const std::string& root, int error) {
  struct stat status {};
  if (stat(root.c_str(), &status) != 0 && errno == ENOENT) return "the root has gone";
  const char* text = strerrordesc_np(error);
  return text != nullptr ? text : "unknown error";
}

}  // namespace

void WriteLedger::Failed(const WidePath& path) noexcept try {
  const int error = errno;
  const std::string name = NameOf(path);
  if (!IsNew(path, error)) return;
  WriteErrorLineSparingly(
      {"valmere: cannot write ", name, ": ", std::string_view(CauseOf(root_, error))});
} catch (const std::exception&) {
  // No memory: the log reports it all the same.
}

void WriteLedger::Succeeded(const WidePath& path) noexcept {
  if (!any_trouble_.load(std::memory_order_relaxed)) return;
  {
    const ScopedLock hold(lock_);
    const auto ended = std::find_if(troubles_.begin(), troubles_.end(),
                                    [&](const Trouble& trouble) { return trouble.path == path; });
    if (ended == troubles_.end()) return;
    troubles_.erase(ended);
    any_trouble_.store(!troubles_.empty(), std::memory_order_relaxed);
  }
  try {
    WriteErrorLineSparingly({"valmere: ", NameOf(path), " is written again"});
  } catch (const std::exception&) {
    // No memory to say it with.
  }
}

bool WriteLedger::IsNew(const WidePath& path, int error) {
  const ScopedLock hold(lock_);
  for (Trouble& trouble : troubles_)
    if (trouble.path == path) return std::exchange(trouble.error, error) != error;
  if (troubles_.size() == kMostTroubles) troubles_.erase(troubles_.begin());
  troubles_.push_back({path, error});
  any_trouble_.store(true, std::memory_order_relaxed);
  return true;
}

std::string WriteLedger::NameOf(const WidePath& path) const {
  std::string name = root_;
  if (!path.starts_with(u'/') && !path.starts_with(u'\\')) name += '/';
  name += NarrowPath(WidePathView(path).substr(0, kLongestShown));
  for (char& c : name) {
    if (c == '\\') c = '/';
    if (static_cast<unsigned char>(c) < 0x20 || static_cast<unsigned char>(c) >= 0x7F) c = '?';
  }
  return name;
}

bool WriteLedger::AddUnsynced(const WidePath& path) noexcept try {
  const ScopedLock hold(lock_);
  if (std::find(unsynced_.begin(), unsynced_.end(), path) != unsynced_.end()) return true;
  if (unsynced_.size() == kMostUnsynced) return false;
  unsynced_.push_back(path);
  return true;
} catch (const std::exception&) {
  return false;
}

std::vector<WidePath> WriteLedger::TakeUnsynced() noexcept {
  const ScopedLock hold(lock_);
  return std::exchange(unsynced_, {});
}

}  // namespace valmere::platform
