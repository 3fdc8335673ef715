// Services that end while one of their threads is held up at a file.
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <new>
#include <string>
#include <string_view>

#include "driver/service/service.h"
#include "driver/sync/live_counters.h"
#include "persist/file/property_file_lease.h"
#include "tests/driver/messages.h"
#include "tests/driver/service/service_fixture.h"
#include "tests/support/allocations.h"
#include "tests/support/frames.h"
#include "tests/support/memory_file_system.h"
#include "tests/support/test_thread.h"

namespace valmere::test {
namespace {

// A device that hangs in a read, with a lock held: a thread in it can only be left behind.
class HungDevice final : public platform::File {
 public:
  struct State {
    platform::Lock lock;
    platform::Semaphore go_on;
    std::atomic<bool> hangs{false};
  };

  explicit HungDevice(std::shared_ptr<State> state) : state_(std::move(state)) {}

  std::size_t Read(void* /*buffer*/, std::size_t /*length*/) override {
    const platform::ScopedLock hold(state_->lock);
    state_->hangs = true;
    state_->go_on.Wait();
    return 0;
  }
  std::size_t Write(const void* /*buffer*/, std::size_t length) override { return length; }
  std::optional<std::uint64_t> Size() override { return 0; }

 private:
  const std::shared_ptr<State> state_;
};

// Files in memory and the service's own device, which hangs. From its opening on the thread that
// opens it is granted so many allocations.
class FilesWithAHungDevice final : public platform::FileSystem {
 public:
  explicit FilesWithAHungDevice(std::uint32_t granted) : granted_(granted) {}

  std::unique_ptr<platform::File> Open(platform::WidePathView path,
                                       platform::OpenFlags flags) override {
    if (path != u"PRN1:") return disk_.Open(path, flags);
    auto device = std::make_unique<HungDevice>(state);
    limited_ = std::make_unique<LimitedAllocations>(granted_);
    return device;
  }
  bool Exists(platform::WidePathView path) override { return disk_.Exists(path); }
  bool Remove(platform::WidePathView path) override { return disk_.Remove(path); }
  void Unlimit() { limited_.reset(); }

  const std::shared_ptr<HungDevice::State> state = std::make_shared<HungDevice::State>();

 private:
  const std::uint32_t granted_;
  MemoryFileSystem disk_;
  std::unique_ptr<LimitedAllocations> limited_;
};

// Whether a start with so much memory failed when the device was being read already.
bool FailsWithItsDeviceInUse(std::uint32_t granted) {
  const auto files = std::make_shared<FilesWithAHungDevice>(granted);
  bool failed = false;
  try {
    MakeService(files);
  } catch (const std::bad_alloc&) {
    failed = true;
  }
  files->Unlimit();
  const bool hung = files->state->hangs;
  if (failed && hung) {
    EXPECT_EQ(LiveWorkerThreads::Live(), 1u) << "the one that is in the device";
  }
  files->state->go_on.Release();
  EXPECT_TRUE(Eventually([] { return LeftAlive() == 0; }));
  EXPECT_TRUE(failed);
  return failed && hung;
}

TEST(FailedStart, EndsEveryThreadThoughOneIsLeftBehindThatHoldsTheService) {
  constexpr std::uint32_t kStep = 5;  // less than the steps take that follow the device's
  std::uint32_t granted = 0;
  while (!FailsWithItsDeviceInUse(granted) && !::testing::Test::HasFailure())
    granted += kStep;
}

TEST(EndingService, DoesNotLeaveAClientBehindThatWaitsForTheFiles) {
  const auto files = std::make_shared<MemoryFileSystem>();
  auto service = MakeService(files);
  auto session = service->sessions().Find(service->sessions().Open());
  const PropertyFileLease lease(PropertyFileLease::For::kRewriting);
  const std::string load =
      FrameOf(SetText({kOwnComponent.component,
                       "99A61D40-20CE-41EA-A579-EB92C6ED94C6:0D9B0F83-2282-4728-A78E-FE2FF4E3A13C"},
                      "True"));
  session->Write(load.data(), static_cast<int>(load.size()));
  // Lets the load come to its wait; where it has not, it fails before it.
  platform::Semaphore never;
  never.WaitUntil(platform::MonotonicNow() + 50 * platform::kTicksPerMillisecond);
  service.reset();
  session.reset();
  EXPECT_EQ(LeftAlive(), 0u);
  EXPECT_EQ(files->Get(kLog).value_or("").find("did not end in time"), std::string::npos);
}

}  // namespace
}  // namespace valmere::test
