// Memory that runs out when a test says so, and a count of what is in use. A program that links
// allocations.cpp has its global operator new replaced.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <new>

namespace valmere::test {

// Purpose: while it lives, this thread is granted so many allocations and no more: the next ones
// throw std::bad_alloc. One at a time on a thread; keep the test's own checks out of its scope.
class LimitedAllocations {
 public:
  explicit LimitedAllocations(std::uint32_t granted);
  ~LimitedAllocations();
  LimitedAllocations(const LimitedAllocations&) = delete;
  LimitedAllocations& operator=(const LimitedAllocations&) = delete;
};

// Purpose: while it lives, the next allocation of this thread calls a function first, once. One at
// a time on a thread.
class AtTheNextAllocation {
 public:
  explicit AtTheNextAllocation(std::function<void()> act);
  ~AtTheNextAllocation();
  AtTheNextAllocation(const AtTheNextAllocation&) = delete;
  AtTheNextAllocation& operator=(const AtTheNextAllocation&) = delete;

 private:
  const std::function<void()> act_;
};

// Runs `act` with no allocation, then with one, two and so on until it no longer throws; after each
// time that it threw, `check` sees what it left.
template <class Act, class Check>
void FailEachAllocation(Act act, Check check) {
  for (std::uint32_t granted = 0;; ++granted) {
    try {
      const LimitedAllocations limited(granted);
      act();
      return;
    } catch (const std::bad_alloc&) {
    }
    check();
  }
}

// What the process has allocated and not given back.
std::size_t BytesInUse();

}  // namespace valmere::test
