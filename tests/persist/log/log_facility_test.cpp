#include "persist/log/log_facility.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "driver/sync/live_counters.h"
#include "persist/log/debug_switches.h"
#include "platform/kernel.h"
#include "tests/support/memory_file_system.h"
#include "tests/support/test_thread.h"

namespace valmere::test {
namespace {

constexpr platform::WidePathView kNameFile = u"/Store/LogFileName.txt";
constexpr platform::WidePathView kLog = u"/Store/Log.txt";
constexpr platform::WidePathView kDefaultLog = u"/Store/ValmereLog.txt";

class LogFacilityTest : public ::testing::Test {
 protected:
  platform::WidePath NameFor(std::string_view content) {
    files_.Put(kNameFile, content);
    return ReadLogFileName(files_, kNameFile);
  }
  // Logs with a facility of its own, which has written all when this returns.
  void LogOne(std::string_view message, bool disabled = false) {
    LogFacility log;
    log.AddFile(files_, kLog, 253);
    log.set_disabled(disabled);
    log.Log(message);
  }

  MemoryFileSystem files_;
};

TEST_F(LogFacilityTest, TheFirstLineOfTheNameFileNamesTheLog) {
  EXPECT_EQ(NameFor("/Store/A.txt"), u"/Store/A.txt");
  EXPECT_EQ(NameFor("/Store/A.txt\n/Store/B.txt\n"), u"/Store/A.txt");
  EXPECT_EQ(NameFor("/Store/A log.txt  \r\n"), u"/Store/A log.txt");
  EXPECT_EQ(NameFor(" /Store/A.txt\t \r\r\n"), u" /Store/A.txt");
  EXPECT_EQ(NameFor("/Store/\xc3\xa4.txt"), u"/Store/\u00e4.txt");
}

TEST_F(LogFacilityTest, WithoutANameTheLogHasItsDefault) {
  EXPECT_EQ(ReadLogFileName(files_, kNameFile), kDefaultLog);
  EXPECT_EQ(NameFor(""), kDefaultLog);
  EXPECT_EQ(NameFor(" \t\r\n/Store/B.txt"), kDefaultLog);
  EXPECT_EQ(NameFor("\n/Store/B.txt"), kDefaultLog);
  files_.PutDirectory(kNameFile);
  EXPECT_EQ(ReadLogFileName(files_, kNameFile), kDefaultLog);
  files_.PutUnopenable(kNameFile);
  EXPECT_EQ(ReadLogFileName(files_, kNameFile), kDefaultLog);
  files_.Put(kNameFile, "/Store/A.txt");
  files_.ShortenRead(1, 3);
  EXPECT_EQ(ReadLogFileName(files_, kNameFile), kDefaultLog);
}

TEST_F(LogFacilityTest, ALineHasTheTimeAndTheMessage) {
  LogOne("message");
  const std::string line = files_.Get(kLog).value_or("");
  ASSERT_EQ(line.size(), 24u + 1 + 7 + 2);
  EXPECT_EQ(line.substr(24), ",message\r\n");
  EXPECT_EQ(std::count(line.begin(), line.end(), ':'), 2);
  EXPECT_EQ(line[3], ' ');
  EXPECT_EQ(line[19], ' ');
}

TEST_F(LogFacilityTest, KeepsWhatTheFileHolds) {
  files_.Put(kLog, "older\r\n");
  LogOne("newer");
  const std::string text = files_.Get(kLog).value_or("");
  EXPECT_TRUE(text.starts_with("older\r\n"));
  EXPECT_TRUE(text.ends_with(",newer\r\n"));
}

TEST_F(LogFacilityTest, TakesAMessageByteForByte) {
  const std::string message("a\0\n\xff,%s", 7);
  LogOne(message);
  EXPECT_TRUE(files_.Get(kLog).value_or("").ends_with("," + message + "\r\n"));
}

TEST_F(LogFacilityTest, WritesNothingWhileDisabled) {
  LogOne("message", true);
  EXPECT_EQ(files_.Get(kLog), "");
}

TEST_F(LogFacilityTest, GoesOnWhenEnabledAgain) {
  {
    LogFacility log;
    log.AddFile(files_, kLog, 253);
    log.set_disabled(true);
    log.Log("dropped");
    log.set_disabled(false);
    log.Log("kept");
  }
  const std::string text = files_.Get(kLog).value_or("");
  EXPECT_EQ(text.find("dropped"), std::string::npos);
  EXPECT_TRUE(text.ends_with(",kept\r\n"));
}

TEST_F(LogFacilityTest, AFileThatCantBeOpenedTakesNoLines) {
  files_.PutUnopenable(kLog);
  LogOne("nowhere");
  LogFacility unopened;
  unopened.AddFile(files_, kLog, 253);
  EXPECT_EQ(LiveWorkerThreads::Live(), 0u);
  files_.PutDirectory(kLog);
  LogOne("nowhere");
  LogFacility none;
  none.Log("nowhere");
}

TEST_F(LogFacilityTest, EveryFileGetsEveryLine) {
  {
    LogFacility log;
    log.AddFile(files_, kLog, 253);
    log.AddFile(files_, u"/Store/Second.txt", 253);
    log.Log("message");
  }
  EXPECT_NE(files_.Get(kLog), "");
  EXPECT_EQ(files_.Get(kLog), files_.Get(u"/Store/Second.txt"));
}

// What stands behind the times of the lines.
std::vector<std::string> Messages(const std::string& text) {
  std::vector<std::string> messages;
  for (std::size_t start = 0, end; (end = text.find("\r\n", start)) != std::string::npos;
       start = end + 2)
    messages.push_back(text.substr(start + 25, end - start - 25));
  return messages;
}

// Turns the zone "ThreadIds" on while it lives.
class ThreadIdsOn {
 public:
  ThreadIdsOn() { SwitchOf(DebugZone::kThreadIds) = true; }
  ~ThreadIdsOn() { SwitchOf(DebugZone::kThreadIds) = false; }
  ThreadIdsOn(const ThreadIdsOn&) = delete;
  ThreadIdsOn& operator=(const ThreadIdsOn&) = delete;
};

std::string OwnThreadLine() {
  return "Thread " + std::to_string(platform::CurrentThreadId()) + " logs";
}

TEST_F(LogFacilityTest, ALineOfItsOwnNamesAThreadThatLogsForTheFirstTimeWhileThatZoneIsOn) {
  std::string other;
  {
    LogFacility log;
    log.AddFile(files_, kLog, 253);
    log.Log("the zone is off");
    const ThreadIdsOn on;
    log.Log("one");
    log.Log("two");
    TestThread([&] {
      other = OwnThreadLine();
      log.Log("three");
    }).Join();
    log.Log("four");
  }
  EXPECT_EQ(Messages(files_.Get(kLog).value_or("")),
            (std::vector<std::string>{"the zone is off", OwnThreadLine(), "one", "two", other,
                                      "three", "four"}));
}

TEST_F(LogFacilityTest, RemembersNoMoreThreadsThanItMust) {
  {
    const ThreadIdsOn on;
    LogFacility log;
    log.AddFile(files_, kLog, 253);
    log.Log("first");
    // All there at once, or they might have one number.
    platform::Semaphore end;
    std::vector<TestThread> threads;
    for (std::size_t i = 0; i < LogFacility::kMostThreads; ++i) {
      platform::Semaphore logged;
      threads.emplace_back([&] {
        log.Log("another");
        logged.Release();
        end.Wait();
      });
      logged.Wait();
    }
    log.Log("again");
    for (std::size_t i = 0; i < threads.size(); ++i)
      end.Release();
  }
  const auto messages = Messages(files_.Get(kLog).value_or(""));
  EXPECT_EQ(messages.size(), 4 + 2 * LogFacility::kMostThreads);
  EXPECT_EQ(std::count(messages.begin(), messages.end(), OwnThreadLine()), 2);
}

TEST_F(LogFacilityTest, WritesWhatWasLoggedBeforeItsEndAndNothingAfterIt) {
  LogFacility log;
  log.AddFile(files_, kLog, 253);
  log.Log("before");
  log.End();
  EXPECT_EQ(LiveWorkerThreads::Live(), 0U);
  log.Log("after");
  log.End();
  EXPECT_EQ(Messages(files_.Get(kLog).value_or("")), std::vector<std::string>{"before"});
}

TEST_F(LogFacilityTest, ALineForWhichThereIsNoMemoryIsDropped) {
  {
    LogFacility log;
    log.AddFile(files_, kLog, 253);
    log.Log(std::string_view("x", std::numeric_limits<std::ptrdiff_t>::max()));
    log.Log("kept");
  }
  const std::string text = files_.Get(kLog).value_or("");
  EXPECT_EQ(text.size(), 24u + std::string_view(",kept\r\n").size());
}

TEST_F(LogFacilityTest, AFullDiskHoldsNobodyUp) {
  files_.FillDiskAfter(10);
  LogOne("message");
  EXPECT_EQ(files_.Get(kLog).value_or("").size(), 10u);
}

}  // namespace
}  // namespace valmere::test
