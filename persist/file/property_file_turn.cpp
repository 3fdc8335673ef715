// A turn is a number, and it lasts for as long as that number is the current one. Whoever ends a
// turn hands it to the first that waits, so nobody who takes one turn after the other keeps others
// out. Whoever finds that the current turn has lasted too long makes a new number; the old holder's
// end then concerns nobody. What waits is a node with handles from both sides: the node of a thread
// that was ended by force in its wait gets a turn that nobody uses, which passes like any other.
#include "persist/file/property_file_turn.h"

#include <algorithm>
#include <memory>
#include <utility>
#include <vector>

#include "driver/sync/lock.h"

namespace valmere {
namespace {

class Turns {
 public:
  std::uint64_t Take(bool rewrites, const PropertyFileTurn::GiveUp& give_up) EXCLUDES(lock_) {
    const ScopedLock hold(lock_);
    if (current_ == 0) return Begin(rewrites);
    const auto waiter = std::make_shared<Waiter>(rewrites);
    waiting_.push_back(waiter);
    const platform::Ticks asked = platform::MonotonicNow();
    for (;;) {
      if (waiter->turn != 0) return waiter->turn;
      const bool given_up = give_up && give_up();
      const platform::Ticks deadline = std::max(asked, begun_) + PropertyFileTurn::kLongest;
      if (given_up || platform::MonotonicNow() >= deadline) {
        std::erase(waiting_, waiter);
        return given_up ? 0 : Begin(rewrites);
      }
      lock_.Leave();
      waiter->wake.WaitUntil(deadline);
      lock_.Enter();
    }
  }

  void End(std::uint64_t turn) EXCLUDES(lock_) {
    const ScopedLock hold(lock_);
    if (turn != current_) return;
    current_ = 0;
    if (waiting_.empty()) return;
    const std::shared_ptr<Waiter> next = std::move(waiting_.front());
    waiting_.erase(waiting_.begin());
    next->turn = Begin(next->rewrites);
    next->wake.Release();
  }

  bool IsCurrent(std::uint64_t turn) EXCLUDES(lock_) {
    const ScopedLock hold(lock_);
    return turn == current_;
  }

  bool IsLastRewrite(std::uint64_t turn) EXCLUDES(lock_) {
    const ScopedLock hold(lock_);
    return turn == last_rewrite_;
  }

  void WakeAll() EXCLUDES(lock_) {
    const ScopedLock hold(lock_);
    for (const auto& waiter : waiting_)
      waiter->wake.Release();
  }

 private:
  struct Waiter {
    explicit Waiter(bool rewrites_files) : rewrites(rewrites_files) {}
    platform::Semaphore wake;
    const bool rewrites;
    std::uint64_t turn = 0;  // once it has been handed one; changed under the lock
  };

  std::uint64_t Begin(bool rewrites) REQUIRES(lock_) {
    current_ = ++last_;
    begun_ = platform::MonotonicNow();
    if (rewrites) last_rewrite_ = current_;
    return current_;
  }

  Lock lock_;
  std::uint64_t last_ GUARDED_BY(lock_) = 0;
  std::uint64_t current_ GUARDED_BY(lock_) = 0;  // 0 when nobody has the turn
  platform::Ticks begun_ GUARDED_BY(lock_) = 0;
  std::uint64_t last_rewrite_ GUARDED_BY(lock_) = 0;
  std::vector<std::shared_ptr<Waiter>> waiting_ GUARDED_BY(lock_);  // the first to come first
};

Turns& TheTurns() {
  static Turns turns;
  return turns;
}

}  // namespace

PropertyFileTurn::PropertyFileTurn(For purpose, const GiveUp& give_up)
    : number_(TheTurns().Take(purpose == For::kRewriting, give_up)) {}

PropertyFileTurn::~PropertyFileTurn() {
  if (taken()) TheTurns().End(number_);
}

bool PropertyFileTurn::MayWrite() const {
  return TheTurns().IsLastRewrite(number_);
}

bool PropertyFileTurn::Lasts() const {
  return TheTurns().IsCurrent(number_);
}

void PropertyFileTurn::WakeAll() {
  TheTurns().WakeAll();
}

}  // namespace valmere
