// What the disk itself takes its time for.
#pragma once

#include <atomic>
#include <chrono>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace valmere::test {

// Purpose: replaces a small file all the time, as the service does, and notes when that took long.
// A disk that others keep busy holds every program up, now and then for a second.
// Owner: main.
// Threads: its own one; all calls from any.
// Errors: the constructor throws std::system_error when no thread can be started.
class DiskProbe {
 public:
  using Clock = std::chrono::steady_clock;

  explicit DiskProbe(const std::string& folder);
  ~DiskProbe();
  DiskProbe(const DiskProbe&) = delete;
  DiskProbe& operator=(const DiskProbe&) = delete;

  // For how long in all it was held up since `from`.
  Clock::duration HeldUpSince(Clock::time_point from) const;
  // The longest that one replacement has taken.
  Clock::duration Longest() const;

 private:
  struct Delay {
    Clock::time_point begun;
    Clock::time_point ended;
  };

  void Run();
  void Replace() const;

  const std::string file_;
  const std::string beside_;
  std::atomic<bool> stopped_{false};
  mutable std::mutex lock_;
  std::optional<Clock::time_point> begun_;  // guarded by lock_; of the one that is under way
  std::vector<Delay> delays_;               // guarded by lock_
  std::thread thread_;
};

}  // namespace valmere::test
