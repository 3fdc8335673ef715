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
// failed, then two, four and so on, up to a minute. Paths that differ only in their spelling
// are one file.
// Owner: the line queue.
// Threads: one at a time.
// Errors: std::bad_alloc; nothing was added or taken then.
class FailedLines {
 public:
  // A client may name one file after the other. Beyond this the file that has failed the longest is
  // dropped, but never the one that the service began with.
  static constexpr std::size_t kMostFiles = 32;
  static constexpr platform::Ticks kFirstDelay = 1000 * platform::kTicksPerMillisecond;
  static constexpr platform::Ticks kLongestDelay = 60 * kFirstDelay;

  // A file that was dropped, with the number of its lines.
  struct GivenUp {
    platform::WidePath path;
    std::size_t lines;
  };

  explicit FailedLines(platform::WidePathView first_file)
      : first_file_(platform::NormalPath(first_file)) {}

  // Whether lines of the file are kept here; later lines of that file must be kept here too.
  bool Holds(platform::WidePathView path) const;
  // Keeps the line, which is the first of its file that has failed. Returns what had to be dropped
  // for it.
  std::optional<GivenUp> AddFile(WaitingLine line, platform::Ticks now);
  // Keeps a line of a file that it holds; the file is due at once.
  void Add(WaitingLine line);

  // When the next file is due; nothing when no file is held.
  std::optional<platform::Ticks> NextDue() const;
  // The first line of a file that is due. The same thread then reports the result by one of the two
  // below; lines may be added meanwhile.
  std::optional<WriteRequest> TryDue(platform::Ticks now);
  // It failed again, and stays the first.
  void Failed(platform::WidePathView path, platform::Ticks now);
  // It was written, or never can be. If it was the last line, the file is no longer held, and this
  // returns how many of its lines have been finished since it failed; else it is due at once.
  std::optional<std::size_t> Finished(platform::WidePathView path);

  // Passes all lines to `visit`, one file after the other, but not one that is being tried, and
  // keeps none of them.
  void TakeAll(const std::function<void(const WaitingLine&)>& visit);

 private:
  struct File {
    platform::WidePath path;  // in its normal form
    WaitingLines lines;
    platform::Ticks delay;
    platform::Ticks due;
    bool asked_for = false;  // due at once, whatever `due` says
    bool tried = false;      // its first line is being written
    bool on_time = false;    // that try began because `due` had come
    std::size_t finished = 0;
  };
  using Files = std::list<File>;

  Files::iterator Find(platform::WidePathView path);

  const platform::WidePath first_file_;
  Files files_;  // the file that has failed the longest comes first
};

}  // namespace valmere
