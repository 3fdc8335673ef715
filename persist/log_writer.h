// Brings log lines to their file.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "driver/sync/event_flags.h"
#include "driver/sync/lock.h"
#include "driver/sync/worker_thread.h"
#include "net/connection.h"

namespace valmere {

// Purpose: takes lines and writes them to a stream on a thread of its own.
// Owner: the log facility.
// Threads: any thread logs and never waits for the stream.
// Errors: a line that does not reach the stream is dropped, and so are those that come while
// kMostLines wait, which a later line tells. Lines that were taken before the destructor began are
// written.
class LogWriter {
 public:
  // So many lines wait before memory is asked for.
  static constexpr std::size_t kReservedLines = 100;
  // No more than this wait: they must be written in the time that an orderly stop gives.
  static constexpr std::size_t kMostLines = 10'000;

  LogWriter(std::unique_ptr<Connection> stream, int priority);
  ~LogWriter();
  LogWriter(const LogWriter&) = delete;
  LogWriter& operator=(const LogWriter&) = delete;

  // The line as it stands, with its end.
  void Write(std::string line) EXCLUDES(lock_);
  // False when there was no thread to be had: lines would only pile up.
  bool running() const { return thread_->started(); }

 private:
  void Run();
  void Pass() EXCLUDES(lock_);
  void TellOfLost() REQUIRES(lock_);

  const std::unique_ptr<Connection> stream_;
  Lock lock_;
  std::vector<std::string> pending_ GUARDED_BY(lock_);
  std::size_t lost_ GUARDED_BY(lock_) = 0;  // since the line that told of it last
  std::vector<std::string> writing_;        // the writer thread's own
  EventFlags signal_{EventFlags::AutoClear::kNo};
  std::optional<WorkerThread> thread_;  // the last member: it ends before what it uses goes
};

}  // namespace valmere
