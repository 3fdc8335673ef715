// The lines that wait for their property file.
#pragma once

#include <cstddef>
#include <deque>
#include <optional>
#include <string_view>
#include <unordered_map>

#include "persist/file/property_file_writer.h"

namespace valmere {

// A request that waits.
struct WaitingLine {
  WriteRequest request;
  bool is_change = false;  // of a property: a later change may take its place
};

// Purpose: write requests in order. The line of a change takes the place of the one before it where
// the files come out the same, byte for byte, as if every line had been written in order.
// Owner: the line queue.
// Threads: one at a time.
// Errors: std::bad_alloc; nothing was added then.
class WaitingLines {
 public:
  WaitingLines() = default;
  WaitingLines(WaitingLines&&) = default;
  WaitingLines& operator=(WaitingLines&&) = default;

  // A line that keeps its position: no other is moved past it.
  void Add(WriteRequest request);
  // The line of a property's change; its left side has a "|".
  void AddChange(WriteRequest request);
  // Either of the two, as the line says.
  void Add(WaitingLine line);
  std::optional<WaitingLine> TakeFirst();
  // A copy of the first line, of which there must be one. It is not replaced any more.
  WriteRequest HoldFirst();
  // Puts a line that was taken in front of all others.
  void PutBack(WaitingLine line);
  void Clear() noexcept;
  bool empty() const { return lines_.empty(); }
  std::size_t size() const { return lines_.size(); }

 private:
  void KeepFirst();

  std::deque<WaitingLine> lines_;
  // The changes that a later one may replace, by their keys: the last of each key among those that
  // have been added since the last line that was no change or was for another file.
  std::unordered_map<std::string_view, WaitingLine*> changes_;
};

}  // namespace valmere
