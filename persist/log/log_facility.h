// The log file: where it is, and whether anything goes there.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include "driver/sync/lock.h"
#include "persist/log/log_sink.h"
#include "persist/log/log_writer.h"
#include "platform/files.h"

namespace valmere {

// The log file that the first line of the name file names; the default when there is no such line.
platform::WidePath ReadLogFileName(platform::FileSystem& files, platform::WidePathView name_file);

// Purpose: stamps messages and hands them to the writer of every open log file. While the debug
// zone "ThreadIds" is on, a line with a thread's number precedes the first line of that thread. The
// last kMostThreads numbers are remembered; a thread whose number was forgotten counts as new.
// Owner: shared by all components that log; the service, which opens the files, ends it.
// Threads: any. AddFile and End on the owner's.
// Errors: a log file that can't be opened takes no lines; memory running out costs the line.
class LogFacility : public LogSink {
 public:
  static constexpr std::size_t kMostThreads = 64;

  LogFacility() = default;
  LogFacility(const LogFacility&) = delete;
  LogFacility& operator=(const LogFacility&) = delete;

  // Opens a log file, keeping what it holds. Called before the first Log.
  void AddFile(platform::FileSystem& files, platform::WidePathView path, int priority);

  // Writes what has been logged and ends the writers' threads; messages of components that still
  // hold this are dropped. May be called again.
  void End();

  void Log(std::string_view message) override EXCLUDES(threads_lock_);
  // For a program that wants no log at all: nothing is written while it is set.
  void set_disabled(bool disabled) { disabled_.store(disabled); }

 private:
  void Write(std::string_view message);
  // Whether the calling thread logs for the first time.
  bool IsNewThread() EXCLUDES(threads_lock_);

  std::atomic<bool> disabled_{false};
  std::atomic<bool> ended_{false};
  std::vector<std::unique_ptr<LogWriter>> writers_;  // constant once logging has begun

  Lock threads_lock_;
  std::vector<std::uint32_t> threads_ GUARDED_BY(threads_lock_);  // the oldest first
};

}  // namespace valmere
