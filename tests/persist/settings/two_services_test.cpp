// While one service replaces another, both are at work on the property file.
#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "driver/sync/live_counters.h"
#include "persist/file/property_file_lease.h"
#include "tests/persist/file/hanging_files.h"
#include "tests/persist/file/watched_file_system.h"
#include "tests/persist/settings/persistence_fixture.h"

namespace valmere::test {
namespace {

constexpr std::uint32_t kProperties = 40;

// A service as far as its properties are concerned.
struct Service {
  explicit Service(const std::shared_ptr<platform::FileSystem>& files)
      : persistence(Persistence::Make(files, kMain, kOverride)) {
    persistence->AttachEngine(engine);
    persistence->AttachLog(log);
    for (std::uint32_t i = 0; i < kProperties; ++i) {
      numbers.push_back(UIntProperty::Make(0, "P" + std::to_string(i), "Number", "G", "Group"));
      persistence->RegisterProperty(numbers.back());
    }
    persistence->StartWorkers(251, 253);
  }
  void SetAll(std::uint32_t value) const {
    for (const auto& number : numbers)
      number->SetValue(value);
  }
  std::string LoadingError() const { return engine->Find("Property Loading Error")->ToString(); }

  const std::shared_ptr<KeptProperties> engine = std::make_shared<KeptProperties>();
  const std::shared_ptr<KeptLog> log = std::make_shared<KeptLog>();
  std::vector<std::shared_ptr<UIntProperty>> numbers;
  std::shared_ptr<Persistence> persistence;
};

// The lines of all properties.
std::string Body(std::uint32_t value) {
  std::string body;
  for (std::uint32_t i = 0; i < kProperties; ++i)
    body += "G:P" + std::to_string(i) + "|Group:Number=" + std::to_string(value) + "\n";
  return body;
}

void PauseFor(std::uint32_t milliseconds) {
  platform::Semaphore never;
  never.WaitUntil(platform::MonotonicNow() + milliseconds * platform::kTicksPerMillisecond);
}

TEST(TwoServices, TheSecondLoadsAWholeFileWhileTheFirstStillWritesItsLines) {
  std::atomic<int> rewrites{0};
  const auto files = std::make_shared<WatchedFileSystem>([&] {
    ++rewrites;
    PauseFor(1);
  });
  files->disk.Put(kMain, WithTrailer(Body(1)));
  // Where all lines came through before the second had loaded, nothing was to be seen.
  int seen = 0;
  for (std::uint32_t round = 2; round < 100 && seen < 10; ++round) {
    const Service first(files);
    rewrites = 0;
    first.SetAll(round);
    ASSERT_TRUE(Eventually([&] { return rewrites > 2; }));
    const Service second(files);
    if (rewrites < static_cast<int>(kProperties)) ++seen;
    ASSERT_EQ(second.LoadingError(), "False") << round;
    ASSERT_EQ(second.numbers[0]->GetValue(), round);
  }
  EXPECT_EQ(seen, 10);
}

TEST(TwoServices, BothMayWriteAtTheSameTime) {
  const auto disk = std::make_shared<MemoryFileSystem>();
  disk->Put(kMain, WithTrailer(Body(1)));
  const Service first(disk);
  const Service second(disk);
  for (std::uint32_t value = 2; value < 40; ++value) {
    first.SetAll(value);
    second.SetAll(value);
    // Both have the last word on each line, and it is the same.
    ASSERT_TRUE(Eventually([&] { return disk->Get(kMain) == WithTrailer(Body(value)); }));
  }
}

class HungService : public ::testing::Test {
 protected:
  // A service whose writer hangs in a file call.
  void Hang(Service& service) {
    files_->HangAtTheNextRead();
    service.numbers[0]->SetValue(2);
    files_->AwaitHanging();
  }

  const std::shared_ptr<MemoryFileSystem> disk_ = std::make_shared<MemoryFileSystem>();
  const std::shared_ptr<HangingFiles> files_ = std::make_shared<HangingFiles>(disk_);
};

TEST_F(HungService, DoesNotKeepTheNextFromLoading) {
  disk_->Put(kMain, WithTrailer(Body(1)));
  Service hung(files_);
  Hang(hung);
  {
    const Service next(disk_);
    EXPECT_EQ(next.LoadingError(), "False");
    EXPECT_EQ(next.numbers[0]->GetValue(), 1U);
    EXPECT_TRUE(Eventually([&] {
      const platform::Ticks again = platform::MonotonicNow();
      next.persistence->Load();
      return platform::MonotonicNow() - again < PropertyFileLease::kLongest;
    })) << "though the other still hangs";
  }
  files_->GoOn();
  EXPECT_TRUE(Eventually([&] {
    return disk_->Get(kMain)->starts_with("G:P0|Group:Number=2\nG:P1|Group:Number=1\n");
  })) << "no other has written since: its line is as good as any";
}

TEST_F(HungService, DoesNotWriteWhatIsOutOfDateWhenItComesBack) {
  disk_->Put(kMain, WithTrailer(Body(1)));
  Service hung(files_);
  Hang(hung);
  const Service next(disk_);
  next.SetAll(3);
  EXPECT_TRUE(Eventually([&] { return disk_->Get(kMain) == WithTrailer(Body(3)); }));
  files_->GoOn();
  EXPECT_TRUE(Eventually([&] { return hung.log->CountOf("another went on with the file") == 1; }));
  EXPECT_EQ(disk_->Get(kMain), WithTrailer(Body(3)));
}

// No line of it would be written, so no write is asked for.
TEST_F(HungService, DoesNotRemoveAnOverrideThatCameSince) {
  const auto override_file = WithTrailer("G:Unknown|Group:Number=9\n");
  disk_->Put(kMain, WithTrailer(Body(1)));
  Service hung(files_);
  files_->HangAtTheNextRead();
  TestThread loading([&] { hung.persistence->Load(); });
  files_->AwaitHanging();
  const Service next(disk_);
  disk_->Put(kOverride, override_file);
  files_->GoOn();
  loading.Join();
  EXPECT_EQ(disk_->Get(kOverride), override_file);
}

TEST(EndedService, WritesNoMoreWhoeverStillHoldsIt) {
  const auto disk = std::make_shared<MemoryFileSystem>();
  const auto override_file = WithTrailer("G:P0|Group:Number=9\n");
  disk->Put(kMain, WithTrailer(Body(1)));
  const Service service(disk);
  EXPECT_EQ(LiveWorkerThreads::Live(), 2U);
  service.persistence->End();
  EXPECT_EQ(LiveWorkerThreads::Live(), 0U);
  disk->Put(kOverride, override_file);
  service.SetAll(2);
  service.persistence->StoreAll();
  EXPECT_FALSE(service.persistence->Load());
  service.persistence->End();
  EXPECT_EQ(service.numbers[0]->GetValue(), 2U);
  EXPECT_EQ(disk->Get(kMain), WithTrailer(Body(1)));
  EXPECT_EQ(disk->Get(kOverride), override_file);
}

// The load reads the files when the end comes.
TEST(EndedService, DoesNotUseUpAnOverrideThatItsLoadStillComesUpon) {
  for (const char* line : {"G:P0|Group:Number=9\n", "G:Unknown|Group:Number=9\n"}) {
    const auto disk = std::make_shared<MemoryFileSystem>();
    const auto files = std::make_shared<HangingFiles>(disk);
    const auto override_file = WithTrailer(line);
    disk->Put(kMain, WithTrailer(Body(1)));
    const Service service(files);
    disk->Put(kOverride, override_file);
    files->HangAtTheNextRead();
    TestThread loading([&] { service.persistence->Load(); });
    files->AwaitHanging();
    service.persistence->End();
    files->GoOn();
    loading.Join();
    EXPECT_EQ(disk->Get(kOverride), override_file) << line;
    EXPECT_EQ(disk->Get(kMain), WithTrailer(Body(1)));
  }
}

TEST(EndedService, LoadsNoMoreWhereOthersHaveTheFiles) {
  const auto disk = std::make_shared<MemoryFileSystem>();
  disk->Put(kMain, WithTrailer(Body(1)));
  const Service service(disk);
  const PropertyFileLease lease(PropertyFileLease::For::kRewriting);
  const platform::Ticks start = platform::MonotonicNow();
  TestThread loading([&] { EXPECT_FALSE(service.persistence->Load()); });
  // Lets the load come to its wait; where it has not, it fails before it.
  PauseFor(20);
  service.persistence->EndLoads();
  loading.Join();
  EXPECT_LT(platform::MonotonicNow() - start, PropertyFileLease::kLongest / 2);
  EXPECT_EQ(service.LoadingError(), "False");
}

}  // namespace
}  // namespace valmere::test
