#include "persist/line_queue.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "persist/property_file_turn.h"
#include "tests/persist/hanging_files.h"
#include "tests/persist/property_file_samples.h"
#include "tests/persist/thread_end.h"
#include "tests/persist/watched_file_system.h"
#include "tests/support/allocations.h"
#include "tests/support/memory_file_system.h"
#include "tests/support/test_thread.h"

namespace valmere::testing {
namespace {

constexpr platform::WidePathView kQueuedFile = u"/Store/Properties.ini";
constexpr platform::WidePathView kOther = u"/Store/Other.ini";

class LineQueueTest : public ::testing::Test {
 protected:
  void Push(std::string_view left_side, std::string_view value,
            platform::WidePathView path = kQueuedFile) {
    queue_.Push(MakeWriteRequest(left_side, value, path));
  }
  std::vector<RewriteResult> reported() {
    const platform::ScopedLock hold(lock_);
    return reported_;
  }

  const std::shared_ptr<MemoryFileSystem> files_ = std::make_shared<MemoryFileSystem>();
  platform::Lock lock_;
  std::vector<RewriteResult> reported_;
  LineQueue queue_{files_, [this](const platform::WidePath&, RewriteResult cause) {
                     const platform::ScopedLock hold(lock_);
                     reported_.push_back(cause);
                   }};
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
  Push("c|d", "3");
  files_->ShortenRead(1, 2);
  EXPECT_FALSE(queue_.Drain()) << "though the line before was written";
  EXPECT_EQ(files_->Get(kOther), WithTrailer("x|x=0\n"));
  EXPECT_EQ(files_->Get(kQueuedFile), WithTrailer("a|b=1\n"));
  EXPECT_TRUE(queue_.Drain());
  EXPECT_EQ(files_->Get(kQueuedFile), WithTrailer("a|b=1\nc|d=3\n"));
}

TEST_F(LineQueueTest, ATornTrailerStopsDraining) {
  Push("a|b", "1");
  Push("c|d", "2", kOther);
  files_->FillDiskAfter(7);
  EXPECT_FALSE(queue_.Drain());
  EXPECT_EQ(files_->Get(kOther), std::nullopt);
  EXPECT_EQ(reported(), std::vector<RewriteResult>{RewriteResult::kTrailerTorn});
  files_->EndFaults();
  EXPECT_TRUE(queue_.Drain());
  EXPECT_EQ(files_->Get(kOther), WithTrailer("c|d=2\n"));
}

TEST_F(LineQueueTest, ATornTrailerLeavesTheLineBeforeItWritten) {
  Push("a|b", "1");
  Push("c|d", "2", kOther);
  files_->FillDiskAfter(8 + 7);
  EXPECT_TRUE(queue_.Drain());
  EXPECT_EQ(reported(), std::vector<RewriteResult>{RewriteResult::kTrailerTorn});
}

TEST_F(LineQueueTest, ATornBodyGoesOnWithTheNext) {
  files_->PutDirectory(kOther);
  Push("a|b", "1", kOther);
  Push("c|d", "2");
  queue_.Drain();
  queue_.Drain();
  EXPECT_EQ(files_->Get(kQueuedFile), WithTrailer("c|d=2\n"));
}

TEST_F(LineQueueTest, ReportsOnceForEachFileAndCause) {
  files_->PutUnopenable(kQueuedFile);
  files_->PutUnopenable(kOther);
  for (int i = 0; i < 5; ++i) {
    Push("a|b", "1");
    Push("a|b", "1", kOther);
    queue_.Drain();
  }
  EXPECT_EQ(reported(),
            (std::vector<RewriteResult>{RewriteResult::kNotOpened, RewriteResult::kNotOpened}));
  files_->Put(kQueuedFile, "");
  files_->FillDiskAfter(0);
  Push("a|b", "1");
  Push("a|b", "1");
  queue_.Drain();
  EXPECT_EQ(reported().size(), 3u);
  EXPECT_EQ(reported().back(), RewriteResult::kBodyTorn);
}

TEST_F(LineQueueTest, WritesALineOnceForManyChanges) {
  for (int i = 0; i < 1000; ++i)
    queue_.PushChange(MakeWriteRequest("a|b", std::to_string(i), kQueuedFile));
  EXPECT_TRUE(queue_.Drain());
  EXPECT_EQ(files_->Get(kQueuedFile), WithTrailer("a|b=999\n"));
  EXPECT_EQ(files_->opens(), 2U);
}

TEST_F(LineQueueTest, ALineThatStandsForSeveralIsTriedOnceMore) {
  queue_.PushChange(MakeWriteRequest("a|b", "1", kQueuedFile));
  queue_.PushChange(MakeWriteRequest("a|b", "2", kQueuedFile));
  queue_.PushChange(MakeWriteRequest("c|d", "1", kQueuedFile));
  files_->FailOpen(2);
  EXPECT_TRUE(queue_.Drain());
  EXPECT_EQ(files_->Get(kQueuedFile), WithTrailer("a|b=2\nc|d=1\n"));
  EXPECT_EQ(reported(), std::vector<RewriteResult>{RewriteResult::kNotOpened});
}

TEST_F(LineQueueTest, ALineThatFailsAgainIsSpent) {
  files_->PutUnopenable(kQueuedFile);
  for (int i = 0; i < 10; ++i)
    queue_.PushChange(MakeWriteRequest("a|b", "1", kQueuedFile));
  EXPECT_FALSE(queue_.Drain());
  EXPECT_EQ(files_->opens(), 2U);
}

TEST_F(LineQueueTest, RemembersTheFailuresOfTheLastFilesOnly) {
  const auto fail = [&](std::size_t number) {
    const platform::WidePath path = u"/Store/" + platform::WidenPath(std::to_string(number));
    files_->PutUnopenable(path);
    Push("a|b", "1", path);
    queue_.Drain();
  };
  for (std::size_t i = 0; i <= LineQueue::kMostReported; ++i)
    fail(i);
  const std::size_t all = LineQueue::kMostReported + 1;
  EXPECT_EQ(reported().size(), all);
  for (std::size_t i = 1; i <= LineQueue::kMostReported; ++i)
    fail(i);
  EXPECT_EQ(reported().size(), all);
  fail(0);
  EXPECT_EQ(reported().size(), all + 1);
}

TEST_F(LineQueueTest, RemembersNoMoreOfAPathThanItsBeginning) {
  const platform::WidePath longest(1'000'000, u'x');
  const std::size_t before = BytesInUse();
  for (std::size_t i = 0; i < LineQueue::kMostReported; ++i) {
    platform::WidePath path = longest;
    path[i] = u'y';
    files_->FailOpen(2);
    Push("a|b", "1", path);
    queue_.Drain();
  }
  EXPECT_EQ(reported().size(), LineQueue::kMostReported);
  EXPECT_LT(BytesInUse(), before + 64 * 1024);
}

TEST_F(LineQueueTest, TakesNothingAfterItsEnd) {
  Push("a|b", "1");
  queue_.Start(251);
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
  LineQueue queue(files, [](const platform::WidePath&, RewriteResult) {});
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
  LineQueue queue(files, [](const platform::WidePath&, RewriteResult) {});
  queue.Start(251);
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
  queue_.Start(251);
  EXPECT_TRUE(Eventually([&] { return files_->Get(kQueuedFile) == WithTrailer("a|b=1\n"); }));
  Push("a|b", "2");
  EXPECT_TRUE(Eventually([&] { return files_->Get(kQueuedFile) == WithTrailer("a|b=2\n"); }));
}

TEST_F(LineQueueTest, ItsThreadLosesNoLineOfManyThreads) {
  queue_.Start(251);
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

void ReportToNobody(const platform::WidePath&, RewriteResult) {}

TEST(LineQueueThread, ReturnsWhenTheQueueEnds) {
  std::atomic<bool> returned{false};
  const auto files =
      std::make_shared<WatchedFileSystem>([&returned] { ThreadEnd::Watch(returned); });
  {
    LineQueue queue(files, ReportToNobody);
    queue.Start(251);
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
      LineQueue queue(files, ReportToNobody);
      queue.Start(251);
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
  LineQueue queue(files, [&](const platform::WidePath&, RewriteResult) {
    pushed_to->Push(MakeWriteRequest("c|d", "2", kOther));
  });
  pushed_to = &queue;
  queue.Push(MakeWriteRequest("a|b", "1", kQueuedFile));
  queue.Start(251);
  EXPECT_TRUE(Eventually([&] { return files->Get(kOther) == WithTrailer("c|d=2\n"); }));
}

TEST(LineQueueThread, LeavesTheOtherLinesForTheNextPushAfterAShortRead) {
  for (int round = 0; round < 20; ++round) {
    const auto files = std::make_shared<MemoryFileSystem>();
    files->PutDirectory(kQueuedFile);
    platform::Semaphore reported;
    LineQueue queue(files, [&](const platform::WidePath&, RewriteResult) { reported.Release(); });
    queue.Push(MakeWriteRequest("a|b", "1", kQueuedFile));
    queue.Push(MakeWriteRequest("c|d", "2", kOther));
    queue.Start(251);
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
  std::atomic<int> reports{0};
  LineQueue queue(files, [&](const platform::WidePath&, RewriteResult cause) {
    EXPECT_EQ(cause, RewriteResult::kShortRead);
    ++reports;
  });
  queue.Push(MakeWriteRequest("a|b", "1", kQueuedFile));
  queue.Push(MakeWriteRequest("c|d", "2", kQueuedFile));
  queue.Start(251);
  EXPECT_TRUE(Eventually([&] {
    queue.Push(MakeWriteRequest("e|f", "3", kQueuedFile));
    return files->disk.Get(kQueuedFile) == WithTrailer("c|d=2\ne|f=3\n");
  }));
  EXPECT_EQ(reports, 1);
}

}  // namespace
}  // namespace valmere::testing
