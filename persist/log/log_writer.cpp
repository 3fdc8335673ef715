// The writer never waits for the lock of the lines. A thread that holds it raises the flag after it
// has released it, so a writer that finds it taken sleeps until then. Lines are taken out under the
// lock and written without it, so that a thread that logs never waits for the file.
#include "persist/log/log_writer.h"

#include <cstdint>
#include <exception>
#include <utility>
#include <vector>

#include "driver/sync/event_flags.h"
#include "driver/sync/lock.h"
#include "persist/log/log_line.h"
#include "platform/local_time.h"

namespace valmere {
namespace {

constexpr std::uint32_t kEnd = 1;
constexpr std::uint32_t kLines = 2;

}  // namespace

// All that the thread touches.
class LogWriter::Lines {
 public:
  explicit Lines(std::unique_ptr<Connection> stream) : stream_(std::move(stream)) {
    pending_.reserve(kReservedLines);
    writing_.reserve(kReservedLines);
  }

  void Write(std::string line) EXCLUDES(lock_);
  void Run();
  // Tells the thread to return.
  void Stop() EXCLUDES(lock_);
  // The thread has returned, or is not waited for any longer.
  void Abandon() { stream_->Close(); }

 private:
  void Add(std::string line) REQUIRES(lock_);
  bool Pass() EXCLUDES(lock_);
  void ReportLost();

  const std::unique_ptr<Connection> stream_;
  Lock lock_;
  bool ended_ GUARDED_BY(lock_) = false;
  std::vector<std::string> pending_ GUARDED_BY(lock_);
  std::size_t lost_ GUARDED_BY(lock_) = 0;
  // The writer thread's own.
  std::vector<std::string> writing_;
  std::size_t untold_ = 0;  // lost lines that no line in the log has counted yet
  EventFlags signal_{EventFlags::AutoClear::kNo};
};

LogWriter::LogWriter(std::unique_ptr<Connection> stream, int priority)
    : lines_(std::make_shared<Lines>(std::move(stream))) {
  thread_.emplace([lines = lines_] { lines->Run(); }, priority);
  thread_->Start();
}

LogWriter::~LogWriter() {
  End();
}

void LogWriter::Write(std::string line) {
  lines_->Write(std::move(line));
}

void LogWriter::End() {
  lines_->Stop();
  thread_.reset();
  lines_->Abandon();
}

// The flag is raised even when the line was not added: the writer may have found the lock taken.
void LogWriter::Lines::Write(std::string line) {
  {
    const ScopedLock hold(lock_);
    if (!ended_) Add(std::move(line));
  }
  signal_.Set(kLines);
}

void LogWriter::Lines::Add(std::string line) {
  if (pending_.size() < kMostLines) {
    try {
      pending_.push_back(std::move(line));
      return;
    } catch (const std::exception&) {
      // No memory: lost like a line for which there is no room.
    }
  }
  ++lost_;
}

void LogWriter::Lines::Stop() {
  {
    const ScopedLock hold(lock_);
    ended_ = true;
  }
  signal_.Set(kEnd);
}

// The end flag stays up, so an end that comes before the wait still gets its last pass.
void LogWriter::Lines::Run() {
  std::uint32_t awaited = kEnd | kLines;
  for (;;) {
    const std::uint32_t reported = signal_.Wait(awaited);
    const bool passed = Pass();
    if ((reported & kEnd) == 0) continue;
    if (passed) return;
    awaited = kLines;
  }
}

// False when another thread has the lock. The flag is cleared before the lock is tried, so that it
// is up again once that thread has released the lock.
bool LogWriter::Lines::Pass() {
  signal_.Clear(kLines);
  if (!lock_.TryEnter()) return false;
  writing_.swap(pending_);
  untold_ += std::exchange(lost_, 0);
  lock_.Leave();
  for (const std::string& line : writing_)
    stream_->Write(line.data(), static_cast<int>(line.size()));
  writing_.clear();
  if (untold_ != 0) ReportLost();
  return true;
}

// Without memory for it, the next pass says it.
void LogWriter::Lines::ReportLost() {
  try {
    const std::string line = FormatLogLine(
        platform::LocalNow(), std::to_string(untold_) + " lines came too fast for the log");
    untold_ = 0;
    stream_->Write(line.data(), static_cast<int>(line.size()));
  } catch (const std::exception&) {
  }
}

}  // namespace valmere
