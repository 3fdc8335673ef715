// A lease is a number, and it lasts for as long as that number is the current one. The thread that
// ends a lease hands it to the first that waits, so a thread that takes one lease after the other
// can't keep others out. A waiting thread that finds the current lease too old makes a new number;
// when the old holder ends its lease later, nothing happens. A waiter is a node with handles from
// both sides: the node of a thread that was ended by force in its wait gets a lease that no thread
// uses, and that one expires like any other.
#include "persist/file/property_file_lease.h"

#include <algorithm>
#include <memory>
#include <utility>
#include <vector>

#include "driver/sync/lock.h"

namespace valmere {
namespace {

class Leases {
 public:
  std::uint64_t Grant(bool rewrites, const PropertyFileLease::GiveUp& give_up) EXCLUDES(lock_) {
    const ScopedLock hold(lock_);
    if (current_ == 0) return Begin(rewrites);
    const auto waiter = std::make_shared<Waiter>(rewrites);
    waiting_.push_back(waiter);
    const platform::Ticks asked = platform::MonotonicNow();
    for (;;) {
      if (waiter->lease != 0) return waiter->lease;
      const bool given_up = give_up && give_up();
      const platform::Ticks deadline = std::max(asked, begun_) + PropertyFileLease::kLongest;
      if (given_up || platform::MonotonicNow() >= deadline) {
        std::erase(waiting_, waiter);
        return given_up ? 0 : Begin(rewrites);
      }
      lock_.Leave();
      waiter->wake.WaitUntil(deadline);
      lock_.Enter();
    }
  }

  void End(std::uint64_t lease) EXCLUDES(lock_) {
    const ScopedLock hold(lock_);
    if (lease != current_) return;
    current_ = 0;
    if (waiting_.empty()) return;
    const std::shared_ptr<Waiter> next = std::move(waiting_.front());
    waiting_.erase(waiting_.begin());
    next->lease = Begin(next->rewrites);
    next->wake.Release();
  }

  bool IsCurrent(std::uint64_t lease) EXCLUDES(lock_) {
    const ScopedLock hold(lock_);
    return lease == current_;
  }

  bool IsLastRewrite(std::uint64_t lease) EXCLUDES(lock_) {
    const ScopedLock hold(lock_);
    return lease == last_rewrite_;
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
    std::uint64_t lease = 0;  // once one has been granted; changed under the lock
  };

  std::uint64_t Begin(bool rewrites) REQUIRES(lock_) {
    current_ = ++last_;
    begun_ = platform::MonotonicNow();
    if (rewrites) last_rewrite_ = current_;
    return current_;
  }

  Lock lock_;
  std::uint64_t last_ GUARDED_BY(lock_) = 0;
  std::uint64_t current_ GUARDED_BY(lock_) = 0;  // 0 when there is no holder
  platform::Ticks begun_ GUARDED_BY(lock_) = 0;
  std::uint64_t last_rewrite_ GUARDED_BY(lock_) = 0;
  std::vector<std::shared_ptr<Waiter>> waiting_ GUARDED_BY(lock_);  // in the order of arrival
};

Leases& TheLeases() {
  static Leases leases;
  return leases;
}

}  // namespace

PropertyFileLease::PropertyFileLease(For purpose, const GiveUp& give_up)
    : number_(TheLeases().Grant(purpose == For::kRewriting, give_up)) {}

PropertyFileLease::~PropertyFileLease() {
  if (granted()) TheLeases().End(number_);
}

bool PropertyFileLease::MayWrite() const {
  return TheLeases().IsLastRewrite(number_);
}

bool PropertyFileLease::Lasts() const {
  return TheLeases().IsCurrent(number_);
}

void PropertyFileLease::WakeAll() {
  TheLeases().WakeAll();
}

}  // namespace valmere
