// When what was written is synced.
#include <atomic>
#include <memory>
#include <string>
#include <string_view>

#include "persist/file/line_queue.h"
#include "tests/persist/file/line_queue_fixture.h"
#include "tests/support/test_thread.h"

namespace valmere::test {
namespace {

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
