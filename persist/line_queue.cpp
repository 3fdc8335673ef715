// One thread writes, so that no two rewrites of a file meet and lines come in the order of changes.
#include "persist/line_queue.h"

#include <exception>

namespace valmere {
namespace {

constexpr std::uint32_t kWork = 1;
constexpr std::uint32_t kStop = 2;

}  // namespace

LineQueue::LineQueue(std::shared_ptr<platform::FileSystem> files, Reporter report)
    : files_(std::move(files)), report_(std::move(report)) {}

LineQueue::~LineQueue() {
  signal_.Set(kStop);
}

bool LineQueue::Start(int priority) {
  thread_.emplace([this] { Run(); }, priority);
  return thread_->Start();
}

void LineQueue::Push(WriteRequest request) {
  {
    const ScopedLock hold(lock_);
    requests_.push_back(std::move(request));
  }
  signal_.Set(kWork);
}

// The flag is cleared before the queue is looked at, so that a push meanwhile is not slept over.
void LineQueue::Run() {
  while ((signal_.Wait(kWork | kStop) & kStop) == 0) {
    signal_.Clear(kWork);
    try {
      Drain();
    } catch (const std::exception&) {
      // No memory: this line is lost, the others wait for the next push.
    }
  }
}

std::optional<WriteRequest> LineQueue::TakeFirst() {
  const ScopedLock hold(lock_);
  if (requests_.empty()) return std::nullopt;
  std::optional<WriteRequest> first = std::move(requests_.front());
  requests_.pop_front();
  return first;
}

bool LineQueue::Drain() {
  bool written = false;
  while (const auto request = TakeFirst()) {
    if ((signal_.Get() & kStop) != 0) break;
    const RewriteResult result = Rewrite(*request);
    if (result == RewriteResult::kWritten) {
      written = true;
      continue;
    }
    Report(request->path, result);
    if (StopsDraining(result)) return result != RewriteResult::kShortRead && written;
  }
  return written;
}

RewriteResult LineQueue::Rewrite(const WriteRequest& request) {
  const ScopedLock hold(file_lock_);
  try {
    return RewriteLine(*files_, request);
  } catch (const std::exception&) {
    return RewriteResult::kShortRead;  // no memory: to be told of, like a file that can't be read
  }
}

void LineQueue::Report(const platform::WidePath& path, RewriteResult result) {
  if (reported_.emplace(path, result).second) report_(path, result);
}

}  // namespace valmere
