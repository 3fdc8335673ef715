#include "driver/service/step_log.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "tests/support/stream_fakes.h"

namespace valmere::test {
namespace {

class StepLogTest : public ::testing::Test {
 protected:
  void SetUp() override { SwitchOf(DebugZone::kRamp) = true; }
  void TearDown() override { SwitchOf(DebugZone::kRamp) = false; }
  // The steps logged since the last call, without their times.
  std::vector<std::string> TakeSteps() {
    std::vector<std::string> steps;
    for (const std::string& line : log_->TakeLines())
      steps.push_back(line.substr(0, line.find(": ")));
    return steps;
  }

  const std::shared_ptr<test::CollectingLog> log_ = std::make_shared<test::CollectingLog>();
};

using Lines = std::vector<std::string>;

TEST_F(StepLogTest, TellsTheStepsFromBeforeTheLogFirstAndOnce) {
  StepLog steps(DebugZone::kRamp);
  steps.Done("one");
  steps.Done("two");
  EXPECT_EQ(TakeSteps(), Lines());
  steps.AttachLog(log_);
  steps.Done("three");
  EXPECT_EQ(TakeSteps(), (Lines{"one", "two", "three"}));
  steps.AttachLog(log_);
  EXPECT_EQ(TakeSteps(), Lines());
}

TEST_F(StepLogTest, AsksForTheZoneWhenThereIsALog) {
  SwitchOf(DebugZone::kRamp) = false;
  StepLog steps(DebugZone::kRamp);
  steps.Done("one");
  SwitchOf(DebugZone::kRamp) = true;
  steps.AttachLog(log_);
  EXPECT_EQ(TakeSteps(), Lines{"one"});
  SwitchOf(DebugZone::kRamp) = false;
  steps.Done("two");
  StepLog silent(DebugZone::kRamp);
  silent.Done("three");
  silent.AttachLog(log_);
  EXPECT_EQ(TakeSteps(), Lines());
}

// However long a step takes: no time is told twice, and all of it in microseconds.
TEST_F(StepLogTest, TellsTheTimeSinceTheStepBefore) {
  constexpr platform::Ticks kLongStep = 20 * platform::kTicksPerMillisecond;
  const platform::Ticks start = platform::MonotonicNow();
  StepLog steps(DebugZone::kRamp);
  steps.AttachLog(log_);
  platform::Semaphore never;
  EXPECT_FALSE(never.WaitUntil(start + kLongStep));
  steps.Done("long");
  for (const char* step : {"two", "three", "four"})
    steps.Done(step);
  const auto all = static_cast<unsigned long long>(platform::MonotonicNow() - start) / 10;
  unsigned long long told = 0;
  std::vector<std::string> lines = log_->TakeLines();
  ASSERT_EQ(lines.size(), 4u);
  for (const std::string& line : lines) {
    EXPECT_EQ(line.substr(line.size() - 3), " us");
    told += std::stoull(line.substr(line.find(": ") + 2));
  }
  EXPECT_LE(told, all);
  EXPECT_GE(told, all / 2);
}

}  // namespace
}  // namespace valmere::test
