#include "driver/sync/shared_lock.h"

#include <gtest/gtest.h>

#include "tests/support/test_thread.h"

namespace valmere {
namespace {

bool CanEnter(Lock& lock) NO_THREAD_SAFETY_ANALYSIS {
  bool entered = false;
  testing::TestThread other([&]() NO_THREAD_SAFETY_ANALYSIS {
    entered = lock.TryEnter();
    if (entered) lock.Leave();
  });
  other.Join();
  return entered;
}

TEST(SharedLock, IsOneLockForAllItsHandles) {
  const SharedLock first = MakeSharedLock();
  const SharedLock second = first;
  ScopedLock hold(*first);
  EXPECT_FALSE(CanEnter(*second));
  EXPECT_TRUE(CanEnter(*MakeSharedLock()));
}

TEST(SharedLock, LivesUntilItsLastHandleGoes) {
  SharedLock first = MakeSharedLock();
  const std::weak_ptr<Lock> watch = first;
  SharedLock second = first;
  first.reset();
  EXPECT_TRUE(CanEnter(*second));
  second.reset();
  EXPECT_TRUE(watch.expired());
}

}  // namespace
}  // namespace valmere
