// The zone is asked when there is a log: its switch may be restored from the property file only
// after the first steps.
#include "driver/service/step_log.h"

#include <exception>
#include <string>
#include <utility>

namespace valmere {

void StepLog::AttachLog(const std::shared_ptr<LogSink>& log) {
  if (early_ && log && IsOn(zone_)) early_->Attach(log);
  early_.reset();
  log_ = log;
}

void StepLog::Done(std::string_view step) noexcept {
  const platform::Ticks now = platform::MonotonicNow();
  const platform::Ticks microseconds = (now - std::exchange(last_, now)) / 10;
  const auto line = [&] { return std::string(step) + ": " + std::to_string(microseconds) + " us"; };
  if (log_) {
    LogIn(zone_, log_, line);
    return;
  }
  try {
    if (!early_) early_.emplace();
    early_->Log(line());
  } catch (const std::exception&) {
    // As with a line that goes to the log at once.
  }
}

}  // namespace valmere
