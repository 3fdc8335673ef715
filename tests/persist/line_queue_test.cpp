#include "persist/line_queue.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "tests/persist/property_file_samples.h"
#include "tests/support/memory_file_system.h"
#include "tests/support/test_thread.h"

namespace valmere::testing {
namespace {

constexpr platform::WidePathView kFile = u"/Store/Properties.ini";
constexpr platform::WidePathView kOther = u"/Store/Other.ini";

class LineQueueTest : public ::testing::Test {
 protected:
  void Push(std::string_view left_side, std::string_view value,
            platform::WidePathView path = kFile) {
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
  EXPECT_EQ(files_->Get(kFile), WithTrailer("a|b=3\nc|d=2\n"));
}

TEST_F(LineQueueTest, AnEmptyQueueHasWrittenNothing) {
  EXPECT_FALSE(queue_.Drain());
  EXPECT_EQ(files_->opens(), 0u);
}

TEST_F(LineQueueTest, AShortReadStopsAndLeavesTheRestForTheNextPush) {
  files_->Put(kFile, WithTrailer("a|b=1\n"));
  Push("x|x", "0", kOther);
  Push("a|b", "2");
  Push("c|d", "3");
  files_->ShortenRead(1, 2);
  EXPECT_FALSE(queue_.Drain()) << "though the line before was written";
  EXPECT_EQ(files_->Get(kOther), WithTrailer("x|x=0\n"));
  EXPECT_EQ(files_->Get(kFile), WithTrailer("a|b=1\n"));
  EXPECT_TRUE(queue_.Drain());
  EXPECT_EQ(files_->Get(kFile), WithTrailer("a|b=1\nc|d=3\n"));
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

TEST_F(LineQueueTest, ATornBodyGoesOnWithTheNext) {
  files_->PutDirectory(kOther);
  Push("a|b", "1", kOther);
  Push("c|d", "2");
  queue_.Drain();
  queue_.Drain();
  EXPECT_EQ(files_->Get(kFile), WithTrailer("c|d=2\n"));
}

TEST_F(LineQueueTest, ReportsOnceForEachFileAndCause) {
  files_->PutUnopenable(kFile);
  files_->PutUnopenable(kOther);
  for (int i = 0; i < 5; ++i) {
    Push("a|b", "1");
    Push("a|b", "1", kOther);
    queue_.Drain();
  }
  EXPECT_EQ(reported(),
            (std::vector<RewriteResult>{RewriteResult::kNotOpened, RewriteResult::kNotOpened}));
  files_->Put(kFile, "");
  files_->FillDiskAfter(0);
  Push("a|b", "1");
  Push("a|b", "1");
  queue_.Drain();
  EXPECT_EQ(reported().size(), 3u);
  EXPECT_EQ(reported().back(), RewriteResult::kBodyTorn);
}

TEST_F(LineQueueTest, ItsThreadWritesWhatIsPushedBeforeAndAfterItStarts) {
  Push("a|b", "1");
  queue_.Start(251);
  EXPECT_TRUE(Eventually([&] { return files_->Get(kFile) == WithTrailer("a|b=1\n"); }));
  Push("a|b", "2");
  EXPECT_TRUE(Eventually([&] { return files_->Get(kFile) == WithTrailer("a|b=2\n"); }));
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
  EXPECT_TRUE(Eventually([&] { return files_->Get(kFile).value_or("").size() == all; }));
}

}  // namespace
}  // namespace valmere::testing
