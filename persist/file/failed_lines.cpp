// A line that is being tried stays where it is, so that nothing has to be put back: lines that
// arrive meanwhile are added behind it.
#include "persist/file/failed_lines.h"

#include <algorithm>
#include <utility>

namespace valmere {

FailedLines::Files::iterator FailedLines::Find(platform::WidePathView path) {
  if (files_.empty()) return files_.end();
  return std::find_if(
      files_.begin(), files_.end(),
      [normal = platform::NormalPath(path)](const File& file) { return file.path == normal; });
}

bool FailedLines::Holds(platform::WidePathView path) const {
  if (files_.empty()) return false;
  const platform::WidePath normal = platform::NormalPath(path);
  return std::any_of(files_.begin(), files_.end(),
                     [&](const File& file) { return file.path == normal; });
}

std::optional<FailedLines::GivenUp> FailedLines::AddFile(WaitingLine line, platform::Ticks now) {
  Files added;
  added.push_back({platform::NormalPath(line.request.path), {}, kFirstDelay, now + kFirstDelay});
  added.front().lines.PutBack(std::move(line));
  files_.splice(files_.end(), added);
  if (files_.size() <= kMostFiles) return std::nullopt;
  const auto oldest = std::find_if(files_.begin(), files_.end(),
                                   [&](const File& file) { return file.path != first_file_; });
  std::optional<GivenUp> given_up{{std::move(oldest->path), oldest->lines.size()}};
  files_.erase(oldest);
  return given_up;
}

void FailedLines::Add(WaitingLine line) {
  const auto file = Find(line.request.path);
  file->lines.Add(std::move(line));
  file->asked_for = true;
}

std::optional<platform::Ticks> FailedLines::NextDue() const {
  std::optional<platform::Ticks> next;
  for (const File& file : files_) {
    const platform::Ticks due = file.asked_for ? 0 : file.due;
    next = std::min(next.value_or(due), due);
  }
  return next;
}

// The next time is set before memory is needed: when there is no memory the file is due again then.
std::optional<WriteRequest> FailedLines::TryDue(platform::Ticks now) {
  for (File& file : files_) {
    const bool on_time = now >= file.due;
    if (!file.asked_for && !on_time) continue;
    file.asked_for = false;
    if (on_time) file.due = now + file.delay;
    WriteRequest request = file.lines.HoldFirst();
    file.tried = true;
    file.on_time = on_time;
    return request;
  }
  return std::nullopt;
}

// The file may have been dropped while it was tried, and be held again for other lines since. A try
// that a new line has caused does not make the wait longer.
void FailedLines::Failed(platform::WidePathView path, platform::Ticks now) {
  const auto file = Find(path);
  if (file == files_.end() || !file->tried) return;
  file->tried = false;
  if (!file->on_time) return;
  file->delay = std::min(2 * file->delay, kLongestDelay);
  file->due = now + file->delay;
}

std::optional<std::size_t> FailedLines::Finished(platform::WidePathView path) {
  const auto file = Find(path);
  if (file == files_.end() || !file->tried) return std::nullopt;
  file->tried = false;
  file->lines.TakeFirst();
  ++file->finished;
  if (!file->lines.empty()) {
    file->asked_for = true;
    return std::nullopt;
  }
  const std::size_t finished = file->finished;
  files_.erase(file);
  return finished;
}

void FailedLines::TakeAll(const std::function<void(const WaitingLine&)>& visit) {
  for (File& file : files_) {
    if (file.tried) file.lines.TakeFirst();
    while (const auto line = file.lines.TakeFirst())
      visit(*line);
  }
  files_.clear();
}

}  // namespace valmere
