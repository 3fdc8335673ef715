// The log file: where it is, and whether anything goes there.
#pragma once

#include <atomic>
#include <memory>
#include <string_view>
#include <vector>

#include "persist/log_sink.h"
#include "persist/log_writer.h"
#include "platform/files.h"

namespace valmere {

// The log file that the name file names by its first line; the default when there is none.
platform::WidePath ReadLogFileName(platform::FileSystem& files, platform::WidePathView name_file);

// Purpose: stamps messages and hands them to the writer of every open log file.
// Owner: shared by all who log.
// Threads: any.
// Errors: a log file that can't be opened takes no lines; memory running out costs the line.
class LogFacility : public LogSink {
 public:
  LogFacility() = default;
  LogFacility(const LogFacility&) = delete;
  LogFacility& operator=(const LogFacility&) = delete;

  // Opens a log file, keeping what it holds. Called before the first Log.
  void AddFile(platform::FileSystem& files, platform::WidePathView path, int priority);

  void Log(std::string_view message) override;
  void set_disabled(bool disabled) { disabled_.store(disabled); }

 private:
  std::atomic<bool> disabled_{false};
  std::vector<std::unique_ptr<LogWriter>> writers_;  // constant once logging has begun
};

}  // namespace valmere
