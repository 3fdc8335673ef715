// Counts what a property announces.
#pragma once

#include <atomic>
#include <memory>

#include "store/property/property.h"

namespace valmere::test {

// Listens to one property; must outlive its announcements.
class ChangeCounter {
 public:
  explicit ChangeCounter(Property& property) {
    property.AddListener([this](const std::shared_ptr<Property>&) { ++count_; });
  }
  ChangeCounter(const ChangeCounter&) = delete;
  ChangeCounter& operator=(const ChangeCounter&) = delete;

  int count() const { return count_.load(); }

 private:
  std::atomic<int> count_{0};
};

}  // namespace valmere::test
