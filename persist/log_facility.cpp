// One line is stamped once and given to every writer.
#include "persist/log_facility.h"

#include <exception>
#include <string>

#include "persist/debug_switches.h"
#include "persist/file_stream.h"
#include "persist/log_line.h"
#include "platform/kernel.h"
#include "platform/local_time.h"

namespace valmere {
namespace {

constexpr platform::WidePathView kDefaultLogFile = u"/Store/ValmereLog.txt";

std::string Line(std::string_view message) {
  if (!IsOn(DebugZone::kThreadIds)) return FormatLogLine(platform::LocalNow(), message);
  const std::string id = std::to_string(platform::CurrentThreadId());
  return FormatLogLine(platform::LocalNow(), "thread " + id + ": " + std::string(message));
}

}  // namespace

platform::WidePath ReadLogFileName(platform::FileSystem& files, platform::WidePathView name_file) {
  const auto content = FileStream(files, name_file, platform::OpenFlags::kRead).ReadWhole();
  std::string_view name = content ? std::string_view(*content) : std::string_view();
  name = name.substr(0, name.find('\n'));
  const std::size_t last = name.find_last_not_of(" \t\r\n");
  if (last == std::string_view::npos) return platform::WidePath(kDefaultLogFile);
  return platform::WidenPath(name.substr(0, last + 1));
}

void LogFacility::AddFile(platform::FileSystem& files, platform::WidePathView path, int priority) {
  auto stream = std::make_unique<FileStream>(
      files, path, platform::OpenFlags::kWrite | platform::OpenFlags::kAppend);
  if (!stream->IsOpen()) return;
  auto writer = std::make_unique<LogWriter>(std::move(stream), priority);
  if (writer->running()) writers_.push_back(std::move(writer));
}

void LogFacility::Log(std::string_view message) {
  if (disabled_.load() || writers_.empty()) return;
  try {
    const std::string line = Line(message);
    for (const auto& writer : writers_)
      writer->Write(line);
  } catch (const std::exception&) {
    // No memory for a line: it is not worth more than what it tells of.
  }
}

}  // namespace valmere
