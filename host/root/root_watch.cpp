// The folder itself and all folders above it are watched for being moved, which is rare. The kernel
// does not report the end of a folder that is held open, but the folder has to be emptied first:
// once the property file's folder has gone from it, and while the path leads elsewhere, what comes
// and goes in the folders of the path is watched too.
#include "host/root/root_watch.h"

#include <fcntl.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <exception>
#include <memory>
#include <new>
#include <string>
#include <utility>

#include "host/root/property_file_place.h"
#include "host/system/report.h"
#include "platform/posix/descriptor.h"

namespace valmere::host {
namespace {

constexpr std::uint32_t kOwnMoves = IN_MOVE_SELF | IN_DELETE_SELF;
constexpr std::uint32_t kLosses = IN_DELETE | IN_MOVED_FROM;
constexpr std::uint32_t kGains = IN_CREATE | IN_MOVED_TO;

// What happened does not matter: the path is checked anew.
void Drain(int descriptor) {
  char events[4096];
  while (read(descriptor, events, sizeof events) > 0) {
  }
}

}  // namespace

// Lives until the loop has let go of it.
struct RootWatch::Source {
  platform::Descriptor file;
  uv_poll_t poll{};
};

RootWatch::RootWatch(uv_loop_t& loop, const RootFolder& root, Callback callback)
    : root_(root), callback_(std::move(callback)) {
  changes_ = Open(loop, inotify_init1(IN_NONBLOCK | IN_CLOEXEC), UV_READABLE);
  if (changes_ == nullptr) TryReport([&] { return root.path() + ": the root can't be watched"; });
  mounts_ = Open(loop, open("/proc/self/mountinfo", O_RDONLY | O_CLOEXEC), UV_PRIORITIZED);
  Check();
}

RootWatch::~RootWatch() {
  for (Source* source : {changes_, mounts_}) {
    if (source == nullptr) continue;
    source->poll.data = source;
    uv_close(reinterpret_cast<uv_handle_t*>(&source->poll),
             [](uv_handle_t* handle) { delete static_cast<Source*>(handle->data); });
  }
}

// It does not keep the loop running.
RootWatch::Source* RootWatch::Open(uv_loop_t& loop, int descriptor, int events) {
  platform::Descriptor file(descriptor);
  if (!file.valid()) return nullptr;
  auto source = std::unique_ptr<Source>(new (std::nothrow) Source);
  if (source == nullptr || uv_poll_init(&loop, &source->poll, file.get()) != 0) return nullptr;
  source->file = std::move(file);
  source->poll.data = this;
  uv_poll_start(&source->poll, events, [](uv_poll_t* poll, int, int) {
    auto* const watch = static_cast<RootWatch*>(poll->data);
    if (watch->changes_ != nullptr) Drain(watch->changes_->file.get());
    watch->Check();
  });
  uv_unref(reinterpret_cast<uv_handle_t*>(&source->poll));
  return source.release();
}

// Again until what was seen is also what is watched.
void RootWatch::Check() noexcept try {
  bool in_place = false;
  do {
    in_place = root_.IsInPlace();
    WatchFolders(!in_place || !HasStore());
  } while (root_.IsInPlace() != in_place);
  if (std::exchange(in_place_, in_place) != in_place) callback_(in_place);
} catch (const std::exception&) {
  Report("out of memory; where the root is was not looked at");
}

// For a folder that is watched already, this replaces what is watched.
void RootWatch::WatchFolders(bool closely) const {
  if (changes_ == nullptr) return;
  const std::string& path = root_.path();
  for (std::size_t end = 0; end != std::string::npos; end = path.find('/', end + 1)) {
    const std::string folder = end == 0 ? "/" : path.substr(0, end);
    inotify_add_watch(changes_->file.get(), folder.c_str(),
                      kOwnMoves | IN_ONLYDIR | (closely ? kLosses | kGains : 0));
  }
  inotify_add_watch(changes_->file.get(), path.c_str(), kOwnMoves | IN_ONLYDIR | kLosses);
}

bool RootWatch::HasStore() const {
  struct stat status {};
  return fstatat(root_.descriptor(), kStoreName, &status, AT_SYMLINK_NOFOLLOW) == 0;
}

}  // namespace valmere::host
