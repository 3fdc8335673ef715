// One line is stamped once and given to every writer.
#include "persist/log/log_facility.h"

#include <algorithm>
#include <exception>
#include <string>

#include "persist/file/file_stream.h"
#include "persist/log/debug_switches.h"
#include "persist/log/log_line.h"
#include "platform/kernel.h"
#include "platform/local_time.h"

namespace valmere {
namespace {

constexpr platform::WidePathView kDefaultLogFile = u"/Store/ValmereLog.txt";

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
      files, path,
      platform::OpenFlags::kWrite | platform::OpenFlags::kAppend | platform::OpenFlags::kBounded);
  if (!stream->IsOpen()) return;
  auto writer = std::make_unique<LogWriter>(std::move(stream), priority);
  if (writer->running()) writers_.push_back(std::move(writer));
}

void LogFacility::End() {
  ended_.store(true);
  for (const auto& writer : writers_)
    writer->End();
}

void LogFacility::Log(std::string_view message) {
  if (disabled_.load() || ended_.load() || writers_.empty()) return;
  try {
    if (IsOn(DebugZone::kThreadIds) && IsNewThread())
      Write("Thread " + std::to_string(platform::CurrentThreadId()) + " logs");
    Write(message);
  } catch (const std::exception&) {
    // No memory for a line: it is not worth more than what it reports.
  }
}

void LogFacility::Write(std::string_view message) {
  const std::string line = FormatLogLine(platform::LocalNow(), message);
  for (const auto& writer : writers_)
    writer->Write(line);
}

bool LogFacility::IsNewThread() {
  const std::uint32_t number = platform::CurrentThreadId();
  const ScopedLock hold(threads_lock_);
  if (std::find(threads_.begin(), threads_.end(), number) != threads_.end()) return false;
  if (threads_.size() == kMostThreads) threads_.erase(threads_.begin());
  threads_.push_back(number);
  return true;
}

}  // namespace valmere
