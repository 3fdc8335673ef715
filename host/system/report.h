// What valmered says to its operator.
#pragma once

#include <chrono>
#include <cstddef>
#include <exception>
#include <optional>
#include <string>
#include <string_view>

namespace valmere::host {

// Writes "valmered: ", the text and a line end to standard error, in one piece; under systemd that
// is the journal. Never waits for it: a line that it can't take at once is left out, and a later
// line says so. For what an operator has to see and what is rare, or kept rare by a ReportLimit.
void Report(std::string_view text) noexcept;

// The same for what a client can cause as often as it likes: after a burst, a line a second.
void ReportClient(std::string_view text) noexcept;

// The same for what `text` makes, where nothing may throw. Without memory for it nothing is said.
template <class Text>
void TryReport(Text text, void (&report)(std::string_view) noexcept = Report) noexcept {
  try {
    report(text());
  } catch (const std::exception&) {
  }
}

// A duration as people write it: "10 s", "0.25 s".
std::string Seconds(std::chrono::milliseconds duration);

// Purpose: keeps what many clients can cause at once from filling the log.
// Owner: the object that reports.
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
