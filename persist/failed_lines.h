// The lines of files that could not be written.
#pragma once

#include <cstddef>
#include <functional>
#include <list>
#include <optional>
#include <string_view>

#include "persist/waiting_lines.h"
#include "platform/kernel.h"

namespace valmere {

// Purpose: keeps the lines of each file that could not be written, in order, and says when the first
// of them is to be tried again: with the next line for the file, and a second after it failed, then
// two, four and so on, up to a minute.
// Owner: the line queue.
// Threads: one at a time.
// Errors: std::bad_alloc; nothing was added then.
class FailedLines {
 public:
  // A client may name one file after the other. The file that has failed the longest goes then.
  static constexpr std::size_t kMostFiles = 32;
  static constexpr platform::Ticks kFirstDelay = 1000 * platform::kTicksPerMillisecond;
  static constexpr platform::Ticks kLongestDelay = 60 * kFirstDelay;

  // The lines of a file.
  struct GivenUp {
    platform::WidePath path;
    std::size_t lines;
  };

  // Whether lines of the file are kept here, so that those that come behind them must be, too.
  bool Holds(platform::WidePathView path) const;
  // Keeps the line, which is the first of its file that has failed. What had to go for it.
  std::optional<GivenUp> AddFile(WaitingLine line, platform::Ticks now);
  // Keeps a line of a file that it holds; the file is due at once.
  void Add(WaitingLine line);

  // When the next file is due; nothing when there is none.
  std::optional<platform::Ticks> NextDue() const;
  // The first line of a file that is due. The same thread says next what became of it, by one of the
  // two below; lines may be added meanwhile.
  std::optional<WaitingLine> TakeDue(platform::Ticks now);
  // It failed again, and is the first once more.
  void PutBack(WaitingLine line, platform::Ticks now);
  // It was written, or can't ever be. How many lines of the file have been taken since it failed, if
  // this was the last; it is held no more then, and is due again at once otherwise.
  std::optional<std::size_t> Finished(platform::WidePathView path);

  // All lines, one file after the other, which are kept no more.
  void TakeAll(const std::function<void(const WaitingLine&)>& visit);

 private:
  struct File {
    platform::WidePath path;
    WaitingLines lines;
    platform::Ticks delay;
    platform::Ticks due;
    bool asked_for = false;  // due whatever the time
    std::size_t taken = 0;
  };

  using Files = std::list<File>;

  Files::iterator Find(platform::WidePathView path);

  Files files_;  // the one that has failed the longest first
};

}  // namespace valmere
