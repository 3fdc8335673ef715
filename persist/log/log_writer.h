// Brings log lines to their file.
#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>

#include "driver/sync/worker_thread.h"
#include "net/connection.h"

namespace valmere {

// Purpose: takes lines and writes them to a stream on a thread of its own.
// Owner: the log facility. Its thread holds all that it touches, and so may outlive it.
// Threads: any thread logs and never waits for the stream. End on the owner's.
// Errors: a line that does not reach the stream is dropped, and so are those that come while
// kMostLines wait, or for which there is no memory; a line of its own tells how many, as soon as
// those before them are written. Lines that were taken before the end began are written.
class LogWriter {
 public:
  // So many lines wait before memory is asked for.
  static constexpr std::size_t kReservedLines = 100;
  // No more than this wait: they must be written within the time of an orderly stop.
  static constexpr std::size_t kMostLines = 10'000;

  LogWriter(std::unique_ptr<Connection> stream, int priority);
  // Ends.
  ~LogWriter();
  LogWriter(const LogWriter&) = delete;
  LogWriter& operator=(const LogWriter&) = delete;

  // The line as it stands, with its end. Nothing after the end.
  void Write(std::string line);
  // Writes what waits, waits for the thread and closes the stream: a thread that did not return in
  // time writes no more. May be called again.
  void End();
  // False when the system gave no thread: lines would only pile up.
  bool running() const { return thread_ && thread_->started(); }

 private:
  class Lines;

  const std::shared_ptr<Lines> lines_;
  std::optional<WorkerThread> thread_;
};

}  // namespace valmere
