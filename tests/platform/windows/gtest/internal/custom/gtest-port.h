// What the test framework lets its users provide, by this name: it would take its one notification
// from the standard library's mutex, which is missing with the compiler's own thread model.
#pragma once

#include "platform/kernel.h"

#define GTEST_HAS_NOTIFICATION_ 1

namespace testing::internal {

class Notification {
 public:
  void Notify() { notified_.Release(); }
  void WaitForNotification() {
    notified_.Wait();
    notified_.Release();  // for whoever else waits
  }

 private:
  valmere::platform::Semaphore notified_;
};

}  // namespace testing::internal
