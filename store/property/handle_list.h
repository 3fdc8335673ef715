// Properties that are published at the end of every period.
#pragma once

#include <memory>
#include <utility>
#include <vector>

#include "driver/sync/lock.h"
#include "store/property/property.h"

namespace valmere {

// Purpose: a list of handles in order of arrival.
// Owner: the pending updates.
// Threads: any.
// Errors: std::bad_alloc.
class HandleList {
 public:
  using Handles = std::vector<std::shared_ptr<Property>>;

  void Add(std::shared_ptr<Property> property) EXCLUDES(lock_) {
    const ScopedLock hold(lock_);
    handles_.push_back(std::move(property));
  }
  // Not being on the list is no error. The caller's handle keeps the property beyond the lock.
  void Remove(const std::shared_ptr<Property>& property) EXCLUDES(lock_) {
    const ScopedLock hold(lock_);
    std::erase(handles_, property);
  }
  Handles Copy() const EXCLUDES(lock_) {
    const ScopedLock hold(lock_);
    return handles_;
  }

 private:
  mutable Lock lock_;
  Handles handles_ GUARDED_BY(lock_);
};

}  // namespace valmere
