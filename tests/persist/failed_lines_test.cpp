#include "persist/failed_lines.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

#include "persist/sync_schedule.h"

namespace valmere {
namespace {

constexpr platform::Ticks kSecond = 1000 * platform::kTicksPerMillisecond;
constexpr platform::Ticks kStart = 5000 * kSecond;

WaitingLine Line(std::string_view path, std::string_view value, std::string_view left = "a|b") {
  return {MakeWriteRequest(left, value, platform::WidenPath(path)), true};
}

class FailedLinesTest : public ::testing::Test {
 protected:
  // What is tried at that time; "" for nothing.
  std::string TakenAt(platform::Ticks now) {
    taken_ = lines_.TakeDue(now);
    return taken_ ? taken_->request.line : "";
  }
  void PutBackAt(platform::Ticks now) { lines_.PutBack(*std::move(taken_), now); }

  FailedLines lines_;
  std::optional<WaitingLine> taken_;
};

TEST_F(FailedLinesTest, ALineIsTriedAfterASecondThenTwoUpToAMinute) {
  lines_.AddFile(Line("f", "1"), kStart);
  platform::Ticks now = kStart;
  for (const int seconds : {1, 2, 4, 8, 16, 32, 60, 60, 60}) {
    EXPECT_EQ(lines_.NextDue(), now + seconds * kSecond);
    EXPECT_EQ(TakenAt(now + seconds * kSecond - 1), "");
    now += seconds * kSecond;
    ASSERT_EQ(TakenAt(now), "a|b=1") << seconds;
    PutBackAt(now);
  }
}

TEST_F(FailedLinesTest, ALineIsTriedWithTheNextOneAndItsTimeStays) {
  lines_.AddFile(Line("f", "1"), kStart);
  lines_.Add(Line("f", "2", "c|d"));
  EXPECT_EQ(lines_.NextDue(), 0);
  ASSERT_EQ(TakenAt(kStart + 1), "a|b=1");
  PutBackAt(kStart + 1);
  EXPECT_EQ(TakenAt(kStart + 2), "");
  EXPECT_EQ(lines_.NextDue(), kStart + kSecond);
}

TEST_F(FailedLinesTest, AllLinesOfAFileFollowTheFirstThatIsWritten) {
  lines_.AddFile(Line("f", "1"), kStart);
  lines_.Add(Line("f", "2", "c|d"));
  ASSERT_EQ(TakenAt(kStart), "a|b=1");
  EXPECT_EQ(lines_.Finished(u"f"), std::nullopt);
  EXPECT_TRUE(lines_.Holds(u"f"));
  ASSERT_EQ(TakenAt(kStart), "c|d=2");
  EXPECT_EQ(lines_.Finished(u"f"), 2u);
  EXPECT_FALSE(lines_.Holds(u"f"));
  EXPECT_EQ(lines_.NextDue(), std::nullopt);
}

TEST_F(FailedLinesTest, WhatComesWhileALineIsTriedStaysBehindIt) {
  lines_.AddFile(Line("f", "1"), kStart);
  ASSERT_EQ(TakenAt(kStart + kSecond), "a|b=1");
  lines_.Add(Line("f", "2"));
  PutBackAt(kStart + kSecond);
  ASSERT_EQ(TakenAt(kStart + kSecond), "a|b=1");
  EXPECT_EQ(lines_.Finished(u"f"), std::nullopt);
  ASSERT_EQ(TakenAt(kStart + kSecond), "a|b=2");
  EXPECT_EQ(lines_.Finished(u"f"), 2u);
}

TEST_F(FailedLinesTest, AFileThatIsNotDueKeepsNoOtherWaiting) {
  lines_.AddFile(Line("f", "1"), kStart);
  lines_.AddFile(Line("g", "2"), kStart - kSecond);
  EXPECT_EQ(TakenAt(kStart), "a|b=2");
}

TEST_F(FailedLinesTest, OneFileTooManyCostsTheFirstAndNobodyElse) {
  for (std::size_t i = 0; i < FailedLines::kMostFiles; ++i)
    EXPECT_FALSE(lines_.AddFile(Line(std::to_string(i), "1"), kStart));
  ASSERT_EQ(TakenAt(kStart + kSecond), "a|b=1");
  lines_.Add(Line("0", "2"));
  const auto given_up = lines_.AddFile(Line("more", "1"), kStart);
  ASSERT_TRUE(given_up);
  EXPECT_EQ(given_up->path, u"0");
  EXPECT_EQ(given_up->lines, 1u);
  PutBackAt(kStart + kSecond);
  EXPECT_FALSE(lines_.Holds(u"0"));
  EXPECT_EQ(lines_.Finished(u"0"), std::nullopt);
}

TEST_F(FailedLinesTest, AllAreTakenAtOnce) {
  lines_.AddFile(Line("f", "1"), kStart);
  lines_.Add(Line("f", "2", "c|d"));
  lines_.AddFile(Line("g", "3"), kStart);
  std::vector<std::string> all;
  lines_.TakeAll([&](const WaitingLine& line) { all.push_back(line.request.line); });
  EXPECT_EQ(all, (std::vector<std::string>{"a|b=1", "c|d=2", "a|b=3"}));
  EXPECT_FALSE(lines_.Holds(u"f"));
}

using News = SyncSchedule::News;

TEST(SyncScheduleTest, IsDueHalfASecondAfterTheFirstOfManyLines) {
  SyncSchedule schedule;
  EXPECT_FALSE(schedule.IsDue(kStart));
  schedule.NoteWritten(kStart);
  schedule.NoteWritten(kStart + kSecond / 4);
  EXPECT_FALSE(schedule.IsDue(kStart + kSecond / 2 - 1));
  EXPECT_TRUE(schedule.IsDue(kStart + kSecond / 2));
  EXPECT_EQ(schedule.Done(true, kStart + kSecond / 2), News::kNone);
  EXPECT_EQ(schedule.due(), std::nullopt);
}

TEST(SyncScheduleTest, TriesAgainAfterASecondThenTwoUpToAMinute) {
  SyncSchedule schedule;
  schedule.NoteWritten(kStart);
  platform::Ticks now = kStart + kSecond / 2;
  EXPECT_EQ(schedule.Done(false, now), News::kFails);
  for (const int seconds : {1, 2, 4, 8, 16, 32, 60, 60}) {
    EXPECT_EQ(schedule.due(), now + seconds * kSecond);
    now += seconds * kSecond;
    EXPECT_EQ(schedule.Done(false, now), News::kNone);
  }
  EXPECT_EQ(schedule.Done(true, now), News::kSucceedsAgain);
  EXPECT_EQ(schedule.due(), std::nullopt);
}

}  // namespace
}  // namespace valmere
