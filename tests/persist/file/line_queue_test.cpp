// Lines that are applied, and those that fail or have to wait.
#include "persist/file/line_queue.h"

#include <gmock/gmock.h>

#include <cstddef>
#include <string>

#include "persist/file/failed_lines.h"
#include "persist/file/file_stream.h"
#include "tests/persist/file/line_queue_fixture.h"
#include "tests/support/allocations.h"
#include "tests/support/test_thread.h"

namespace valmere::test {
namespace {

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

TEST_F(LineQueueTest, GivesUpTheFileThatHasFailedLongestButNotTheFirst) {
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

}  // namespace
}  // namespace valmere::test
