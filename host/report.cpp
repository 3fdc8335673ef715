// One line is one write, so that the lines of several threads do not mix.
#include "host/report.h"

#include <cstdio>
#include <sstream>
#include <utility>

namespace valmere::host {
namespace {

constexpr std::chrono::seconds kQuiet{10};

}  // namespace

void Report(const std::string& text) {
  const std::string line = "valmered: " + text + "\n";
  std::fputs(line.c_str(), stderr);
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
