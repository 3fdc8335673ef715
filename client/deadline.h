// The moment by which a call has to be done.
#pragma once

#include <algorithm>
#include <chrono>

namespace valmere::client {

// Purpose: a point on the monotonic clock; a copy is cheap. One deadline can cover several calls.
// Owner: the caller.
// Threads: any.
// Errors: none.
class Deadline {
 public:
  using Clock = std::chrono::steady_clock;

  static Deadline After(std::chrono::milliseconds time) { return Deadline(Clock::now() + time); }
  static Deadline Never() { return Deadline(Clock::time_point::max()); }

  Clock::time_point when() const { return when_; }
  bool never() const { return when_ == Clock::time_point::max(); }
  bool passed() const { return !never() && Clock::now() >= when_; }
  // What is left, rounded up so that waiting that long reaches the deadline; 0 once it has passed.
  std::chrono::milliseconds left() const {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(when_ - Clock::now());
    return std::max(left, std::chrono::milliseconds(0));
  }
  // The one that passes first.
  Deadline Or(Deadline other) const { return when_ <= other.when_ ? *this : other; }

 private:
  explicit Deadline(Clock::time_point when) : when_(when) {}

  Clock::time_point when_;
};

}  // namespace valmere::client
