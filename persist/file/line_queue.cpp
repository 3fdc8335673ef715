// Each file is written by one thread, so that no two rewrites of it overlap and lines keep the
// order of the changes: the line writer writes all files but those for which a line has failed, and
// the second line writer writes those. A file passes from one to the other under the lock.
#include "persist/file/line_queue.h"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <exception>
#include <string_view>
#include <utility>

#include "driver/sync/event_flags.h"
#include "driver/sync/lock.h"
#include "persist/file/failed_lines.h"
#include "persist/file/property_file_lease.h"
#include "persist/file/sync_schedule.h"
#include "persist/file/waiting_lines.h"
#include "platform/kernel.h"

namespace valmere {
namespace {

constexpr std::uint32_t kWork = 1;
constexpr std::uint32_t kStop = 2;

}  // namespace

// All that the threads touch.
class LineQueue::Writer {
 public:
  Writer(std::shared_ptr<platform::FileSystem> files, std::shared_ptr<LineReports> reports,
         platform::WidePathView first_file)
      : files_(std::move(files)), reports_(std::move(reports)), failed_(first_file) {}

  bool Push(WaitingLine line) EXCLUDES(lock_);
  void Run();
  void RunSecond();
  bool Drain() EXCLUDES(lock_);
  // Tells the line writer to return.
  void Stop() EXCLUDES(lock_);
  // Tells the second line writer to return, once the first has returned.
  void StopSecond() { second_signal_.Set(kStop); }
  // The threads have returned, or are not waited for any longer.
  void Abandon() { abandoned_.store(true); }

 private:
  bool Stopping() const { return (signal_.Get() & kStop) != 0; }
  std::optional<WaitingLine> TakeFirst() EXCLUDES(lock_);
  std::optional<WriteRequest> TryDue() EXCLUDES(lock_);
  // Nothing when it is not begun because of the end.
  std::optional<RewriteResult> Rewrite(const WriteRequest& request);
  void Keep(WaitingLine line, RewriteResult cause) EXCLUDES(lock_);
  void TryAgain() EXCLUDES(lock_);
  void Settle(const WriteRequest& request, RewriteResult result) EXCLUDES(lock_);
  bool StaysWaiting(const WriteRequest& request) EXCLUDES(lock_);
  bool SyncIsDue();
  // Without memory there is no report; the lines matter more.
  template <class Report>
  void Tell(Report report) noexcept;
  void TellLeftBehind(const std::string& line) noexcept;
  void NoteWritten();
  void Sync();
  // For how long the second line writer has nothing to do.
  std::optional<std::uint32_t> MillisecondsOfRest() EXCLUDES(lock_);

  const std::shared_ptr<platform::FileSystem> files_;
  const std::shared_ptr<LineReports> reports_;
  std::atomic<bool> abandoned_{false};
  std::atomic<bool> written_{false};  // whether any line was since the last sync began
  Lock lock_;
  bool ended_ GUARDED_BY(lock_) = false;
  WaitingLines lines_ GUARDED_BY(lock_);
  FailedLines failed_ GUARDED_BY(lock_);
  SyncSchedule sync_;  // used by the second line writer alone
  EventFlags signal_{EventFlags::AutoClear::kNo};
  EventFlags second_signal_{EventFlags::AutoClear::kNo};
};

LineQueue::LineQueue(std::shared_ptr<platform::FileSystem> files,
                     std::shared_ptr<LineReports> reports, platform::WidePathView first_file)
    : writer_(std::make_shared<Writer>(std::move(files), std::move(reports), first_file)) {}

LineQueue::~LineQueue() {
  End();
}

bool LineQueue::Start(int priority, int second_priority) {
  line_writer_.emplace([writer = writer_] { writer->Run(); }, priority);
  second_line_writer_.emplace([writer = writer_] { writer->RunSecond(); }, second_priority);
  return line_writer_->Start() && second_line_writer_->Start();
}

void LineQueue::Stop() {
  writer_->Stop();
}

// The second line writer ends last: it syncs what the first has written last.
void LineQueue::End() {
  writer_->Stop();
  line_writer_.reset();
  writer_->StopSecond();
  second_line_writer_.reset();
  writer_->Abandon();
}

bool LineQueue::Push(WriteRequest request) {
  return writer_->Push({std::move(request), false});
}

bool LineQueue::PushChange(WriteRequest request) {
  return writer_->Push({std::move(request), true});
}

bool LineQueue::Drain() {
  return writer_->Drain();
}

bool LineQueue::Writer::Push(WaitingLine line) {
  {
    const ScopedLock hold(lock_);
    if (ended_) return false;
    lines_.Add(std::move(line));
  }
  signal_.Set(kWork);
  return true;
}

void LineQueue::Writer::Stop() {
  std::vector<std::string> left;
  {
    const ScopedLock hold(lock_);
    if (std::exchange(ended_, true)) return;
    const auto note = [&](const WaitingLine& line) { left.push_back(line.request.prefix); };
    try {
      failed_.TakeAll(note);
      while (const auto line = lines_.TakeFirst())
        note(*line);
    } catch (const std::exception&) {
      // No memory: not all of them are reported.
    }
    lines_.Clear();
  }
  signal_.Set(kStop);
  PropertyFileLease::WakeAll();
  if (!left.empty()) Tell([&] { reports_->LeftBehind(left); });
}

template <class Report>
void LineQueue::Writer::Tell(Report report) noexcept {
  try {
    report();
  } catch (const std::exception&) {
  }
}

void LineQueue::Writer::TellLeftBehind(const std::string& line) noexcept {
  Tell([&] { reports_->LeftBehind({line}); });
}

// The flag is cleared before the queue is read, so that no push meanwhile is missed.
void LineQueue::Writer::Run() {
  while ((signal_.Wait(kWork | kStop) & kStop) == 0) {
    signal_.Clear(kWork);
    try {
      Drain();
    } catch (const std::exception&) {
      Tell([this] { reports_->Lost(); });
    }
  }
}

// A line whose file has failed is handed to the second line writer.
std::optional<WaitingLine> LineQueue::Writer::TakeFirst() {
  bool handed_over = false;
  std::optional<WaitingLine> line;
  {
    const ScopedLock hold(lock_);
    while ((line = lines_.TakeFirst()) && failed_.Holds(line->request.path)) {
      failed_.Add(*std::move(line));
      handed_over = true;
    }
  }
  if (handed_over) second_signal_.Set(kWork);
  return line;
}

bool LineQueue::Writer::Drain() {
  bool written = false;
  while (auto line = TakeFirst()) {
    const std::optional<RewriteResult> result = Rewrite(line->request);
    if (!result) {
      TellLeftBehind(line->request.prefix);
      break;
    }
    if (*result == RewriteResult::kWritten) {
      written = true;
      NoteWritten();
      continue;
    }
    Keep(*std::move(line), *result);
    if (StopsDraining(*result)) return *result != RewriteResult::kShortRead && written;
  }
  return written;
}

std::optional<RewriteResult> LineQueue::Writer::Rewrite(const WriteRequest& request) {
  try {
    const PropertyFileLease lease(PropertyFileLease::For::kRewriting,
                                  [this] { return Stopping(); });
    if (!lease.granted() || Stopping()) return std::nullopt;
    return RewriteLine(*files_, request, [&] { return lease.MayWrite() && !abandoned_.load(); });
  } catch (const std::exception&) {
    return RewriteResult::kShortRead;  // no memory: reported like a file that can't be read
  }
}

// The second line writer writes the file from here on. It is not due yet, so reports stay in order.
void LineQueue::Writer::Keep(WaitingLine line, RewriteResult cause) {
  const platform::WidePath path = line.request.path;
  const std::string left_side = line.request.prefix;
  if (!MayGoBetter(cause) || path.size() > kLongestPath)
    return Tell([&] { reports_->GivenUp(path, 1, cause); });
  std::optional<FailedLines::GivenUp> given_up;
  bool ended = false;
  {
    const ScopedLock hold(lock_);
    ended = ended_;
    if (!ended) given_up = failed_.AddFile(std::move(line), platform::MonotonicNow());
  }
  if (ended) return TellLeftBehind(left_side);
  Tell([&] { reports_->Waits(path, cause); });
  if (given_up)
    Tell([&] { reports_->GivenUp(given_up->path, given_up->lines, RewriteResult::kNotOpened); });
  second_signal_.Set(kWork);
}

// The second line writer is woken once for all lines that one sync covers.
void LineQueue::Writer::NoteWritten() {
  if (!written_.exchange(true)) second_signal_.Set(kWork);
}

// Here too the flag is cleared before the state is read. At the end there is one more sync.
void LineQueue::Writer::RunSecond() {
  for (;;) {
    const auto rest = MillisecondsOfRest();
    const std::uint32_t flags =
        rest ? second_signal_.WaitFor(kWork | kStop, *rest) : second_signal_.Wait(kWork | kStop);
    if ((flags & kStop) != 0) break;
    second_signal_.Clear(kWork);
    try {
      TryAgain();
      if (SyncIsDue()) Sync();
    } catch (const std::exception&) {
      // No memory: what is due stays due.
    }
  }
  files_->Sync();
}

std::optional<std::uint32_t> LineQueue::Writer::MillisecondsOfRest() {
  std::optional<platform::Ticks> due = sync_.due();
  {
    const ScopedLock hold(lock_);
    const auto next = failed_.NextDue();
    if (next) due = std::min(*next, due.value_or(*next));
  }
  if (!due) return std::nullopt;
  const platform::Ticks left = std::max<platform::Ticks>(*due - platform::MonotonicNow(), 0);
  return static_cast<std::uint32_t>((left + platform::kTicksPerMillisecond - 1) /
                                    platform::kTicksPerMillisecond);
}

std::optional<WriteRequest> LineQueue::Writer::TryDue() {
  const ScopedLock hold(lock_);
  return failed_.TryDue(platform::MonotonicNow());
}

// After a try the line writer goes on with what it has left in the queue. A file that fails and has
// many lines must not delay the sync of others.
void LineQueue::Writer::TryAgain() {
  bool tried = false;
  while (!SyncIsDue()) {
    const auto request = TryDue();
    if (!request) break;
    const std::optional<RewriteResult> result = Rewrite(*request);
    if (!result) return TellLeftBehind(request->prefix);
    Settle(*request, *result);
    tried = true;
  }
  if (tried) signal_.Set(kWork);
}

bool LineQueue::Writer::SyncIsDue() {
  const platform::Ticks now = platform::MonotonicNow();
  if (written_.load()) sync_.NoteWritten(now);
  return sync_.IsDue(now);
}

void LineQueue::Writer::Settle(const WriteRequest& request, RewriteResult result) {
  const bool written = result == RewriteResult::kWritten;
  if (!written && MayGoBetter(result)) {
    if (!StaysWaiting(request)) TellLeftBehind(request.prefix);
    return;
  }
  if (written) written_.store(true);
  std::optional<std::size_t> lines;
  {
    const ScopedLock hold(lock_);
    lines = failed_.Finished(request.path);
  }
  if (!written) Tell([&] { reports_->GivenUp(request.path, 1, result); });
  if (lines) Tell([&] { reports_->WrittenAgain(request.path, *lines); });
}

// False after the end.
bool LineQueue::Writer::StaysWaiting(const WriteRequest& request) {
  const ScopedLock hold(lock_);
  if (ended_) return false;
  failed_.Failed(request.path, platform::MonotonicNow());
  return true;
}

void LineQueue::Writer::Sync() {
  written_.store(false);
  switch (sync_.Done(files_->Sync(), platform::MonotonicNow())) {
    case SyncSchedule::News::kNone:
      return;
    case SyncSchedule::News::kFails:
      return Tell([&] { reports_->NotSynced(); });
    case SyncSchedule::News::kSucceedsAgain:
      return Tell([&] { reports_->Synced(); });
  }
}

}  // namespace valmere
