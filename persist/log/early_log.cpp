// The lock is held while a message is passed on, so that it can't overtake those that were kept.
#include "persist/log/early_log.h"

#include <utility>

namespace valmere {

void EarlyLog::Attach(const std::shared_ptr<LogSink>& log) {
  const ScopedLock hold(lock_);
  log_ = log;
  attached_ = true;
  for (const std::string& message : std::exchange(kept_, {}))
    log->Log(message);
}

void EarlyLog::Log(std::string_view message) {
  const ScopedLock hold(lock_);
  if (!attached_)
    kept_.emplace_back(message);
  else if (const auto log = log_.lock())
    log->Log(message);
}

}  // namespace valmere
