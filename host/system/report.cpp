// The loop writes here too, so a reader that is slow or does not read at all must not hold it up.
#include "host/system/report.h"

#include <sstream>
#include <utility>

#include "platform/standard_error.h"

namespace valmere::host {
namespace {

constexpr std::string_view kProgram = "valmered: ";
constexpr std::chrono::seconds kQuiet{10};

}  // namespace

void Report(std::string_view text) noexcept {
  platform::WriteErrorLine({kProgram, text});
}

void ReportClient(std::string_view text) noexcept {
  platform::WriteErrorLineSparingly({kProgram, text});
}

std::string Seconds(std::chrono::milliseconds duration) {
  std::ostringstream text;
  text << std::chrono::duration<double>(duration).count() << " s";
  return text.str();
}

std::optional<std::size_t> ReportLimit::Count() {
  ++silent_;
  const Clock::time_point now = Clock::now();
  if (reported_ && now - *reported_ < kQuiet) return std::nullopt;
  reported_ = now;
  return std::exchange(silent_, 0);
}

}  // namespace valmere::host
