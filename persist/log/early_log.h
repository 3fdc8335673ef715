// A log for components that are made before the log is.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "driver/sync/lock.h"
#include "persist/log/log_sink.h"

namespace valmere {

// Purpose: keeps messages until a log is attached, and passes on all that come later. The one place
// where early messages are kept.
// Owner: a component that is made before the log; the persistence component shares it with its line
// writer, which may outlive it.
// Threads: any.
// Errors: as those of the log; what is logged after the log has gone is lost. std::bad_alloc before
// one is attached.
class EarlyLog : public LogSink {
 public:
  EarlyLog() = default;
  EarlyLog(const EarlyLog&) = delete;
  EarlyLog& operator=(const EarlyLog&) = delete;

  // The log is held weakly; it gets what has been kept at once.
  void Attach(const std::shared_ptr<LogSink>& log) EXCLUDES(lock_);
  void Log(std::string_view message) override EXCLUDES(lock_);

 private:
  Lock lock_;
  std::weak_ptr<LogSink> log_ GUARDED_BY(lock_);
  bool attached_ GUARDED_BY(lock_) = false;
  std::vector<std::string> kept_ GUARDED_BY(lock_);
};

}  // namespace valmere
