// What is in the property file when valmered is ready, and when it has ended.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "client/client.h"
#include "persist/file/crc16.h"
#include "platform/posix/sanitizers.h"
#include "tests/host/valmered_fixture.h"

namespace valmere::test {
namespace {

using client::Client;
using client::Deadline;
using client::Property;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::StartsWith;

#ifdef VALMERE_SANITIZER
constexpr int kManyRuns = 3;
#else
constexpr int kManyRuns = 20;
#endif

constexpr char kPeriodLine[] =
    "99A61D40-20CE-41EA-A579-EB92C6ED94C6:DA821DC5-948D-4659-9B52-177E4C102129"
    "|General:Property Publishing Period in ms=";
constexpr char kZoneGroup[] = "E96B0063-C2EF-4545-92E1-AC4990BA1B37";
// Lines of no property, as an older service may have kept them; enough to take some time.
std::string LinesOfNoProperty(const std::string& value) {
  std::string lines;
  for (int i = 100; i < 300; ++i)
    lines += "GROUP:" + std::to_string(i) + "|Old:Gone=" + value + "\n";
  return lines;
}

// A valmered with a root of its own.
class Desk {
 public:
  explicit Desk(const std::string& folder) : root_(folder + "/root"), socket_(folder + "/PRN1") {
    std::filesystem::create_directories(root_ + "/Store");
  }

  void Start(const std::vector<std::string>& options = {}) {
    std::vector<std::string> command{VALMERED, "--root", root_, "--socket", socket_};
    command.insert(command.end(), options.begin(), options.end());
    valmered_ = std::make_unique<Subprocess>(command);
  }
  void AwaitReady() { ASSERT_EQ(valmered_->ReadLine(), "valmered: ready on " + socket_); }
  void Write(const std::string& name, const std::string& body) const {
    const unsigned crc = Crc16(body);
    std::ofstream(root_ + "/Store/" + name, std::ios::binary)
        << body << static_cast<char>(crc & 0xFF) << static_cast<char>(crc >> 8);
  }
  void WriteMain(const std::string& body) const { Write("ValmereProperties.ini", body); }
  void WriteOverride(const std::string& body) const {
    Write("ValmerePropertiesOverride.ini", body);
  }
  std::string Lines() const { return ContentOf(root_ + "/Store/ValmereProperties.ini"); }
  Client Connect() const {
    auto made = Client::Connect(socket_, Deadline::After(kPatience));
    EXPECT_TRUE(made.ok());
    return std::move(*made);
  }
  Subprocess& valmered() { return *valmered_; }
  const std::string& root() const { return root_; }

 private:
  const std::string root_;
  const std::string socket_;
  std::unique_ptr<Subprocess> valmered_;
};

std::vector<Property> Zones(Client& client) {
  auto zones = client.GetGroup(kZoneGroup, Deadline::After(kPatience));
  EXPECT_TRUE(zones.ok());
  return *zones;
}

// Changes the value of a switch and reads it back.
Property Flip(Client& client, const Property& zone) {
  Property flipped = zone;
  flipped.value = zone.value == "True" ? "False" : "True";
  const client::SetRequest request{zone.address(), flipped.value};
  EXPECT_TRUE(client.Set({&request, 1}, Deadline::After(kPatience)).ok());
  const auto address = zone.address();
  const auto answer = client.Get({&address, 1}, Deadline::After(kPatience));
  EXPECT_TRUE(answer.ok() && answer->front().value == flipped.value);
  return flipped;
}

std::string LineOf(const Property& property) {
  return property.group_guid + ":" + property.guid + "|" + property.group_name + ":" +
         property.name + "=" + property.value + "\n";
}

// A busy machine takes its time; what counts is that nothing is lost.
const std::vector<std::string> kAmpleTime = {"--drain-timeout", "60s"};

class ValmeredStoreTest : public ::testing::Test {
 protected:
  std::vector<std::unique_ptr<Desk>> MakeDesks(int count) const {
    std::vector<std::unique_ptr<Desk>> desks;
    for (int i = 0; i < count; ++i) {
      desks.push_back(std::make_unique<Desk>(folder_.Path(std::to_string(i))));
      desks.back()->WriteMain(kPeriodLine + std::string("500\n"));
    }
    return desks;
  }
  static std::vector<Property> FlipAll(const Desk& desk) {
    Client client = desk.Connect();
    std::vector<Property> flipped;
    for (const Property& zone : Zones(client))
      flipped.push_back(Flip(client, zone));
    EXPECT_EQ(flipped.size(), 13U);
    return flipped;
  }
  static void ExpectInFile(const Desk& desk, const std::vector<Property>& flipped) {
    const std::string lines = desk.Lines();
    for (const Property& zone : flipped)
      EXPECT_THAT(lines, HasSubstr(LineOf(zone)));
  }

  TemporaryFolder folder_;
};

TEST_F(ValmeredStoreTest, HasAllThatWasReadBackBeforeTheSignal) {
  const auto desks = MakeDesks(kManyRuns);
  std::vector<std::vector<Property>> flipped;
  for (const auto& desk : desks)
    desk->Start(kAmpleTime);
  for (const auto& desk : desks) {
    desk->AwaitReady();
    flipped.push_back(FlipAll(*desk));
    desk->valmered().Signal(SIGTERM);
  }
  for (std::size_t i = 0; i < desks.size(); ++i) {
    EXPECT_EQ(desks[i]->valmered().Wait(), 0);
    EXPECT_EQ(desks[i]->valmered().errors(), "");
    ExpectInFile(*desks[i], flipped[i]);
  }
}

TEST_F(ValmeredStoreTest, HasAllThatWasReadBackAmidTheFloodOfAnother) {
  const auto desks = MakeDesks(1);
  Desk& desk = *desks.front();
  desk.Start(kAmpleTime);
  desk.AwaitReady();
  std::vector<Property> flipped = FlipAll(desk);
  const Property fickle = flipped.back();
  flipped.pop_back();
  std::atomic<int> sets = 0;
  std::thread flood([client = desk.Connect(), &sets, &fickle]() mutable {
    client::SetRequest request{fickle.address(), ""};
    do {
      request.value = ++sets % 2 == 0 ? "True" : "False";
    } while (client.Set({&request, 1}, Deadline::After(kPatience)).ok());
  });
  RepeatUntil([&] { return sets > 1000; }, [] {});
  Client client = desk.Connect();
  for (Property& zone : flipped)
    zone = Flip(client, zone);
  desk.valmered().Signal(SIGTERM);
  EXPECT_EQ(desk.valmered().Wait(), 0);
  EXPECT_EQ(desk.valmered().errors(), "");
  flood.join();
  ExpectInFile(desk, flipped);
}

TEST_F(ValmeredStoreTest, HasTheValuesOfAnOverrideWhenItIsReady) {
  const auto desks = MakeDesks(kManyRuns);
  const std::string brought = kPeriodLine + std::string("750\n") + LinesOfNoProperty("new");
  for (const auto& desk : desks) {
    desk->WriteMain(kPeriodLine + std::string("500\n") + LinesOfNoProperty("old"));
    desk->WriteOverride(brought);
    desk->Start(kAmpleTime);
    desk->AwaitReady();
    desk->valmered().Signal(SIGTERM);
    EXPECT_THAT(desk->Lines(), StartsWith(brought));
    EXPECT_FALSE(std::filesystem::exists(desk->root() + "/Store/ValmerePropertiesOverride.ini"));
  }
  for (const auto& desk : desks) {
    EXPECT_EQ(desk->valmered().Wait(), 0);
    EXPECT_EQ(desk->valmered().errors(), "");
    EXPECT_THAT(desk->Lines(), StartsWith(brought));
  }
}

TEST_F(ValmeredStoreTest, HasTheValuesOfAnOverrideThatWasLoadedJustBeforeTheSignal) {
  const auto desks = MakeDesks(kManyRuns);
  const std::string brought = kPeriodLine + std::string("750\n") + LinesOfNoProperty("new");
  for (const auto& desk : desks) {
    desk->WriteMain(kPeriodLine + std::string("500\n") + LinesOfNoProperty("old"));
    desk->Start(kAmpleTime);
    desk->AwaitReady();
    desk->WriteOverride(brought);
    desk->valmered().Signal(SIGHUP);
    EXPECT_EQ(desk->valmered().ReadErrorLine(), "valmered: loading the property file again");
    desk->valmered().Signal(SIGTERM);
  }
  for (const auto& desk : desks) {
    EXPECT_EQ(desk->valmered().Wait(), 0);
    EXPECT_EQ(desk->valmered().errors(), "");
    EXPECT_THAT(desk->Lines(), StartsWith(brought));
  }
}

TEST_F(ValmeredStoreTest, IsReadyAllTheSameWhenAnOverrideCannotBeWritten) {
  const auto desks = MakeDesks(1);
  Desk& desk = *desks.front();
  desk.WriteOverride(kPeriodLine + std::string("750\n"));
  // Named twice, so that whatever is written to the first line, another value stands behind it.
  desk.WriteMain(kPeriodLine + std::string("500\n") + kPeriodLine + "500\n");
  desk.Start({"--drain-timeout", "200ms"});
  desk.AwaitReady();
  EXPECT_EQ(desk.valmered().ReadErrorLine(),
            "valmered: the override's values are not in the property file yet: "
            "\"General:Property Publishing Period in ms\"");
  desk.valmered().Signal(SIGTERM);
  EXPECT_EQ(desk.valmered().Wait(), 0);
}

TEST_F(ValmeredStoreTest, TellsWhatIsNotInThePropertyFileWhenTheTimeIsUp) {
  const auto desks = MakeDesks(1);
  Desk& desk = *desks.front();
  std::filesystem::remove_all(desk.root() + "/Store");
  desk.Start({"--drain-timeout", "200ms"});
  desk.AwaitReady();
  FlipAll(desk);
  desk.valmered().Signal(SIGTERM);
  EXPECT_EQ(desk.valmered().Wait(), 0);
  EXPECT_THAT(desk.valmered().errors(),
              AllOf(HasSubstr("the time is up; not in the property file yet: \"Debug Zone:"),
                    HasSubstr(" and 8 more\n")));
}

TEST_F(ValmeredStoreTest, HasNothingToTellWhereNothingWasSet) {
  const auto desks = MakeDesks(1);
  Desk& desk = *desks.front();
  desk.WriteMain(kPeriodLine + std::string("0500\n") +
                 "99A61D40-20CE-41EA-A579-EB92C6ED94C6:32244D1F-E72E-4F42-A4DE-CAB2C6AF88A9"
                 "|General:Error Log File Name=of another day\n");
  desk.Start(kAmpleTime);
  desk.AwaitReady();
  const std::string before = desk.Lines();
  desk.valmered().Signal(SIGTERM);
  EXPECT_EQ(desk.valmered().Wait(), 0);
  EXPECT_EQ(desk.valmered().errors(), "");
  EXPECT_EQ(desk.Lines(), before);
}

TEST_F(ValmeredStoreTest, LooksIntoTheFileThatTheServiceNamesNow) {
  const auto desks = MakeDesks(1);
  Desk& desk = *desks.front();
  desk.Start(kAmpleTime);
  desk.AwaitReady();
  Client client = desk.Connect();
  std::vector<Property> zones = Zones(client);
  const Property before = Flip(client, zones.back());
  zones.pop_back();
  const client::SetRequest rename{{before.component, "99A61D40-20CE-41EA-A579-EB92C6ED94C6",
                                   "CD31503F-4949-40E1-BA2C-B2A88CF420F0"},
                                  "/Store/Other.ini"};
  ASSERT_TRUE(client.Set({&rename, 1}, Deadline::After(kPatience)).ok());
  for (Property& zone : zones)
    zone = Flip(client, zone);
  desk.valmered().Signal(SIGTERM);
  EXPECT_EQ(desk.valmered().Wait(), 0);
  EXPECT_EQ(desk.valmered().errors(), "");
  EXPECT_THAT(desk.Lines(), HasSubstr(LineOf(before)));
  const std::string others = ContentOf(desk.root() + "/Store/Other.ini");
  for (const Property& zone : zones)
    EXPECT_THAT(others, HasSubstr(LineOf(zone)));
}

}  // namespace
}  // namespace valmere::test
