// When what was written is synced.
#pragma once

#include <algorithm>
#include <optional>

#include "platform/kernel.h"

namespace valmere {

// Purpose: has many lines synced at once, half a second after the first of them, and says when to
// try again if that failed: after a second, then two, four and so on, up to a minute. Lines that
// are written meanwhile do not wait for that.
// Owner: the line queue's second line writer.
// Threads: one.
// Errors: none.
class SyncSchedule {
 public:
  // With the time that a disk takes, a line is on it within a second.
  static constexpr platform::Ticks kDelay = 500 * platform::kTicksPerMillisecond;
  static constexpr platform::Ticks kFirstRetry = 1000 * platform::kTicksPerMillisecond;
  static constexpr platform::Ticks kLongestRetry = 60 * kFirstRetry;
  enum class News { kNone, kFails, kSucceedsAgain };

  // Something was written that is not synced.
  void NoteWritten(platform::Ticks now) {
    due_ = std::min(due_.value_or(now + kDelay), now + kDelay);
  }
  // Nothing when all is synced.
  std::optional<platform::Ticks> due() const { return due_; }
  bool IsDue(platform::Ticks now) const { return due_ && now >= *due_; }
  // The result of a sync; returns what is new in it.
  News Done(bool succeeded, platform::Ticks now) {
    const bool failed_before = retry_ != 0;
    if (succeeded) {
      due_.reset();
      retry_ = 0;
      return failed_before ? News::kSucceedsAgain : News::kNone;
    }
    retry_ = failed_before ? std::min(2 * retry_, kLongestRetry) : kFirstRetry;
    due_ = now + retry_;
    return failed_before ? News::kNone : News::kFails;
  }

 private:
  std::optional<platform::Ticks> due_;
  platform::Ticks retry_ = 0;  // the delay of the next try; 0 when the last one succeeded
};

}  // namespace valmere
