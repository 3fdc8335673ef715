// A thread for tests, on the same kernel interface as the code under test, so that tests run
// wherever the library does.
#pragma once

#include <functional>
#include <memory>
#include <stdexcept>
#include <utility>

#include "platform/kernel.h"

namespace valmere::test {

// Runs a function at once; Join or the destructor waits until it has returned.
class TestThread {
 public:
  explicit TestThread(std::function<void()> body)
      : body_(std::make_unique<std::function<void()>>(std::move(body))),
        thread_(std::make_unique<platform::Thread>()) {
    if (!thread_->Start([](void* f) { (*static_cast<std::function<void()>*>(f))(); }, body_.get(),
                        249))
      throw std::runtime_error("no thread");
  }
  TestThread(TestThread&&) = default;
  ~TestThread() {
    if (thread_) Join();
  }
  void Join() {
    while (!thread_->WaitEnded(1000)) {
    }
  }

 private:
  std::unique_ptr<std::function<void()>> body_;
  std::unique_ptr<platform::Thread> thread_;
};

// Lets other threads run until `condition` holds; for conditions that nothing signals. False after
// ten seconds, so that a broken test ends.
template <class Condition>
bool Eventually(Condition condition) {
  const platform::Ticks deadline =
      platform::MonotonicNow() + 10'000 * platform::kTicksPerMillisecond;
  platform::Semaphore pause;
  while (!condition()) {
    if (platform::MonotonicNow() > deadline) return false;
    pause.WaitUntil(platform::MonotonicNow() + platform::kTicksPerMillisecond);
  }
  return true;
}

}  // namespace valmere::test
