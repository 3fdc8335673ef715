#include "persist/file/property_file_turn.h"

#include <gtest/gtest.h>

#include <atomic>
#include <optional>
#include <utility>

#include "platform/kernel.h"
#include "tests/support/test_thread.h"

namespace valmere::test {
namespace {

constexpr PropertyFileTurn::For kReading = PropertyFileTurn::For::kReading;
constexpr PropertyFileTurn::For kRewriting = PropertyFileTurn::For::kRewriting;

// Waits for a turn on a thread of its own and has it until it is told to end.
class OnAThread {
 public:
  explicit OnAThread(PropertyFileTurn::For purpose, PropertyFileTurn::GiveUp give_up = nullptr)
      : thread_([this, purpose, give_up = std::move(give_up)] {
          asking_.Release();
          {
            const PropertyFileTurn turn(purpose, give_up);
            taken_ = turn.taken();
            begun_.Release();
            ending_.Wait();
            may_write_ = turn.MayWrite();
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
  bool taken() const { return taken_; }

 private:
  platform::Semaphore asking_;
  platform::Semaphore begun_;
  platform::Semaphore ending_;
  std::atomic<bool> taken_{false};
  std::atomic<bool> may_write_{false};
  bool ended_ = false;
  TestThread thread_;
};

TEST(PropertyFileTurn, IsTakenAtOnceWhereNobodyHasIt) {
  for (int i = 0; i < 3; ++i) {
    const PropertyFileTurn turn(kReading);
    EXPECT_TRUE(turn.taken());
  }
}

TEST(PropertyFileTurn, EndsBeforeTheNextBegins) {
  std::optional<PropertyFileTurn> first(std::in_place, kRewriting);
  OnAThread second(kReading);
  EXPECT_FALSE(second.BeginsWithin(20));
  EXPECT_TRUE(first->MayWrite());
  first.reset();
  EXPECT_TRUE(second.BeginsWithin(10'000));
}

TEST(PropertyFileTurn, GoesToWhoHasWaitedAndNotToWhoHadIt) {
  for (int round = 0; round < 20; ++round) {
    std::atomic<bool> waited{false};
    std::optional<PropertyFileTurn> first(std::in_place, kRewriting);
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
    const PropertyFileTurn again(kRewriting);
    ASSERT_TRUE(second.taken()) << round;
    ending.Join();
  }
}

TEST(PropertyFileTurn, IsLostAfterASecondToWhoWaits) {
  OnAThread stuck(kRewriting);
  ASSERT_TRUE(stuck.BeginsWithin(10'000));
  const platform::Ticks start = platform::MonotonicNow();
  std::optional<PropertyFileTurn> next(std::in_place, kRewriting);
  EXPECT_GE(platform::MonotonicNow() - start, PropertyFileTurn::kLongest);
  EXPECT_TRUE(next->taken());
  EXPECT_FALSE(stuck.End()) << "what it holds is out of date";
  // Its end was nobody's.
  OnAThread third(kReading);
  EXPECT_FALSE(third.BeginsWithin(20));
  EXPECT_TRUE(next->MayWrite());
  next.reset();
  EXPECT_TRUE(third.BeginsWithin(10'000));
}

TEST(PropertyFileTurn, LastsItsTimeFromItsOwnBeginningForAllWhoWait) {
  const platform::Ticks start = platform::MonotonicNow();
  OnAThread stuck(kReading);
  ASSERT_TRUE(stuck.BeginsWithin(10'000));
  OnAThread one(kReading);
  OnAThread other(kReading);
  EXPECT_TRUE(one.BeginsWithin(10'000));
  EXPECT_TRUE(other.BeginsWithin(10'000));
  EXPECT_GE(platform::MonotonicNow() - start, 2 * PropertyFileTurn::kLongest);
}

TEST(PropertyFileTurn, AWriterMayGoOnAfterATurnWasTakenForReading) {
  OnAThread slow(kRewriting);
  ASSERT_TRUE(slow.BeginsWithin(10'000));
  { const PropertyFileTurn reading(kReading); }
  EXPECT_TRUE(slow.End());
}

TEST(PropertyFileTurn, IsNotWaitedForByWhoGivesUp) {
  std::optional<PropertyFileTurn> first(std::in_place, kReading);
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
    PropertyFileTurn::WakeAll();
    EXPECT_TRUE(second.BeginsWithin(10'000));
    EXPECT_FALSE(second.taken());
    return platform::MonotonicNow() - start < PropertyFileTurn::kLongest / 2;
  }));
  OnAThread third(kReading);
  EXPECT_FALSE(third.BeginsWithin(20));
  first.reset();
  EXPECT_TRUE(third.BeginsWithin(10'000));
  EXPECT_TRUE(third.taken());
}

}  // namespace
}  // namespace valmere::test
