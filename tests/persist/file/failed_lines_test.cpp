#include "persist/file/failed_lines.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

#include "persist/file/sync_schedule.h"

namespace valmere::test {
namespace {

constexpr platform::Ticks kSecond = 1000 * platform::kTicksPerMillisecond;
constexpr platform::Ticks kStart = 5000 * kSecond;

WaitingLine Line(std::string_view path, std::string_view value, std::string_view left = "a|b") {
  return {MakeWriteRequest(left, value, platform::WidenPath(path)), true};
}

class FailedLinesTest : public ::testing::Test {
 protected:
  // What is tried at that time; "" for nothing.
  std::string TriedAt(platform::Ticks now) {
    tried_ = lines_.TryDue(now);
    return tried_ ? tried_->line : "";
  }
  void FailsAt(platform::Ticks now) { lines_.Failed(tried_->path, now); }

  FailedLines lines_{u"/first"};
  std::optional<WriteRequest> tried_;
};

TEST_F(FailedLinesTest, ALineIsTriedAfterASecondThenTwoUpToAMinute) {
  lines_.AddFile(Line("f", "1"), kStart);
  platform::Ticks now = kStart;
  for (const int seconds : {1, 2, 4, 8, 16, 32, 60, 60, 60}) {
    EXPECT_EQ(lines_.NextDue(), now + seconds * kSecond);
    EXPECT_EQ(TriedAt(now + seconds * kSecond - 1), "");
    now += seconds * kSecond;
    ASSERT_EQ(TriedAt(now), "a|b=1") << seconds;
    FailsAt(now);
  }
}

TEST_F(FailedLinesTest, ALineIsTriedWithTheNextOneAndItsTimeStays) {
  lines_.AddFile(Line("f", "1"), kStart);
  lines_.Add(Line("f", "2", "c|d"));
  EXPECT_EQ(lines_.NextDue(), 0);
  ASSERT_EQ(TriedAt(kStart + 1), "a|b=1");
  FailsAt(kStart + 1);
  EXPECT_EQ(TriedAt(kStart + 2), "");
  EXPECT_EQ(lines_.NextDue(), kStart + kSecond);
}

TEST_F(FailedLinesTest, AllLinesOfAFileFollowTheFirstThatIsWritten) {
  lines_.AddFile(Line("f", "1"), kStart);
  lines_.Add(Line("f", "2", "c|d"));
  ASSERT_EQ(TriedAt(kStart), "a|b=1");
  EXPECT_EQ(lines_.Finished(u"f"), std::nullopt);
  EXPECT_TRUE(lines_.Holds(u"f"));
  ASSERT_EQ(TriedAt(kStart), "c|d=2");
  EXPECT_EQ(lines_.Finished(u"f"), 2u);
  EXPECT_FALSE(lines_.Holds(u"f"));
  EXPECT_EQ(lines_.NextDue(), std::nullopt);
}

TEST_F(FailedLinesTest, WhatComesWhileALineIsTriedStaysBehindIt) {
  lines_.AddFile(Line("f", "1"), kStart);
  ASSERT_EQ(TriedAt(kStart + kSecond), "a|b=1");
  lines_.Add(Line("f", "2"));
  FailsAt(kStart + kSecond);
  ASSERT_EQ(TriedAt(kStart + kSecond), "a|b=1");
  EXPECT_EQ(lines_.Finished(u"f"), std::nullopt);
  ASSERT_EQ(TriedAt(kStart + kSecond), "a|b=2");
  EXPECT_EQ(lines_.Finished(u"f"), 2u);
}

TEST_F(FailedLinesTest, AFileThatIsNotDueKeepsNoOtherWaiting) {
  lines_.AddFile(Line("f", "1"), kStart);
  lines_.AddFile(Line("g", "2"), kStart - kSecond);
  EXPECT_EQ(TriedAt(kStart), "a|b=2");
}

TEST_F(FailedLinesTest, OneFileTooManyCostsTheOldestWithAllItsLinesAndNobodyElse) {
  EXPECT_FALSE(lines_.AddFile(Line("first", "1"), kStart));
  for (std::size_t i = 1; i < FailedLines::kMostFiles; ++i)
    EXPECT_FALSE(lines_.AddFile(Line(std::to_string(i), "1"), kStart - kSecond));
  ASSERT_EQ(TriedAt(kStart), "a|b=1");
  lines_.Add(Line("1", "2"));
  const auto given_up = lines_.AddFile(Line("more", "1"), kStart);
  ASSERT_TRUE(given_up);
  EXPECT_EQ(given_up->path, u"/1");
  EXPECT_EQ(given_up->lines, 2u) << "the one on its way among them";
  FailsAt(kStart);
  EXPECT_FALSE(lines_.Holds(u"1"));
  EXPECT_TRUE(lines_.Holds(u"\\first")) << "the service's own stays";
  EXPECT_EQ(lines_.Finished(u"1"), std::nullopt);
}

TEST_F(FailedLinesTest, ATryOfLinesThatWereGivenUpSaysNothingOfLaterOnes) {
  lines_.AddFile(Line("0", "given up"), kStart - kSecond);
  ASSERT_EQ(TriedAt(kStart), "a|b=given up");
  for (std::size_t i = 1; i <= FailedLines::kMostFiles; ++i)
    lines_.AddFile(Line(std::to_string(i), "1"), kStart);
  ASSERT_FALSE(lines_.Holds(u"0"));
  lines_.AddFile(Line("0", "later"), kStart);
  EXPECT_EQ(lines_.Finished(u"0"), std::nullopt);
  EXPECT_TRUE(lines_.Holds(u"0")) << "which has not been written";
}

TEST_F(FailedLinesTest, AFileIsOneInEverySpelling) {
  lines_.AddFile(Line("/Store/f", "1"), kStart);
  EXPECT_TRUE(lines_.Holds(u"\\Store\\x\\..\\f"));
  lines_.Add(Line("\\Store\\f", "2", "c|d"));
  ASSERT_EQ(TriedAt(kStart), "a|b=1");
  EXPECT_EQ(lines_.Finished(u"Store//f"), std::nullopt);
  ASSERT_EQ(TriedAt(kStart), "c|d=2");
  EXPECT_EQ(tried_->path, u"\\Store\\f") << "as it was asked for";
}

TEST_F(FailedLinesTest, AFileThatIsOnItsWayIsNotDueAgainAtOnce) {
  lines_.AddFile(Line("f", "1"), kStart);
  ASSERT_EQ(TriedAt(kStart + kSecond), "a|b=1");
  EXPECT_EQ(lines_.NextDue(), kStart + 2 * kSecond) << "also without a report of its result";
}

TEST_F(FailedLinesTest, TheOneThatIsBeingTriedIsNotAmongAll) {
  lines_.AddFile(Line("f", "1"), kStart);
  lines_.Add(Line("f", "2", "c|d"));
  ASSERT_EQ(TriedAt(kStart), "a|b=1");
  std::vector<std::string> all;
  lines_.TakeAll([&](const WaitingLine& line) { all.push_back(line.request.line); });
  EXPECT_EQ(all, std::vector<std::string>{"c|d=2"});
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
}  // namespace valmere::test
