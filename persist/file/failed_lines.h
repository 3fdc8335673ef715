// The lines of files that could not be written.
#pragma once

#include <cstddef>
#include <functional>
#include <list>
#include <optional>
#include <utility>

#include "persist/file/waiting_lines.h"
#include "platform/kernel.h"

namespace valmere {

// Purpose: keeps the lines of each file that could not be written, in order, and says when the
// first of them is to be tried again: with the next line for the file, and a second after it
// failed, then two, four and so on, up to a minute. Paths that differ in spelling alone are one
// file.
// Owner: the line queue.
// Threads: one at a time.
// Errors: std::bad_alloc; nothing was added or taken then.
class FailedLines {
 public:
  // A client may name one file after the other. The file that has failed the longest goes then, but
  // never the one that the service began with.
  static constexpr std::size_t kMostFiles = 32;
  static constexpr platform::Ticks kFirstDelay = 1000 * platform::kTicksPerMillisecond;
  static constexpr platform::Ticks kLongestDelay = 60 * kFirstDelay;

  // The lines of a file.
  struct GivenUp {
    platform::WidePath path;
    std::size_t lines;
  };

  explicit FailedLines(platform::WidePathView first_file)
      : first_file_(platform::NormalPath(first_file)) {}

  // Whether lines of the file are kept here, so that those that come behind them must be, too.
  bool Holds(platform::WidePathView path) const;
  // Keeps the line, which is the first of its file that has failed. What had to go for it.
  std::optional<GivenUp> AddFile(WaitingLine line, platform::Ticks now);
  // Keeps a line of a file that it holds; the file is due at once.
  void Add(WaitingLine line);

  // When the next file is due; nothing when there is none.
  std::optional<platform::Ticks> NextDue() const;
  // The first line of a file that is due. The same thread says next what became of it, by one of
  // the two below; lines may be added meanwhile.
  std::optional<WriteRequest> TryDue(platform::Ticks now);
  // It failed again, and stays the first.
  void Failed(platform::WidePathView path, platform::Ticks now);
  // It was written, or can't ever be. How many lines of the file have been finished since it
  // failed, if this was the last; it is held no more then, and is due again at once otherwise.
  std::optional<std::size_t> Finished(platform::WidePathView path);

  // All lines, one file after the other, which are kept no more; but for one that is being tried.
  void TakeAll(const std::function<void(const WaitingLine&)>& visit);

 private:
  struct File {
    platform::WidePath path;  // in its normal form
    WaitingLines lines;
    platform::Ticks delay;
    platform::Ticks due;
    bool asked_for = false;  // due whatever the time
    bool tried = false;      // its first line is on its way
    bool on_time = false;    // and not because it was asked for
    std::size_t finished = 0;
  };
  using Files = std::list<File>;

  Files::iterator Find(platform::WidePathView path);

  const platform::WidePath first_file_;
  Files files_;  // the one that has failed the longest first
};

}  // namespace valmere
