#include "persist/file/property_file_lease.h"

#include <gtest/gtest.h>

#include <atomic>
#include <optional>
#include <utility>

#include "platform/kernel.h"
#include "tests/support/test_thread.h"

namespace valmere::test {
namespace {

constexpr PropertyFileLease::For kReading = PropertyFileLease::For::kReading;
constexpr PropertyFileLease::For kRewriting = PropertyFileLease::For::kRewriting;

// Asks for a lease on a thread of its own and keeps it until it is told to end.
class OnAThread {
 public:
  explicit OnAThread(PropertyFileLease::For purpose, PropertyFileLease::GiveUp give_up = nullptr)
      : thread_([this, purpose, give_up = std::move(give_up)] {
          asking_.Release();
          {
            const PropertyFileLease lease(purpose, give_up);
            granted_ = lease.granted();
            begun_.Release();
            ending_.Wait();
            may_write_ = lease.MayWrite();
          }
        }) {
    asking_.Wait();
  }
  ~OnAThread() { End(); }
  OnAThread(const OnAThread&) = delete;
  OnAThread& operator=(const OnAThread&) = delete;

  bool BeginsWithin(std::uint32_t milliseconds) {
    return begun_.WaitUntil(platform::MonotonicNow() +
                            milliseconds * platform::kTicksPerMillisecond);
  }
  // Whether it might still have written.
  bool End() {
    if (!std::exchange(ended_, true)) {
      ending_.Release();
      thread_.Join();
    }
    return may_write_;
  }
  bool granted() const { return granted_; }

 private:
  platform::Semaphore asking_;
  platform::Semaphore begun_;
  platform::Semaphore ending_;
  std::atomic<bool> granted_{false};
  std::atomic<bool> may_write_{false};
  bool ended_ = false;
  TestThread thread_;
};

TEST(PropertyFileLease, IsGrantedAtOnceWhereNoThreadHasIt) {
  for (int i = 0; i < 3; ++i) {
    const PropertyFileLease lease(kReading);
    EXPECT_TRUE(lease.granted());
  }
}

TEST(PropertyFileLease, EndsBeforeTheNextBegins) {
  std::optional<PropertyFileLease> first(std::in_place, kRewriting);
  OnAThread second(kReading);
  EXPECT_FALSE(second.BeginsWithin(20));
  EXPECT_TRUE(first->MayWrite());
  first.reset();
  EXPECT_TRUE(second.BeginsWithin(10'000));
}

TEST(PropertyFileLease, GoesToTheThreadThatWaitedAndNotToItsLastHolder) {
  for (int round = 0; round < 20; ++round) {
    std::atomic<bool> waited{false};
    std::optional<PropertyFileLease> first(std::in_place, kRewriting);
    // Asked once it is in line.
    OnAThread second(kReading, [&] {
      waited = true;
      return false;
    });
    ASSERT_TRUE(Eventually([&] { return waited.load(); }));
    first.reset();
    TestThread ending([&] {
      second.BeginsWithin(10'000);
      second.End();
    });
    const PropertyFileLease again(kRewriting);
    ASSERT_TRUE(second.granted()) << round;
    ending.Join();
  }
}

TEST(PropertyFileLease, IsLostAfterASecondToAThreadThatWaits) {
  OnAThread stuck(kRewriting);
  ASSERT_TRUE(stuck.BeginsWithin(10'000));
  const platform::Ticks start = platform::MonotonicNow();
  std::optional<PropertyFileLease> next(std::in_place, kRewriting);
  EXPECT_GE(platform::MonotonicNow() - start, PropertyFileLease::kLongest);
  EXPECT_TRUE(next->granted());
  EXPECT_FALSE(stuck.End()) << "what it holds is out of date";
  // Its end has no effect.
  OnAThread third(kReading);
  EXPECT_FALSE(third.BeginsWithin(20));
  EXPECT_TRUE(next->MayWrite());
  next.reset();
  EXPECT_TRUE(third.BeginsWithin(10'000));
}

TEST(PropertyFileLease, LastsItsTimeFromItsOwnBeginningForEveryWaiter) {
  const platform::Ticks start = platform::MonotonicNow();
  OnAThread stuck(kReading);
  ASSERT_TRUE(stuck.BeginsWithin(10'000));
  OnAThread one(kReading);
  OnAThread other(kReading);
  EXPECT_TRUE(one.BeginsWithin(10'000));
  EXPECT_TRUE(other.BeginsWithin(10'000));
  EXPECT_GE(platform::MonotonicNow() - start, 2 * PropertyFileLease::kLongest);
}

TEST(PropertyFileLease, AWriterMayGoOnAfterALeaseForReading) {
  OnAThread slow(kRewriting);
  ASSERT_TRUE(slow.BeginsWithin(10'000));
  { const PropertyFileLease reading(kReading); }
  EXPECT_TRUE(slow.End());
}

TEST(PropertyFileLease, IsNotWaitedForByAThreadThatGivesUp) {
  std::optional<PropertyFileLease> first(std::in_place, kReading);
  // At the latest it gives up when its time is over.
  EXPECT_TRUE(Eventually([] {
    std::atomic<bool> waits{false};
    std::atomic<bool> give_up{false};
    OnAThread second(kRewriting, [&] {
      waits = true;
      return give_up.load();
    });
    EXPECT_TRUE(Eventually([&] { return waits.load(); }));
    give_up = true;
    const platform::Ticks start = platform::MonotonicNow();
    PropertyFileLease::WakeAll();
    EXPECT_TRUE(second.BeginsWithin(10'000));
    EXPECT_FALSE(second.granted());
    return platform::MonotonicNow() - start < PropertyFileLease::kLongest / 2;
  }));
  OnAThread third(kReading);
  EXPECT_FALSE(third.BeginsWithin(20));
  first.reset();
  EXPECT_TRUE(third.BeginsWithin(10'000));
  EXPECT_TRUE(third.granted());
}

}  // namespace
}  // namespace valmere::test
