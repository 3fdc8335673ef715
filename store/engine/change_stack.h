// Properties whose values have changed, until the next publishing pass.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <utility>

#include "driver/sync/lock.h"
#include "store/property/property.h"

namespace valmere {

// Purpose: a bounded stack: what changed last comes out first; what no longer fits is dropped.
// Owner: the pending updates.
// Threads: any thread pushes; one takes.
// Errors: Push returns false for a change that was dropped.
class ChangeStack {
 public:
  using Handle = std::shared_ptr<Property>;

  static constexpr std::uint32_t kSlots = 500;  // one always stays free

  bool Push(const Handle& property) EXCLUDES(lock_) {
    const ScopedLock hold(lock_);
    const std::uint32_t count = count_.load();
    if (count + 1 >= kSlots) return false;
    slots_[count] = property;
    count_.store(count + 1);
    return true;
  }

  // Empty when nothing waits.
  Handle Pop() EXCLUDES(lock_) {
    const ScopedLock hold(lock_);
    const std::uint32_t count = count_.load();
    if (count == 0) return Handle();
    count_.store(count - 1);
    return std::move(slots_[count - 1]);
  }

  // Whether the next pass finds a change.
  bool HasChanges() const EXCLUDES(lock_) {
    const ScopedLock hold(lock_);
    return count_.load() != 0;
  }

 private:
  mutable Lock lock_;
  std::array<Handle, kSlots> slots_ GUARDED_BY(lock_);
  std::atomic<std::uint32_t> count_{0};
};

}  // namespace valmere
