// The file that is being tried is held all the while, without the line that is on its way: so what
// comes for it meanwhile comes behind that.
#include "persist/failed_lines.h"

#include <algorithm>
#include <utility>

namespace valmere {

FailedLines::Files::iterator FailedLines::Find(platform::WidePathView path) {
  return std::find_if(files_.begin(), files_.end(),
                      [&](const File& file) { return file.path == path; });
}

bool FailedLines::Holds(platform::WidePathView path) const {
  return std::any_of(files_.begin(), files_.end(),
                     [&](const File& file) { return file.path == path; });
}

std::optional<FailedLines::GivenUp> FailedLines::AddFile(WaitingLine line, platform::Ticks now) {
  Files added;
  added.push_back({line.request.path, {}, kFirstDelay, now + kFirstDelay});
  added.front().lines.PutBack(std::move(line));
  files_.splice(files_.end(), added);
  if (files_.size() <= kMostFiles) return std::nullopt;
  std::optional<GivenUp> given_up{{std::move(files_.front().path), files_.front().lines.size()}};
  files_.pop_front();
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

std::optional<WaitingLine> FailedLines::TakeDue(platform::Ticks now) {
  for (File& file : files_) {
    if (!file.asked_for && now < file.due) continue;
    file.asked_for = false;
    return file.lines.TakeFirst();
  }
  return std::nullopt;
}

// A try that a line has asked for takes nothing from the wait for the next one.
void FailedLines::PutBack(WaitingLine line, platform::Ticks now) {
  const auto file = Find(line.request.path);
  if (file == files_.end()) return;
  file->lines.PutBack(std::move(line));
  if (now < file->due) return;
  file->delay = std::min(2 * file->delay, kLongestDelay);
  file->due = now + file->delay;
}

std::optional<std::size_t> FailedLines::Finished(platform::WidePathView path) {
  const auto file = Find(path);
  if (file == files_.end()) return std::nullopt;
  ++file->taken;
  if (!file->lines.empty()) {
    file->asked_for = true;
    return std::nullopt;
  }
  const std::size_t taken = file->taken;
  files_.erase(file);
  return taken;
}

void FailedLines::TakeAll(const std::function<void(const WaitingLine&)>& visit) {
  for (File& file : files_) {
    while (const auto line = file.lines.TakeFirst())
      visit(*line);
  }
  files_.clear();
}

}  // namespace valmere
