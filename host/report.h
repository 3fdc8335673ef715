// What valmered says to its operator.
#pragma once

#include <chrono>
#include <cstddef>
#include <exception>
#include <optional>
#include <string>

namespace valmere::host {

// Writes "valmered: ", the text and a line end to standard error, in one piece; under systemd that
// is the journal.
void Report(const std::string& text);

// The same for what `text` makes, where nothing may throw. Without memory for it nothing is said.
template <class Text>
void TryReport(Text text) noexcept {
  try {
    Report(text());
  } catch (const std::exception&) {
  }
}

// A duration as people write it: "10 s", "0.25 s".
std::string Seconds(std::chrono::milliseconds duration);

// Purpose: keeps what many clients can cause at once from filling the log.
// Owner: who reports.
// Threads: one at a time.
// Errors: none.
class ReportLimit {
 public:
  // Counts one event. Says how many to report now, those of the quiet time before included; nothing
  // while the last report is younger than ten seconds.
  std::optional<std::size_t> Count();

 private:
  using Clock = std::chrono::steady_clock;

  std::optional<Clock::time_point> reported_;
  std::size_t silent_ = 0;
};

}  // namespace valmere::host
