// The thread that applies lines: its start, its errors and its end.
#include <atomic>
#include <memory>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "persist/file/line_queue.h"
#include "persist/file/property_file_lease.h"
#include "tests/persist/file/hanging_files.h"
#include "tests/persist/file/line_queue_fixture.h"
#include "tests/persist/file/thread_end.h"
#include "tests/persist/file/watched_file_system.h"
#include "tests/support/test_thread.h"

namespace valmere::test {
namespace {

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

TEST_F(LineQueueTest, AThreadThatComesBackFromAFileCallAfterTheEndWritesNoMore) {
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

TEST_F(LineQueueTest, EndsWhileAnotherHasTheLease) {
  std::atomic<bool> returned{false};
  const auto files =
      std::make_shared<WatchedFileSystem>([&returned] { ThreadEnd::Watch(returned); });
  LineQueue queue(files, std::make_shared<KeptReports>(), kQueuedFile);
  queue.Start(251, 253);
  queue.Push(MakeWriteRequest("a|b", "1", kQueuedFile));
  EXPECT_TRUE(Eventually([&] { return files->disk.Get(kQueuedFile) == WithTrailer("a|b=1\n"); }));
  const PropertyFileLease lease(PropertyFileLease::For::kReading);
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

}  // namespace
}  // namespace valmere::test
