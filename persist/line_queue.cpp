// One thread writes, so that no two rewrites of a file meet and lines come in the order of changes.
#include "persist/line_queue.h"

#include <algorithm>
#include <atomic>
#include <exception>
#include <string_view>
#include <utility>
#include <vector>

#include "driver/sync/event_flags.h"
#include "driver/sync/lock.h"
#include "persist/property_file_turn.h"
#include "persist/waiting_lines.h"

namespace valmere {
namespace {

constexpr std::uint32_t kWork = 1;
constexpr std::uint32_t kStop = 2;

}  // namespace

// All that the thread touches.
class LineQueue::Writer {
 public:
  Writer(std::shared_ptr<platform::FileSystem> files, Reporter report)
      : files_(std::move(files)), report_(std::move(report)) {}

  bool Push(WriteRequest request, bool is_change) EXCLUDES(lock_);
  void Run();
  bool Drain() EXCLUDES(lock_);
  // Tells the thread to return.
  void Stop() EXCLUDES(lock_);
  // The thread has returned, or is not waited for any longer.
  void Abandon() { abandoned_.store(true); }

 private:
  struct Failure {
    platform::WidePath path;  // as much of it as counts
    RewriteResult cause;

    friend bool operator==(const Failure&, const Failure&) = default;
  };

  bool Stopping() const { return (signal_.Get() & kStop) != 0; }
  std::optional<WaitingLine> TakeFirst() EXCLUDES(lock_);
  // Nothing when there is no time left for it.
  std::optional<RewriteResult> Rewrite(const WriteRequest& request);
  void Report(const platform::WidePath& path, RewriteResult cause);
  void TryOnceMore(WaitingLine line) EXCLUDES(lock_);

  const std::shared_ptr<platform::FileSystem> files_;
  const Reporter report_;
  std::atomic<bool> abandoned_{false};
  Lock lock_;
  bool ended_ GUARDED_BY(lock_) = false;
  WaitingLines lines_ GUARDED_BY(lock_);
  std::vector<Failure> reported_;  // the draining thread's own, the oldest first
  EventFlags signal_{EventFlags::AutoClear::kNo};
};

LineQueue::LineQueue(std::shared_ptr<platform::FileSystem> files, Reporter report)
    : writer_(std::make_shared<Writer>(std::move(files), std::move(report))) {}

LineQueue::~LineQueue() {
  End();
}

bool LineQueue::Start(int priority) {
  thread_.emplace([writer = writer_] { writer->Run(); }, priority);
  return thread_->Start();
}

void LineQueue::End() {
  writer_->Stop();
  thread_.reset();
  writer_->Abandon();
}

bool LineQueue::Push(WriteRequest request) {
  return writer_->Push(std::move(request), false);
}

bool LineQueue::PushChange(WriteRequest request) {
  return writer_->Push(std::move(request), true);
}

bool LineQueue::Drain() {
  return writer_->Drain();
}

bool LineQueue::Writer::Push(WriteRequest request, bool is_change) {
  {
    const ScopedLock hold(lock_);
    if (ended_) return false;
    if (is_change) {
      lines_.AddChange(std::move(request));
    } else {
      lines_.Add(std::move(request));
    }
  }
  signal_.Set(kWork);
  return true;
}

void LineQueue::Writer::Stop() {
  {
    const ScopedLock hold(lock_);
    ended_ = true;
    lines_.Clear();
  }
  signal_.Set(kStop);
  PropertyFileTurn::WakeAll();
}

// The flag is cleared before the queue is looked at, so that a push meanwhile is not slept over.
void LineQueue::Writer::Run() {
  while ((signal_.Wait(kWork | kStop) & kStop) == 0) {
    signal_.Clear(kWork);
    try {
      Drain();
    } catch (const std::exception&) {
      // No memory: this line is lost, the others wait for the next push.
    }
  }
}

std::optional<WaitingLine> LineQueue::Writer::TakeFirst() {
  const ScopedLock hold(lock_);
  return lines_.TakeFirst();
}

bool LineQueue::Writer::Drain() {
  bool written = false;
  while (auto line = TakeFirst()) {
    const std::optional<RewriteResult> result = Rewrite(line->request);
    if (!result) break;
    if (*result == RewriteResult::kWritten) {
      written = true;
      continue;
    }
    Report(line->request.path, *result);
    if (line->replaced_others) TryOnceMore(*std::move(line));
    if (StopsDraining(*result)) return *result != RewriteResult::kShortRead && written;
  }
  return written;
}

std::optional<RewriteResult> LineQueue::Writer::Rewrite(const WriteRequest& request) {
  try {
    const PropertyFileTurn turn(PropertyFileTurn::For::kRewriting, [this] { return Stopping(); });
    if (!turn.taken() || Stopping()) return std::nullopt;
    return RewriteLine(*files_, request, [&] { return turn.MayWrite() && !abandoned_.load(); });
  } catch (const std::exception&) {
    return RewriteResult::kShortRead;  // no memory: to be told of, like a file that can't be read
  }
}

void LineQueue::Writer::Report(const platform::WidePath& path, RewriteResult cause) {
  Failure failure{path.substr(0, kReportedPathLength), cause};
  if (std::find(reported_.begin(), reported_.end(), failure) != reported_.end()) return;
  if (reported_.size() == kMostReported) reported_.erase(reported_.begin());
  reported_.push_back(std::move(failure));
  report_(path, cause);
}

// The lines that went into it would each have had a try of their own.
void LineQueue::Writer::TryOnceMore(WaitingLine line) {
  line.replaced_others = false;
  const ScopedLock hold(lock_);
  if (!ended_) lines_.PutBack(std::move(line));
}

}  // namespace valmere
