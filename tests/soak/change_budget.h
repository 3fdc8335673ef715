// Keeps the changes that wait for the publishing thread below the number that it can hold.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>

namespace valmere::test {

// Purpose: grants so many changes in a window. A window ends when a change that was made at its
// beginning has been told of: all changes from before it have been taken down by then, so that no
// more than those of two windows ever wait. A machine that is slow makes windows longer, and
// nothing else.
// Owner: the World.
// Threads: any.
class ChangeBudget {
 public:
  // The service holds 499. The beacon's own changes come on top.
  static constexpr std::uint32_t kOfAWindow = 220;

  // Waits until `count` changes may be made.
  void Take(std::uint32_t count) {
    std::unique_lock hold(lock_);
    next_window_.wait(hold, [&] { return count <= left_ || over_; });
    left_ -= count <= left_ ? count : left_;
  }
  void BeginWindow() {
    const std::lock_guard hold(lock_);
    left_ = kOfAWindow;
    next_window_.notify_all();
  }
  // No thread waits any more: no window will begin, because the run has failed.
  void End() {
    const std::lock_guard hold(lock_);
    over_ = true;
    next_window_.notify_all();
  }

 private:
  std::mutex lock_;
  std::condition_variable next_window_;
  std::uint32_t left_ = kOfAWindow;
  bool over_ = false;
};

}  // namespace valmere::test
