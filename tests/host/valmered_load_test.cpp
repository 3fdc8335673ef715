// The operator's wish, by SIGHUP, that the property file be loaded again.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <condition_variable>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <optional>
#include <string>

#include "client/client.h"
#include "host/driver/driver.h"
#include "host/values/property_loader.h"
#include "tests/host/valmered_fixture.h"
#include "tests/kill/property_file.h"

namespace valmere::test {
namespace {

std::string PeriodLine(const std::string& value) {
  return kPeriodAddress.guids + "|General:Property Publishing Period in ms=" + value;
}

class ValmeredLoadTest : public ValmeredTest {
 protected:
  void HangUp() {
    valmered_->Signal(SIGHUP);
    EXPECT_EQ(valmered_->ReadErrorLine(), "valmered: loading the property file again");
  }

  const std::string file_ = root_ + "/Store/ValmereProperties.ini";
};

TEST_F(ValmeredLoadTest, LoadsForEachWishThatComesAfterALoad) {
  Start();
  const RawClient client(socket_);
  for (const char* const value : {"750", "1000", "1250"}) {
    const std::string wanted = "\"Value\": " + Quoted(value);
    std::string answer;
    // The line that the load before has set may still be on its way into the file.
    RepeatUntil([&] { return answer.find(wanted) != std::string::npos; },
                [&] {
                  test::WritePropertyFile(file_, {PeriodLine(value)});
                  HangUp();
                  answer = client.Ask(GetText(kPeriodAddress));
                });
  }
  valmered_->Signal(SIGTERM);
  ExpectCleanEnd();
}

TEST_F(ValmeredLoadTest, EndsWhileItLoads) {
  Start();
  // It takes its time to be read, and is refused then.
  std::ofstream(file_) << std::string(20'000'000, 'x');
  HangUp();
  valmered_->Signal(SIGHUP);
  valmered_->Signal(SIGTERM);
  ExpectCleanEnd();
}

// Purpose: what a loader calls before each load. It counts the loads, and holds them up.
// Owner: the test.
// Threads: Enter on the loader's, the rest on the test's.
// Errors: a load that does not come within kPatience fails the test.
class Gate {
 public:
  void Enter() {
    std::unique_lock hold(lock_);
    ++loads_;
    changed_.notify_all();
    changed_.wait(hold, [this] { return open_; });
  }
  void AwaitLoad(int number) {
    std::unique_lock hold(lock_);
    EXPECT_TRUE(changed_.wait_for(hold, kPatience, [&] { return loads_ >= number; }));
  }
  void Open() {
    const std::lock_guard hold(lock_);
    open_ = true;
    changed_.notify_all();
  }
  int loads() {
    const std::lock_guard hold(lock_);
    return loads_;
  }

 private:
  std::mutex lock_;
  std::condition_variable changed_;
  int loads_ = 0;
  bool open_ = false;
};

// With a service in the test's own process, whose loads take as long as the test wants.
class PropertyLoaderTest : public ::testing::Test {
 protected:
  PropertyLoaderTest() {
    std::filesystem::create_directories(folder_.Path("Store"));
    WritePeriod("750");
    setenv("VALMERE_ROOT", folder_.Path("").c_str(), 1);
    driver_.Init();
    loader_.emplace(driver_, [this](const host::KeptProperties&) { gate_.Enter(); });
  }
  ~PropertyLoaderTest() override {
    gate_.Open();
    loader_.reset();
    driver_.Deinit();
  }

  void WritePeriod(const std::string& value) const {
    test::WritePropertyFile(folder_.Path("Store/ValmereProperties.ini"), {PeriodLine(value)});
  }
  std::string Period() const {
    auto client = host::ConnectToService(driver_);
    const client::PropertyAddress period{kPeriodAddress.component,
                                         kPeriodAddress.guids.substr(0, 36),
                                         kPeriodAddress.guids.substr(37)};
    const auto answer = client->Get({&period, 1}, client::Deadline::After(kPatience));
    return answer ? answer->front().value : "no answer";
  }
  void AwaitLoads() { loader_->WaitUntilIdle(client::Deadline::After(kPatience)); }

  TemporaryFolder folder_;
  host::Driver driver_;
  Gate gate_;
  std::optional<host::PropertyLoader> loader_;
};

TEST_F(PropertyLoaderTest, LoadsOnceMoreForAllThatIsAskedWhileItLoads) {
  loader_->RequestLoad();
  gate_.AwaitLoad(1);
  for (int i = 0; i < 1000; ++i)
    loader_->RequestLoad();
  WritePeriod("1000");
  gate_.Open();
  AwaitLoads();
  EXPECT_EQ(gate_.loads(), 2);
  EXPECT_EQ(Period(), "1000");
}

TEST_F(PropertyLoaderTest, LoadsAgainWhenTheServiceHasEndedTheSession) {
  loader_->RequestLoad();
  gate_.AwaitLoad(1);
  driver_.Deinit();
  gate_.Open();
  AwaitLoads();
  driver_.Init();
  WritePeriod("1000");
  loader_->RequestLoad();
  AwaitLoads();
  EXPECT_EQ(gate_.loads(), 2);
  EXPECT_EQ(Period(), "1000");
}

}  // namespace
}  // namespace valmere::test
