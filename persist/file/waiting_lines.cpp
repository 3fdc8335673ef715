// Why a change may take an earlier one's place: a rewrite touches one line, the first that begins
// with the request's left side, or else adds one. Two left sides of which neither begins with the
// other never touch each other's line, so their requests can change places but for the order in
// which they add lines; and the line that is added first keeps its position. Where one left side
// begins with the other they have the same key, which is all before the first "|": so only the last
// change of a key is compared, and a change with another left side is queued behind it.
//
// Two paths may lead to one file, so no change is moved past a line for another path.
#include "persist/file/waiting_lines.h"

#include <new>
#include <utility>

namespace valmere {
namespace {

std::string_view KeyOf(const WriteRequest& request) {
  const std::string_view prefix = request.prefix;
  return prefix.substr(0, prefix.find('|'));
}

}  // namespace

void WaitingLines::Add(WriteRequest request) {
  lines_.push_back({std::move(request)});
  changes_.clear();
}

void WaitingLines::AddChange(WriteRequest request) {
  if (lines_.empty() || lines_.back().request.path != request.path) changes_.clear();
  const auto earlier = changes_.find(KeyOf(request));
  if (earlier != changes_.end()) {
    WaitingLine& line = *earlier->second;
    if (line.request.prefix == request.prefix) {
      line.request.line = std::move(request.line);
      return;
    }
    changes_.erase(earlier);
  }
  lines_.push_back({std::move(request), true});
  try {
    changes_.emplace(KeyOf(lines_.back().request), &lines_.back());
  } catch (const std::bad_alloc&) {
    // The line is queued; it will just not be replaced.
  }
}

void WaitingLines::Add(WaitingLine line) {
  if (line.is_change) return AddChange(std::move(line.request));
  Add(std::move(line.request));
}

std::optional<WaitingLine> WaitingLines::TakeFirst() {
  if (lines_.empty()) return std::nullopt;
  KeepFirst();
  std::optional<WaitingLine> first = std::move(lines_.front());
  lines_.pop_front();
  return first;
}

WriteRequest WaitingLines::HoldFirst() {
  WriteRequest copy = lines_.front().request;
  KeepFirst();
  return copy;
}

// No change takes its place from here on.
void WaitingLines::KeepFirst() {
  const auto change = changes_.find(KeyOf(lines_.front().request));
  if (change != changes_.end() && change->second == &lines_.front()) changes_.erase(change);
}

void WaitingLines::PutBack(WaitingLine line) {
  lines_.push_front(std::move(line));
}

void WaitingLines::Clear() noexcept {
  changes_.clear();
  lines_.clear();
}

}  // namespace valmere
