#include "persist/settings/line_log.h"

#include <set>
#include <string_view>

#include "persist/log/debug_switches.h"
#include "persist/log/log_line.h"
#include "platform/standard_error.h"

namespace valmere {
namespace {

std::string File(platform::WidePathView path) {
  // A quote is cut there anyway.
  return "Property file " + QuoteForLog(platform::NarrowPath(path.substr(0, kLongestLogQuote + 1)));
}

std::string Lines(std::size_t count) {
  return std::to_string(count) + (count == 1 ? " line" : " lines");
}

// The name by which people know a line: "General:Speed" of "A1:B2|General:Speed".
std::string_view NamesOf(std::string_view left_side) {
  const std::size_t bar = left_side.find('|');
  return bar == std::string_view::npos ? left_side : left_side.substr(bar + 1);
}

}  // namespace

void LineLog::Waits(platform::WidePathView path, RewriteResult cause) {
  LogIn(DebugZone::kError, log_, [&] {
    return File(path) + " was not written: " + std::string(Describe(cause)) + "; it is tried again";
  });
}

void LineLog::WrittenAgain(platform::WidePathView path, std::size_t lines) {
  LogIn(DebugZone::kError, log_, [&] {
    return File(path) + " is written again, with the " + Lines(lines) + " that waited";
  });
}

void LineLog::GivenUp(platform::WidePathView path, std::size_t lines, RewriteResult cause) {
  LogIn(DebugZone::kError, log_, [&] {
    return File(path) + " was not written, " + Lines(lines) +
           " given up: " + std::string(Describe(cause));
  });
}

void LineLog::Lost() {
  LogIn(DebugZone::kError, log_,
        [] { return std::string("A line of a property file was lost: out of memory"); });
}

void LineLog::NotSynced() {
  LogIn(DebugZone::kError, log_, [] {
    return std::string("Property files can't be brought to the disk; it is tried again");
  });
}

void LineLog::Synced() {
  LogIn(DebugZone::kError, log_,
        [] { return std::string("Property files are on the disk again"); });
}

void LineLog::LeftBehind(const std::vector<std::string>& lines) {
  const std::set<std::string_view> properties(lines.begin(), lines.end());
  std::string text = "The service ends, not stored: ";
  std::size_t named = 0;
  for (const std::string_view left_side : properties) {
    if (named == kMostNamed) break;
    if (named++ > 0) text += ", ";
    text += QuoteForLog(NamesOf(left_side));
  }
  if (properties.size() > named)
    text += " and " + std::to_string(properties.size() - named) + " more";
  platform::WriteErrorLine({"valmere: ", text});
  LogIn(DebugZone::kError, log_, [&] { return std::move(text); });
}

}  // namespace valmere
