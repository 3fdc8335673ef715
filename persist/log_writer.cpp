// The writer never waits for the lock: it leaves the flag up and comes back. Lines are taken out
// under the lock and written without it, so that nobody who logs waits for the file.
#include "persist/log_writer.h"

#include <utility>

#include "persist/log_line.h"
#include "platform/local_time.h"

namespace valmere {
namespace {

constexpr std::uint32_t kEnd = 1;
constexpr std::uint32_t kLines = 2;

}  // namespace

LogWriter::LogWriter(std::unique_ptr<Connection> stream, int priority)
    : stream_(std::move(stream)) {
  pending_.reserve(kReservedLines);
  writing_.reserve(kReservedLines);
  thread_.emplace([this] { Run(); }, priority);
  thread_->Start();
}

LogWriter::~LogWriter() {
  signal_.Set(kEnd);
}

void LogWriter::Write(std::string line) {
  {
    const ScopedLock hold(lock_);
    if (pending_.size() >= kMostLines) {
      ++lost_;
      return;
    }
    if (lost_ != 0) TellOfLost();
    pending_.push_back(std::move(line));
  }
  signal_.Set(kLines);
}

void LogWriter::TellOfLost() {
  pending_.push_back(FormatLogLine(platform::LocalNow(),
                                   std::to_string(lost_) + " lines came too fast for the log"));
  lost_ = 0;
}

// The stop flag stays up, so a stop that comes before the wait still gets its last pass.
void LogWriter::Run() {
  std::uint32_t reported = 0;
  while ((reported & kEnd) == 0) {
    reported = signal_.Wait(kEnd | kLines);
    Pass();
  }
}

void LogWriter::Pass() {
  if (!lock_.TryEnter()) return;
  signal_.Clear(kLines);
  writing_.swap(pending_);
  lock_.Leave();
  for (const std::string& line : writing_)
    stream_->Write(line.data(), static_cast<int>(line.size()));
  writing_.clear();
}

}  // namespace valmere
