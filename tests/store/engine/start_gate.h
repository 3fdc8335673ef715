// Lets threads begin together, so that a race between them has a chance to show.
#pragma once

#include <atomic>

namespace valmere::test {

// Every one of `threads` threads waits in Pass until all have come.
class StartGate {
 public:
  explicit StartGate(int threads) : missing_(threads) {}

  void Pass() {
    --missing_;
    while (missing_.load() > 0) {
    }
  }

 private:
  std::atomic<int> missing_;
};

}  // namespace valmere::test
