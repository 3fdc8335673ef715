// valmered with the root of a fresh device, under a load, and reading its property file again.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <memory>

#include "platform/posix/sanitizers.h"
#include "tests/host/valmered_fixture.h"

namespace valmere::test {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;

#ifdef VALMERE_SANITIZER
constexpr bool kFullSize = false;  // its threads take many times the memory and the time
#else
constexpr bool kFullSize = true;
#endif
constexpr int kManyClients = kFullSize ? 1000 : 100;
constexpr int kSilentClients = kFullSize ? 250 : 10;
// It has to end within 5 s; three times that, because tests run beside others.
constexpr std::chrono::seconds kEndsWithin{kFullSize ? 15 : 60};

constexpr char kPeriodKey[] =
    "99A61D40-20CE-41EA-A579-EB92C6ED94C6:DA821DC5-948D-4659-9B52-177E4C102129";
constexpr char kZoneLine[] =
    "E96B0063-C2EF-4545-92E1-AC4990BA1B37:8D6BC3E1-3943-4E0D-97E7-601690F93C1E"
    "|Debug Zone:Enable Info Debug Zone=";
constexpr char kSubscribeAll[] = R"({"SubscribeAllCurrentAndNewProperties": true})";

std::string GetOf(const std::string& guid) {
  return R"({"PropertyGetRequests": [{"Component": "955CFDC2-8EA6-478E-A927-7C870022EA03","GUID": ")" +
         guid + R"("}]})";
}

// A property file with two values; the checksum is that of these very bytes.
void WritePropertyFile(const std::string& path, const std::string& period, const std::string& zone,
                       const std::string& checksum) {
  std::ofstream(path, std::ios::binary)
      << kPeriodKey << "|General:Property Publishing Period in ms=" << period << '\n'
      << kZoneLine << zone << '\n'
      << checksum;
}

void AllowManyDescriptors() {
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  limit.rlim_cur = limit.rlim_max;
  setrlimit(RLIMIT_NOFILE, &limit);
}

class ValmeredServiceTest : public ::testing::Test {
 protected:
  using Clients = std::vector<std::unique_ptr<RawClient>>;

  void Start() {
    valmered_ = std::make_unique<Subprocess>(
        std::vector<std::string>{VALMERED, "--root", root_, "--init-root", "--socket", socket_,
                                 "--max-clients-per-process", "2048"});
    ASSERT_EQ(valmered_->ReadLine(), "valmered: ready on " + socket_);
  }
  // Ends it; its service waits for three seconds of that.
  void ExpectEndInTime() {
    const auto start = std::chrono::steady_clock::now();
    valmered_->Signal(SIGTERM);
    EXPECT_EQ(valmered_->Wait(), 0) << valmered_->errors();
    EXPECT_LT(std::chrono::steady_clock::now() - start, kEndsWithin);
    EXPECT_EQ(std::filesystem::file_size(root_ + "/DriverUnloadSuccessful"), 4U)
        << "something of the service was still alive";
  }
  std::string Ask(const std::string& request) const {
    const RawClient client(socket_);
    client.Send(FrameOf(request));
    return client.ReceiveFrame();
  }
  Clients Connect(int count) const {
    AllowManyDescriptors();
    Clients clients;
    for (int i = 0; i < count; ++i) {
      clients.push_back(std::make_unique<RawClient>(socket_));
    }
    return clients;
  }

  TemporaryFolder folder_;
  const std::string root_ = folder_.Path("root");
  const std::string socket_ = folder_.Path("PRN1");
  std::unique_ptr<Subprocess> valmered_;
};

TEST_F(ValmeredServiceTest, FindsAllThatItReadsInTheSkeleton) {
  Start();
  const std::string all = Ask(kGetAll);
  EXPECT_THAT(
      all,
      AllOf(
          HasSubstr(R"("NameString": "OS Version","Status": "Successful","Value": "8.3.6250.0")"),
          HasSubstr(
              R"("NameString": "Property Loading Error","Status": "Successful","Value": "False")")));
  EXPECT_THAT(all, ::testing::Not(HasSubstr(R"("Value": "Error")")));
  ExpectEndInTime();
}

TEST_F(ValmeredServiceTest, LoadsThePropertyFileAgainOnSighup) {
  std::filesystem::create_directories(root_ + "/Store");
  const std::string file = root_ + "/Store/ValmereProperties.ini";
  WritePropertyFile(file, "1000", "False", "\xfe\x67");
  Start();
  EXPECT_THAT(Ask(GetOf(kPeriodKey)), HasSubstr(R"("Value": "1000")"));
  WritePropertyFile(file, "750", "True", "\x04\x8b");
  valmered_->Signal(SIGHUP);
  EXPECT_EQ(valmered_->ReadErrorLine(), "valmered: loading the property file again");
  std::string answer;
  RepeatUntil([&] { return answer.find(R"("Value": "750")") != std::string::npos; },
              [&] { answer = Ask(GetOf(kPeriodKey)); });
  ExpectEndInTime();
}

TEST_F(ValmeredServiceTest, TakesAStormOfSighupWithFewThreads) {
  constexpr int kSignals = 3000;
  constexpr std::size_t kFew = 3;  // one requests loads, one does them, one serves this test
  std::filesystem::create_directories(root_ + "/Store");
  const std::string file = root_ + "/Store/ValmereProperties.ini";
  WritePropertyFile(file, "1000", "False", "\xfe\x67");
  Start();
  const std::size_t before = ThreadsOf(valmered_->process());
  // It takes its time to be read, and is refused then.
  std::ofstream(file) << std::string(kFullSize ? 20'000'000 : 1'000'000, 'x');
  std::size_t most = 0;
  for (int i = 0; i < kSignals; ++i) {
    valmered_->Signal(SIGHUP);
    if (i % 50 == 0) most = std::max(most, ThreadsOf(valmered_->process()));
  }
  EXPECT_LE(most, before + kFew);
  WritePropertyFile(file, "750", "True", "\x04\x8b");
  valmered_->Signal(SIGHUP);
  std::string answer;
  RepeatUntil([&] { return answer.find(R"("Value": "750")") != std::string::npos; },
              [&] { answer = Ask(GetOf(kPeriodKey)); });
  ExpectEndInTime();
}

TEST_F(ValmeredServiceTest, IsNotCutShortByMoreSignalsWhileItEnds) {
  Start();
  const RawClient client(socket_);
  valmered_->Signal(SIGINT);
  client.ReceiveToEnd();
  valmered_->Signal(SIGHUP);
  valmered_->Signal(SIGINT);
  ExpectEndInTime();
}

TEST_F(ValmeredServiceTest, ServesAThousandClientsAtOnceAndEndsInTime) {
  Start();
  const Clients clients = Connect(kManyClients);
  for (const auto& client : clients) {
    client->Send(FrameOf(GetOf(kPeriodKey)));
  }
  for (const auto& client : clients) {
    ASSERT_THAT(client->ReceiveFrame(), HasSubstr(R"("Value": "500")"));
  }
  ExpectEndInTime();
  for (const auto& client : clients) {
    EXPECT_TRUE(client->PeerHasClosed());
  }
}

TEST_F(ValmeredServiceTest, EndsInTimeWhileNobodyReads) {
  Start();
  const Clients clients = Connect(kSilentClients);
  std::string requests = FrameOf(kSubscribeAll);
  for (int i = 0; i < 20; ++i) {
    requests += FrameOf(kGetAll);
  }
  for (const auto& client : clients) {
    client->Send(requests);
  }
  EXPECT_THAT(Ask(GetOf(kPeriodKey)), HasSubstr(R"("Value": "500")"));
  ExpectEndInTime();
}

}  // namespace
}  // namespace valmere::test
