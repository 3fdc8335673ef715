// The steps of construction and release in the log, each with the time that it took.
#pragma once

#include <memory>
#include <optional>
#include <string_view>

#include "persist/log/debug_switches.h"
#include "persist/log/early_log.h"
#include "persist/log/log_sink.h"
#include "platform/kernel.h"

namespace valmere {

// Purpose: logs a line for each step, in microseconds since the one before; nothing when the zone
// is off. Steps from before there is a log are kept until it is attached.
// Owner: the service, on its stack.
// Threads: one.
// Errors: a line that there is no memory for is lost.
class StepLog {
 public:
  explicit StepLog(DebugZone zone) : zone_(zone), last_(platform::MonotonicNow()) {}

  void AttachLog(const std::shared_ptr<LogSink>& log);
  // `step` has just been done.
  void Done(std::string_view step) noexcept;

 private:
  const DebugZone zone_;
  platform::Ticks last_;
  std::shared_ptr<LogSink> log_;
  // Made with the first early step: it has a lock, for which there may be no memory, and the release
  // of the service must not fail.
  std::optional<EarlyLog> early_;
};

}  // namespace valmere
