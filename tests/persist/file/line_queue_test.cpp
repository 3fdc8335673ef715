#include "persist/file/line_queue.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "persist/file/failed_lines.h"
#include "persist/file/file_stream.h"
#include "persist/file/property_file_turn.h"
#include "tests/persist/file/hanging_files.h"
#include "tests/persist/file/line_reports.h"
#include "tests/persist/file/property_file_samples.h"
#include "tests/persist/file/thread_end.h"
#include "tests/persist/file/watched_file_system.h"
#include "tests/support/allocations.h"
#include "tests/support/memory_file_system.h"
#include "tests/support/test_thread.h"

namespace valmere::test {
namespace {

constexpr platform::WidePathView kQueuedFile = u"/Store/Properties.ini";
constexpr platform::WidePathView kOther = u"/Store/Other.ini";
constexpr platform::WidePathView kThird = u"/Store/Third.ini";

using Texts = std::vector<std::string>;

class LineQueueTest : public ::testing::Test {
 protected:
  void Push(std::string_view left_side, std::string_view value,
            platform::WidePathView path = kQueuedFile) {
    queue_.Push(MakeWriteRequest(left_side, value, path));
  }
  std::vector<std::string> reported() { return reports_->all(); }

  const std::shared_ptr<MemoryFileSystem> files_ = std::make_shared<MemoryFileSystem>();
  const std::shared_ptr<KeptReports> reports_ = std::make_shared<KeptReports>();
  LineQueue queue_{files_, reports_, kQueuedFile};
};

TEST_F(LineQueueTest, DrainsInOrder) {
  Push("a|b", "1");
  Push("c|d", "2");
  Push("a|b", "3");
  EXPECT_TRUE(queue_.Drain());
  EXPECT_EQ(files_->Get(kQueuedFile), WithTrailer("a|b=3\nc|d=2\n"));
}

TEST_F(LineQueueTest, AnEmptyQueueHasWrittenNothing) {
  EXPECT_FALSE(queue_.Drain());
  EXPECT_EQ(files_->opens(), 0u);
}

TEST_F(LineQueueTest, AShortReadStopsAndLeavesTheRestForTheNextPush) {
  files_->Put(kQueuedFile, WithTrailer("a|b=1\n"));
  Push("x|x", "0", kOther);
  Push("a|b", "2");
  Push("c|d", "3", kThird);
  files_->ShortenRead(1, 2);
  EXPECT_FALSE(queue_.Drain()) << "though the line before was written";
  EXPECT_EQ(files_->Get(kOther), WithTrailer("x|x=0\n"));
  EXPECT_EQ(files_->Get(kQueuedFile), WithTrailer("a|b=1\n"));
  EXPECT_EQ(files_->Get(kThird), std::nullopt);
  EXPECT_TRUE(queue_.Drain());
  EXPECT_EQ(files_->Get(kThird), WithTrailer("c|d=3\n"));
}

TEST_F(LineQueueTest, ATornTrailerStopsDraining) {
  Push("a|b", "1");
  Push("c|d", "2", kOther);
  files_->FillDiskAfter(7);
  EXPECT_FALSE(queue_.Drain());
  EXPECT_EQ(files_->Get(kOther), std::nullopt);
  EXPECT_EQ(reported(), Texts{"waits Properties.ini: its checksum can't be written"});
  files_->EndFaults();
  EXPECT_TRUE(queue_.Drain());
  EXPECT_EQ(files_->Get(kOther), WithTrailer("c|d=2\n"));
}

TEST_F(LineQueueTest, ATornTrailerLeavesTheLineBeforeItWritten) {
  Push("a|b", "1");
  Push("c|d", "2", kOther);
  files_->FillDiskAfter(8 + 7);
  EXPECT_TRUE(queue_.Drain());
  EXPECT_EQ(reported(), Texts{"waits Other.ini: its checksum can't be written"});
}

TEST_F(LineQueueTest, ATornBodyGoesOnWithTheNext) {
  files_->PutDirectory(kOther);
  Push("a|b", "1", kOther);
  Push("c|d", "2");
  queue_.Drain();
  queue_.Drain();
  EXPECT_EQ(files_->Get(kQueuedFile), WithTrailer("c|d=2\n"));
}

TEST_F(LineQueueTest, TellsOnceOfEachFileThatCantBeWritten) {
  files_->PutUnopenable(kQueuedFile);
  files_->PutUnopenable(kOther);
  for (int i = 0; i < 5; ++i) {
    Push("a|b", "1");
    Push("a|b", "1", kOther);
    queue_.Drain();
  }
  EXPECT_EQ(reported(), (Texts{"waits Properties.ini: it can't be opened",
                               "waits Other.ini: it can't be opened"}));
}

TEST_F(LineQueueTest, WritesALineOnceForManyChanges) {
  for (int i = 0; i < 1000; ++i)
    queue_.PushChange(MakeWriteRequest("a|b", std::to_string(i), kQueuedFile));
  EXPECT_TRUE(queue_.Drain());
  EXPECT_EQ(files_->Get(kQueuedFile), WithTrailer("a|b=999\n"));
  EXPECT_EQ(files_->opens(), 2U);
}

TEST_F(LineQueueTest, GivesUpTheFileThatHasFailedLongestWhenTooManyFailButNotTheFirst) {
  files_->PutUnopenable(kQueuedFile);
  Push("a|b", "1");
  queue_.Drain();
  for (std::size_t i = 0; i < FailedLines::kMostFiles; ++i) {
    const platform::WidePath path = u"/Store/" + platform::WidenPath(std::to_string(i));
    files_->PutUnopenable(path);
    Push("a|b", "1", path);
    if (i == 0) Push("c|d", "1", path);
    queue_.Drain();
  }
  EXPECT_EQ(reported().size(), FailedLines::kMostFiles + 2);
  EXPECT_EQ(reported().back(), "given up 0: 2, it can't be opened");
}

TEST_F(LineQueueTest, ALineWaitsBehindOneForTheSameFileInAnotherSpelling) {
  files_->FailOpen(2);
  Push("a|b", "1");
  Push("a|b", "2", u"\\Store\\.\\Properties.ini");
  EXPECT_FALSE(queue_.Drain());
  EXPECT_EQ(files_->Get(kQueuedFile), std::nullopt);
}

TEST_F(LineQueueTest, ALineForAPathThatLeadsNowhereIsGivenUpAtOnce) {
  const std::size_t before = BytesInUse();
  for (std::size_t i = 0; i < FailedLines::kMostFiles; ++i) {
    files_->FailOpen(2);
    Push("a|b", std::to_string(i), platform::WidePath(1'000'000, u'x'));
    queue_.Drain();
  }
  EXPECT_LT(BytesInUse(), before + std::size_t{128} * 1024 * 1024);
  Push("c|d", "1", platform::WidePath(LineQueue::kLongestPath, u'y'));
  queue_.Drain();
  EXPECT_EQ(files_->Get(platform::WidePath(LineQueue::kLongestPath, u'y')), WithTrailer("c|d=1\n"));
}

TEST_F(LineQueueTest, ALineThatIsTooLongForAnyFileIsGivenUpAndThoseBehindItAreWritten) {
  Push("a|b", std::string(FileStream::kLargestWhole, 'v'));
  Push("a|b", "2");
  EXPECT_TRUE(queue_.Drain());
  EXPECT_EQ(files_->Get(kQueuedFile), WithTrailer("a|b=2\n"));
  EXPECT_EQ(reported(), Texts{"given up Properties.ini: 1, it would be too long"});
}

TEST_F(LineQueueTest, ALineThatCouldNotBeWrittenIsTriedAgainByItself) {
  files_->FailOpen(2);
  Push("a|b", "1");
  queue_.Start(251, 253);
  EXPECT_TRUE(Eventually([&] { return files_->Get(kQueuedFile) == WithTrailer("a|b=1\n"); }));
  EXPECT_TRUE(Eventually([&] {
    return reported() ==
           Texts{"waits Properties.ini: it can't be opened", "again Properties.ini: 1"};
  }));
}

// Which of the lines waited when the file became good, and which came later, is for the threads to
// say.
TEST_F(LineQueueTest, LinesOfAFileThatFailsComeInTheirOrderWhenItCanBeWrittenAgain) {
  files_->PutUnopenable(kQueuedFile);
  queue_.Start(251, 253);
  Push("a|b", "1");
  ASSERT_TRUE(Eventually([&] { return reported().size() == 1; }));
  Push("c|d", "1");
  Push("a|b", "2");
  Push("x|y", "1", kOther);
  EXPECT_TRUE(Eventually([&] { return files_->Get(kOther) == WithTrailer("x|y=1\n"); }))
      << "though the first file still fails";
  files_->Put(kQueuedFile, "");
  Push("e|f", "1");
  EXPECT_TRUE(
      Eventually([&] { return files_->Get(kQueuedFile) == WithTrailer("a|b=2\nc|d=1\ne|f=1\n"); }));
  EXPECT_TRUE(Eventually([&] { return reported().size() == 2; }));
  EXPECT_THAT(reported().back(), ::testing::StartsWith("again Properties.ini: "));
}

TEST_F(LineQueueTest, ChangesOfAFileThatFailsTakeEachOthersPlace) {
  files_->PutUnopenable(kQueuedFile);
  queue_.Start(251, 253);
  for (int i = 0; i < 1000; ++i)
    queue_.PushChange(MakeWriteRequest("a|b", std::to_string(i), kQueuedFile));
  ASSERT_TRUE(Eventually([&] { return reported().size() == 1; }));
  files_->Put(kQueuedFile, "");
  queue_.PushChange(MakeWriteRequest("a|b", "last", kQueuedFile));
  EXPECT_TRUE(Eventually([&] { return files_->Get(kQueuedFile) == WithTrailer("a|b=last\n"); }));
  EXPECT_TRUE(Eventually([&] { return reported().size() == 2; }));
  EXPECT_THAT(reported().back(),
              ::testing::AnyOf("again Properties.ini: 1", "again Properties.ini: 2",
                               "again Properties.ini: 3"));
}

// One of them may be on its way just then, and is told of when that has failed.
TEST_F(LineQueueTest, TellsWhichLinesWaitAtTheEnd) {
  files_->PutUnopenable(kQueuedFile);
  queue_.Start(251, 253);
  Push("a|b", "1");
  ASSERT_TRUE(Eventually([&] { return reported().size() == 1; }));
  Push("c|d", "1");
  queue_.End();
  std::string left_behind;
  for (const std::string& report : reported())
    if (report.starts_with("left behind:")) left_behind += report;
  EXPECT_THAT(left_behind,
              ::testing::AllOf(::testing::HasSubstr(" a|b"), ::testing::HasSubstr(" c|d")));
}

TEST_F(LineQueueTest, TellsWhichLinesWereNotBegunAtTheStop) {
  Push("a|b", "1");
  Push("c|d", "1", kOther);
  queue_.Stop();
  EXPECT_EQ(reported(), Texts{"left behind: a|b c|d"});
  queue_.End();
  EXPECT_EQ(reported().size(), 1u);
  EXPECT_EQ(files_->opens(), 0u);
}

TEST_F(LineQueueTest, TakesNothingAfterItsEnd) {
  Push("a|b", "1");
  queue_.Start(251, 253);
  EXPECT_TRUE(Eventually([&] { return files_->Get(kQueuedFile) == WithTrailer("a|b=1\n"); }));
  queue_.End();
  EXPECT_FALSE(queue_.Push(MakeWriteRequest("a|b", "2", kQueuedFile)));
  EXPECT_FALSE(queue_.PushChange(MakeWriteRequest("a|b", "3", kQueuedFile)));
  EXPECT_FALSE(queue_.Drain());
  queue_.End();
  EXPECT_EQ(files_->Get(kQueuedFile), WithTrailer("a|b=1\n"));
}

TEST_F(LineQueueTest, WhoComesBackFromAFileCallAfterTheEndWritesNoMore) {
  const std::string before = WithTrailer("a|b=1\n");
  files_->Put(kQueuedFile, before);
  const auto files = std::make_shared<HangingFiles>(files_);
  LineQueue queue(files, std::make_shared<KeptReports>(), kQueuedFile);
  queue.Push(MakeWriteRequest("a|b", "2", kQueuedFile));
  files->HangAtTheNextRead();
  TestThread late([&] { queue.Drain(); });
  files->AwaitHanging();
  queue.End();
  files->GoOn();
  late.Join();
  EXPECT_EQ(files_->Get(kQueuedFile), before);
}

TEST_F(LineQueueTest, EndsWhileAnotherHasTheTurn) {
  std::atomic<bool> returned{false};
  const auto files =
      std::make_shared<WatchedFileSystem>([&returned] { ThreadEnd::Watch(returned); });
  LineQueue queue(files, std::make_shared<KeptReports>(), kQueuedFile);
  queue.Start(251, 253);
  queue.Push(MakeWriteRequest("a|b", "1", kQueuedFile));
  EXPECT_TRUE(Eventually([&] { return files->disk.Get(kQueuedFile) == WithTrailer("a|b=1\n"); }));
  const PropertyFileTurn turn(PropertyFileTurn::For::kReading);
  queue.Push(MakeWriteRequest("a|b", "2", kQueuedFile));
  // Lets the thread come to its wait; where it has not, it ends before it.
  platform::Semaphore never;
  never.WaitUntil(platform::MonotonicNow() + 20 * platform::kTicksPerMillisecond);
  queue.End();
  EXPECT_TRUE(returned);
  EXPECT_EQ(files->disk.Get(kQueuedFile), WithTrailer("a|b=1\n"));
}

TEST_F(LineQueueTest, ItsThreadWritesWhatIsPushedBeforeAndAfterItStarts) {
  Push("a|b", "1");
  queue_.Start(251, 253);
  EXPECT_TRUE(Eventually([&] { return files_->Get(kQueuedFile) == WithTrailer("a|b=1\n"); }));
  Push("a|b", "2");
  EXPECT_TRUE(Eventually([&] { return files_->Get(kQueuedFile) == WithTrailer("a|b=2\n"); }));
}

TEST_F(LineQueueTest, ItsThreadLosesNoLineOfManyThreads) {
  queue_.Start(251, 253);
  {
    std::vector<TestThread> threads;
    for (int t = 0; t < 4; ++t)
      threads.emplace_back([this, t] {
        for (int i = 0; i < 25; ++i)
          Push("k" + std::to_string(t * 25 + i + 100) + "|n", "v");
      });
  }
  const std::size_t all = std::string("k100|n=v\n").size() * 100 + 2;
  EXPECT_TRUE(Eventually([&] { return files_->Get(kQueuedFile).value_or("").size() == all; }));
}

TEST(LineQueueThread, ReturnsWhenTheQueueEnds) {
  std::atomic<bool> returned{false};
  const auto files =
      std::make_shared<WatchedFileSystem>([&returned] { ThreadEnd::Watch(returned); });
  {
    LineQueue queue(files, std::make_shared<KeptReports>(), kQueuedFile);
    queue.Start(251, 253);
    queue.Push(MakeWriteRequest("a|b", "1", kQueuedFile));
    EXPECT_TRUE(Eventually([&] { return files->disk.Get(kQueuedFile) == WithTrailer("a|b=1\n"); }));
  }
  EXPECT_TRUE(returned);
}

// Nothing tells when the destructor has begun, so the disk is slow for a moment from then on. Where
// that moment was too short the later line came through rightly, and it is tried again.
TEST(LineQueueThread, FinishesTheLineThatItWritesAndDiscardsTheOthersWhenTheQueueEnds) {
  const std::string one_line = WithTrailer("a|b=1\n");
  const std::string both_lines = WithTrailer("a|b=1\nc|d=2\n");
  std::string bytes;
  for (int round = 0; round < 20 && bytes != one_line; ++round) {
    platform::Semaphore begun;
    platform::Semaphore ending;
    bool first = true;
    const auto files = std::make_shared<WatchedFileSystem>([&] {
      if (!std::exchange(first, false)) return;
      begun.Release();
      ending.Wait();
      platform::Semaphore never;
      never.WaitUntil(platform::MonotonicNow() + 10 * platform::kTicksPerMillisecond);
    });
    {
      LineQueue queue(files, std::make_shared<KeptReports>(), kQueuedFile);
      queue.Start(251, 253);
      queue.Push(MakeWriteRequest("a|b", "1", kQueuedFile));
      begun.Wait();
      queue.Push(MakeWriteRequest("c|d", "2", kQueuedFile));
      ending.Release();
    }
    bytes = files->disk.Get(kQueuedFile).value_or("");
    ASSERT_TRUE(bytes == one_line || bytes == both_lines);
  }
  EXPECT_EQ(bytes, one_line);
}

TEST(LineQueueThread, WritesALineThatIsPushedWhileItStops) {
  const auto files = std::make_shared<MemoryFileSystem>();
  files->PutDirectory(kQueuedFile);
  LineQueue* pushed_to = nullptr;
  LineQueue queue(files, std::make_shared<KeptReports>([&] {
                    pushed_to->Push(MakeWriteRequest("c|d", "2", kOther));
                  }),
                  kQueuedFile);
  pushed_to = &queue;
  queue.Push(MakeWriteRequest("a|b", "1", kQueuedFile));
  queue.Start(251, 253);
  EXPECT_TRUE(Eventually([&] { return files->Get(kOther) == WithTrailer("c|d=2\n"); }));
}

TEST(LineQueueThread, LeavesTheOtherLinesForTheNextPushAfterAShortRead) {
  for (int round = 0; round < 20; ++round) {
    const auto files = std::make_shared<MemoryFileSystem>();
    files->PutDirectory(kQueuedFile);
    platform::Semaphore reported;
    LineQueue queue(files, std::make_shared<KeptReports>([&] { reported.Release(); }), kQueuedFile);
    queue.Push(MakeWriteRequest("a|b", "1", kQueuedFile));
    queue.Push(MakeWriteRequest("c|d", "2", kOther));
    queue.Start(251, 253);
    reported.Wait();
    TestThread([] {}).Join();  // takes longer than a line that were written now
    ASSERT_EQ(files->Get(kOther), std::nullopt);
    queue.Push(MakeWriteRequest("e|f", "3", kOther));
    ASSERT_TRUE(Eventually([&] { return files->Get(kOther) == WithTrailer("c|d=2\ne|f=3\n"); }));
  }
}

TEST(LineQueueThread, TellsOfALineForWhichThereWasNoMemoryAndGoesOn) {
  bool memory = false;
  const auto files = std::make_shared<WatchedFileSystem>([&memory] {
    if (!std::exchange(memory, true)) throw std::bad_alloc();
  });
  const auto reports = std::make_shared<KeptReports>();
  LineQueue queue(files, reports, kQueuedFile);
  queue.Push(MakeWriteRequest("a|b", "1", kQueuedFile));
  queue.Push(MakeWriteRequest("c|d", "2", kQueuedFile));
  queue.Start(251, 253);
  EXPECT_TRUE(
      Eventually([&] { return files->disk.Get(kQueuedFile) == WithTrailer("a|b=1\nc|d=2\n"); }));
  EXPECT_EQ(reports->all()[0], "waits Properties.ini: its old lines can't be read to their end");
}

// Counts how often what was written is brought to the disk.
class SyncedFileSystem final : public platform::FileSystem {
 public:
  std::unique_ptr<platform::File> Open(platform::WidePathView path,
                                       platform::OpenFlags flags) override {
    return disk.Open(path, flags);
  }
  bool Exists(platform::WidePathView path) override { return disk.Exists(path); }
  bool Remove(platform::WidePathView path) override { return disk.Remove(path); }
  bool Sync() override {
    ++syncs;
    return works;
  }

  MemoryFileSystem disk;
  std::atomic<int> syncs{0};
  std::atomic<bool> works{true};
};

class LineQueueSync : public ::testing::Test {
 protected:
  void Push(std::string_view value) {
    queue_.Push(MakeWriteRequest("a|b", value, kQueuedFile));
    ASSERT_TRUE(Eventually([&] {
      return files_->disk.Get(kQueuedFile) == WithTrailer("a|b=" + std::string(value) + "\n");
    }));
  }

  const std::shared_ptr<SyncedFileSystem> files_ = std::make_shared<SyncedFileSystem>();
  const std::shared_ptr<KeptReports> reports_ = std::make_shared<KeptReports>();
  LineQueue queue_{files_, reports_, kQueuedFile};
};

TEST_F(LineQueueSync, ManyLinesAreBroughtToTheDiskAtOnce) {
  queue_.Start(251, 253);
  for (int i = 0; i < 100; ++i)
    Push(std::to_string(i));
  EXPECT_TRUE(Eventually([&] { return files_->syncs > 0; }));
  EXPECT_LT(files_->syncs, 20);
}

TEST_F(LineQueueSync, TheLastLinesAreBroughtToTheDiskAtTheEnd) {
  queue_.Start(251, 253);
  Push("1");
  queue_.End();
  EXPECT_GT(files_->syncs, 0);
}

TEST_F(LineQueueSync, ADiskThatTakesNothingIsToldOfOnceAndTriedAgain) {
  files_->works = false;
  queue_.Start(251, 253);
  Push("1");
  EXPECT_TRUE(Eventually([&] { return files_->syncs >= 2; }));
  EXPECT_EQ(reports_->all(), Texts{"not synced"});
  files_->works = true;
  EXPECT_TRUE(Eventually([&] { return reports_->all() == Texts{"not synced", "synced"}; }));
}

}  // namespace
}  // namespace valmere::test
