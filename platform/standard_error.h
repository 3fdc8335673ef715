// The process's standard error, for the few lines that are written there. Another program made it
// and may not read it: a pipe that is full, a terminal that is stopped, a journal that is behind.
//
// Nothing here waits, takes a lock, allocates, raises a signal or changes errno. A line goes out in
// one piece, at once or not at all; the next one that goes out tells how many did not.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <string_view>

#include "platform/kernel.h"

namespace valmere::platform {

// Longer lines are cut: a pipe takes no more in one piece.
inline constexpr std::size_t kLongestErrorLine = 4000;

// Writes the parts one behind the other, and a line end.
void WriteErrorLine(std::initializer_list<std::string_view> parts) noexcept;

// The same for what clients can cause at will: after a burst of lines, that many a second.
inline constexpr std::uint32_t kErrorLineBurst = 100;
inline constexpr std::uint32_t kErrorLinesPerSecond = 1;
void WriteErrorLineSparingly(std::initializer_list<std::string_view> parts) noexcept;

// Purpose: a rate limit: a burst, and then one for each interval; unused intervals allow the next
// burst.
// Owner: the code that it limits.
// Threads: any.
// Errors: none.
class BurstLimit {
 public:
  constexpr BurstLimit(std::uint32_t burst, Ticks interval)
      : interval_(interval), burst_time_(burst * interval) {}

  // Whether one more may go through at `now`, on the monotonic clock.
  bool Allows(Ticks now) noexcept;

 private:
  const Ticks interval_;
  const Ticks burst_time_;
  std::atomic<Ticks> paid_until_{0};  // when a whole burst is allowed again
};

// What a backend implements.
enum class Taken { kAll, kPart, kNothing };
inline constexpr std::size_t kMostOfferedBytes = 4096;  // a line and what was to be said before it
// Offers the bytes to the standard error of this moment, which may be another at the next call.
// Does not wait for it and leaves it as it is.
Taken OfferToStandardError(std::string_view bytes) noexcept;

}  // namespace valmere::platform
