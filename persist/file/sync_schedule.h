// When what was written is brought to the disk.
#pragma once

#include <algorithm>
#include <optional>

#include "platform/kernel.h"

namespace valmere {

// Purpose: has many lines brought to the disk at once, half a second after the first of them, and
// says when to try again where that failed: after a second, then two, four and so on, up to a
// minute. What is written meanwhile does not wait for that.
// Owner: the line queue's second thread.
// Threads: one.
// Errors: none.
class SyncSchedule {
 public:
  // With the time that a disk takes, it is there a second later.
  static constexpr platform::Ticks kDelay = 500 * platform::kTicksPerMillisecond;
  static constexpr platform::Ticks kFirstRetry = 1000 * platform::kTicksPerMillisecond;
  static constexpr platform::Ticks kLongestRetry = 60 * kFirstRetry;
  enum class News { kNone, kFails, kSucceedsAgain };

  // Something was written that is not on the disk.
  void NoteWritten(platform::Ticks now) {
    due_ = std::min(due_.value_or(now + kDelay), now + kDelay);
  }
  // Nothing when all is on the disk.
  std::optional<platform::Ticks> due() const { return due_; }
  bool IsDue(platform::Ticks now) const { return due_ && now >= *due_; }
  // What came of it, and what is new in that.
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
  platform::Ticks retry_ = 0;  // how long it waits for the next try; 0 when the last one succeeded
};

}  // namespace valmere
