// How long a peer is waited for.
#pragma once

#include <algorithm>
#include <chrono>

namespace valmere::host {

// Purpose: the time that a peer has for something. Only waiting for the peer counts, and a stop of
// the whole program, by a signal or a debugger, does not: a wait that takes much longer than it was
// meant to counts as one that did not.
// Owner: what waits.
// Threads: one at a time.
// Errors: none.
class Patience {
 public:
  explicit Patience(std::chrono::milliseconds time) : left_(time) {}

  bool over() const { return left_ <= Clock::duration::zero(); }
  // Calls `wait` with the milliseconds that it may take, and counts them; its result.
  template <class Wait>
  auto Spend(Wait wait) {
    // A wait that came to something may have taken more than was left.
    const auto most = std::clamp<Clock::duration>(left_, Clock::duration::zero(), kStep);
    const Clock::time_point before = Clock::now();
    const auto result =
        wait(static_cast<int>(std::chrono::ceil<std::chrono::milliseconds>(most).count()));
    left_ -= std::min<Clock::duration>(Clock::now() - before, most + kSlack);
    return result;
  }

 private:
  using Clock = std::chrono::steady_clock;

  static constexpr std::chrono::seconds kStep{1};
  static constexpr std::chrono::milliseconds kSlack{50};

  Clock::duration left_;
};

}  // namespace valmere::host
