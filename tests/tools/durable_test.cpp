// Values that are on the disk when the command returns: the command against the real service, which
// is killed where it matters.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <csignal>
#include <filesystem>
#include <memory>
#include <thread>

#include "client/client.h"
#include "client/service_properties.h"
#include "tests/host/subprocess.h"
#include "tests/tools/command_run.h"
#include "tests/tools/desk_samples.h"
#include "tools/propfile/propfile_text.h"
#include "tools/service/connections.h"
#include "tools/service/service_file.h"
#include "tools/service/storing.h"

namespace valmere::test {
namespace {

using client::Client;
using client::Deadline;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::StartsWith;
using tools::FileLook;
using tools::Sealed;
using tools::ServiceFile;

const std::string kPeriod = "Property Publishing Period in ms";
const std::string kPeriodKey =
    std::string(client::kGeneralGroup) + ":DA821DC5-948D-4659-9B52-177E4C102129";
const std::string kFileName = "/Store/ValmereProperties.ini";
constexpr std::size_t kStoredProperties = 26;

class DurableTest : public ::testing::Test {
 protected:
  void SetUp() override { std::filesystem::create_directories(root_ + "/Store"); }

  // Where it works must not matter but to the one test that is about it.
  void StartService(const std::string& folder = "/") {
    service_ = std::make_unique<Subprocess>(
        std::vector<std::string>{"/bin/bash", "-c", "cd \"$1\" && shift && exec \"$@\"", "", folder,
                                 VALMERED, "--root", root_, "--socket", folder_.Path("PRN1")});
    ASSERT_THAT(service_->ReadLine(), HasSubstr("ready"));
  }
  void KillService() {
    service_->Signal(SIGKILL);
    EXPECT_EQ(service_->Wait(), -SIGKILL);
  }
  std::unique_ptr<Subprocess> Start(const std::vector<std::string>& arguments) const {
    return StartCommand(arguments, environment_);
  }
  Outcome Run(const std::vector<std::string>& arguments) const { return Finish(*Start(arguments)); }
  Outcome SetDurably(const std::string& name, const std::string& value) const {
    return Run({"set", "--durable", "--root", root_, name, value});
  }
  Outcome StoreAndWait() const { return Run({"store", "--wait", "--root", root_}); }

  tools::PropfileText File() const { return tools::ReadPropfileText(BytesOf(path_)); }
  // Of the last line with the key, in a file with a good CRC.
  std::string Stored(const std::string& key) const {
    std::string value = "nothing";
    const tools::PropfileText file = File();
    EXPECT_TRUE(file.crc_is_good());
    for (const tools::PropfileLine& line : file.lines) {
      if (line.key == key) value = line.value;
    }
    return value;
  }
  // One that the service does not rewrite, because it is too long.
  void PutUnwritableFile() const {
    WriteBytes(path_, Sealed("A:B|n:m=" + std::string(17u << 20, 'x') + "\n"));
  }

  TemporaryFolder folder_;
  const std::string root_ = folder_.Path("root");
  const std::string path_ = root_ + kFileName;
  const std::vector<std::string> environment_{"VALMERE_SOCKET=" + folder_.Path("PRN1"),
                                              "VALMERE_ROOT="};
  std::unique_ptr<Subprocess> service_;
};

TEST_F(DurableTest, AStoreThatWaitsLeavesALineForEachProperty) {
  StartService();
  const Outcome outcome = StoreAndWait();
  EXPECT_EQ(outcome.code, 0) << outcome.errors;
  EXPECT_TRUE(FaultsOf(File()).empty());
  EXPECT_EQ(File().lines.size(), kStoredProperties);
  EXPECT_EQ(outcome.output + outcome.errors, "");
  EXPECT_EQ(StoreAndWait().code, 0);
}

TEST_F(DurableTest, AValueSurvivesAKillRightAfterItsSet) {
  for (int round = 1; round <= 20; ++round) {
    StartService();
    const std::string value = std::to_string(500 + round);
    const Outcome outcome = SetDurably(kPeriod, value);
    KillService();
    ASSERT_EQ(outcome.code, 0) << outcome.errors;
    EXPECT_EQ(Stored(kPeriodKey), value);
  }
  StartService();
  EXPECT_EQ(Run({"get", kPeriod}).output, "520\n");
}

TEST_F(DurableTest, AStoreAfterManySetsSurvivesAKill) {
  for (int round = 1; round <= 5; ++round) {
    StartService();
    const std::string value = std::to_string(500 + round);
    EXPECT_EQ(Run({"set", kPeriod, value}).code, 0);
    EXPECT_EQ(Run({"set", "ThreadIds", round % 2 == 0 ? "True" : "False"}).code, 0);
    const Outcome outcome = StoreAndWait();
    KillService();
    ASSERT_EQ(outcome.code, 0) << outcome.errors;
    EXPECT_EQ(Stored(kPeriodKey), value);
    EXPECT_EQ(File().lines.size(), kStoredProperties);
  }
}

TEST_F(DurableTest, AValueThatIsSetAlreadyIsStoredAllTheSame) {
  StartService();
  EXPECT_EQ(SetDurably(kPeriod, "500").code, 0);
  EXPECT_EQ(Stored(kPeriodKey), "500");
  EXPECT_EQ(SetDurably(kPeriod, "500").code, 0);
}

// The wait by itself, at a file that the test writes or leaves alone; the service reports 500.
class StoringTest : public DurableTest {
 protected:
  void SetUp() override {
    DurableTest::SetUp();
    StartService();
    std::filesystem::create_directories(folder_.Path("other/Store"));
    client_ = connections_.Open(Deadline::After(kPatience)).value();
  }
  tools::Storing Begin(const std::string& root, Deadline deadline) {
    const client::PropertyAddress address = client::PublishingPeriod();
    const auto period = client_->Get({&address, 1}, deadline);
    tools::Storing storing(connections_, *client_,
                           std::get<ServiceFile>(ServiceFile::Find(root, "", kFileName)), deadline);
    EXPECT_TRUE(period && !storing.Begin(*period).has_value());
    return storing;
  }
  void Write(int value) const {
    const std::string path = folder_.Path("other") + kFileName;
    WriteBytes(path + ".new", Sealed(kPeriodKey + "|n:m=" + std::to_string(value) + "\n"));
    std::filesystem::rename(path + ".new", path);
  }

  tools::Connections connections_{folder_.Path("PRN1")};
  Client* client_ = nullptr;
};

// Where another client has set the same value a moment before, its line is written already.
TEST_F(StoringTest, RequestsLinesWhereNoneComesByItself) {
  ASSERT_EQ(SetDurably(kPeriod, "500").code, 0);
  tools::Storing storing = Begin(root_, Deadline::After(kPatience));
  EXPECT_FALSE(storing.Await().has_value());
  EXPECT_EQ(File().lines.size(), kStoredProperties);
}

TEST_F(StoringTest, DoesNotTakeTheFirstOtherValueThatIsWritten) {
  Write(1);
  tools::Storing storing = Begin(folder_.Path("other"), Deadline::After(std::chrono::seconds(1)));
  Write(2);
  const auto failure = storing.Await();
  ASSERT_TRUE(failure.has_value());
  EXPECT_EQ(failure->code, tools::kExitTimeout);
}

TEST_F(StoringTest, TakesValuesThatChangeFasterThanTheyAreReported) {
  Write(1);
  tools::Storing storing = Begin(folder_.Path("other"), Deadline::After(kPatience));
  std::atomic<bool> stop{false};
  std::thread writing([&] {
    for (int value = 1000; !stop.load(); ++value) {
      Write(value);
    }
  });
  const auto failure = storing.Await();
  stop.store(true);
  writing.join();
  EXPECT_FALSE(failure.has_value()) << failure->text;
}

TEST_F(DurableTest, AValueIsVerifiedAndStored) {
  StartService();
  EXPECT_EQ(Run({"set", "--verify", "--durable", "--root", root_, kPeriod, "750"}).code, 0);
  EXPECT_EQ(Stored(kPeriodKey), "750");
}

TEST_F(DurableTest, ABooleanIsStoredHoweverItIsWritten) {
  StartService();
  EXPECT_EQ(SetDurably("ThreadIds", "TRUE").code, 0);
  EXPECT_THAT(BytesOf(path_), HasSubstr(":ThreadIds=True\n"));
}

TEST_F(DurableTest, TheTextThatEndsInNumbersIsStoredAsTheNumber) {
  StartService();
  EXPECT_EQ(SetDurably(kPeriod, "750 ms").code, 0);
  EXPECT_EQ(Stored(kPeriodKey), "750");
}

TEST_F(DurableTest, OnlyTheServicesStoredPropertiesCanBeDurable) {
  StartService();
  const auto publisher = Start({"publish", "--hold", "--component", "Head", "Motion/Speed=42"});
  EXPECT_THAT(publisher->ReadErrorLine(), StartsWith("valmere: published"));
  const Outcome foreign = SetDurably("Speed", "43");
  EXPECT_EQ(foreign.code, 2);
  EXPECT_EQ(foreign.errors,
            "valmere: Head/Motion/Speed is stored by its owner or not at all: --durable is for the "
            "service's own properties\n");
  EXPECT_EQ(Run({"get", "Speed"}).output, "42\n");
  for (const char* name : {"Name of Property File", "Name of Property Override File",
                           "Property Loading Error", "Load Properties", "Store Properties"}) {
    const Outcome outcome = SetDurably(name, "True");
    EXPECT_EQ(outcome.code, 2) << name;
    EXPECT_THAT(outcome.errors, HasSubstr("is not stored")) << name;
  }
  EXPECT_EQ(SetDurably("no such", "1").code, 4);
}

TEST_F(DurableTest, WhatOthersPublishUnderTheServicesNameIsNotWaitedFor) {
  StartService();
  auto publisher = Client::Connect(folder_.Path("PRN1"), Deadline::After(kPatience));
  client::Property foreign = kSpeed;
  foreign.component = client::kServiceComponent;
  const auto address = foreign.address();
  ASSERT_TRUE(publisher && publisher->Publish({&foreign, 1}, Deadline::After(kPatience)));
  ASSERT_TRUE(publisher->Get({&address, 1}, Deadline::After(kPatience)));
  const Outcome outcome = StoreAndWait();
  EXPECT_EQ(outcome.code, 0) << outcome.errors;
  EXPECT_EQ(SetDurably("Speed", "43").code, 4);
}

TEST_F(DurableTest, AValueWithALineFeedIsRefusedAtOnce) {
  StartService();
  const Outcome outcome = SetDurably("ThreadIds", "Tr\nue");
  EXPECT_EQ(outcome.code, 5);
  EXPECT_THAT(outcome.errors, HasSubstr("a value with a line feed cannot be stored"));
  EXPECT_EQ(Run({"get", "ThreadIds"}).output, "False\n");
}

TEST_F(DurableTest, APropertyThatCannotBeSetIsNotWaitedFor) {
  StartService();
  EXPECT_EQ(SetDurably("Components/Valmere", "x").code, 5);
}

TEST_F(DurableTest, TheTimeOutNamesTheFileAndWhatItLacks) {
  PutUnwritableFile();
  StartService();
  const Outcome set =
      Run({"--timeout", "0.5", "set", "--durable", "--root", root_, kPeriod, "750"});
  EXPECT_EQ(set.code, 6);
  EXPECT_EQ(set.errors, "valmere: time-out: " + path_ +
                            " has not been written since; the service's log says why. Not known to "
                            "be on the disk:\n  Valmere/General/" +
                            kPeriod + "=750\n");
  const Outcome store = Run({"--timeout", "0.5", "store", "--wait", "--root", root_});
  EXPECT_EQ(store.code, 6);
  EXPECT_THAT(store.errors, AllOf(HasSubstr("/Property Publishing Period in ms=750\n"),
                                  HasSubstr("\n  and 16 more\n")));
}

TEST_F(DurableTest, ALineThatALaterOneOverrulesDoesNotCount) {
  WriteBytes(path_, Sealed(kPeriodKey + "|General:" + kPeriod + "=500\n" + kPeriodKey +
                           "|Old:Name=600\n"));
  StartService();
  const Outcome outcome =
      Run({"--timeout", "1", "set", "--durable", "--root", root_, kPeriod, "750"});
  EXPECT_EQ(outcome.code, 6);
  EXPECT_EQ(Stored(kPeriodKey), "600");
}

TEST_F(DurableTest, AFileOfAnotherRootNeverCounts) {
  StartService();
  ASSERT_EQ(StoreAndWait().code, 0);
  const std::string other = folder_.Path("other");
  std::filesystem::copy(root_, other, std::filesystem::copy_options::recursive);
  for (const auto& command : {std::vector<std::string>{"store", "--wait"},
                              std::vector<std::string>{"set", "--durable", kPeriod, "500"}}) {
    std::vector<std::string> words{"--timeout", "0.5", "--root", other};
    words.insert(words.begin(), command.begin(), command.end());
    const Outcome outcome = Run(words);
    EXPECT_EQ(outcome.code, 6);
    EXPECT_THAT(outcome.errors, StartsWith("valmere: time-out: " + other + kFileName));
  }
}

TEST_F(DurableTest, ARootThatIsNotThereIsToldOf) {
  StartService();
  const std::string none = folder_.Path("none");
  const Outcome outcome = Run({"set", "--durable", "--root", none, kPeriod, "750"});
  EXPECT_EQ(outcome.code, 1);
  EXPECT_EQ(outcome.errors, "valmere: cannot look at the service's property file " + none +
                                kFileName +
                                ": No such file or directory; name the service's root with "
                                "--root\n");
  EXPECT_EQ(Run({"get", kPeriod}).output, "500\n");
}

TEST_F(DurableTest, TheRootIsFoundByTheFolderThatTheServiceWorksIn) {
  StartService(root_);
  const Outcome outcome = Run({"set", "--durable", kPeriod, "750"});
  EXPECT_EQ(outcome.code, 0) << outcome.errors;
  EXPECT_EQ(Stored(kPeriodKey), "750");
  EXPECT_EQ(Run({"store", "--wait"}).code, 0);
}

TEST_F(DurableTest, TheRootIsFoundByTheEnvironment) {
  StartService();
  const std::vector<std::string> environment{environment_[0], "VALMERE_ROOT=" + root_};
  Subprocess set({VALMERE, "--timeout", "60", "set", "--durable", kPeriod, "750"}, environment);
  EXPECT_EQ(Finish(set).code, 0);
}

TEST_F(DurableTest, TheFileIsTheOneThatTheServiceNames) {
  StartService();
  EXPECT_EQ(Run({"set", "Name of Property File", "..\\Store\\.\\Other.ini"}).code, 0);
  const Outcome outcome = SetDurably(kPeriod, "750");
  EXPECT_EQ(outcome.code, 0) << outcome.errors;
  EXPECT_THAT(BytesOf(root_ + "/Store/Other.ini"), HasSubstr("=750\n"));
  EXPECT_EQ(Run({"set", "Name of Property File", "/"}).code, 0);
  EXPECT_THAT(SetDurably(kPeriod, "760").errors, HasSubstr("\"/\", is no file below its root"));
}

TEST_F(DurableTest, AnInterruptionEndsTheWait) {
  PutUnwritableFile();
  StartService();
  const auto waiting = Start({"set", "--durable", "--root", root_, kPeriod, "750"});
  const auto changed = Start({"wait", kPeriod + "=750"});
  EXPECT_EQ(changed->Wait(), 0);
  waiting->Signal(SIGTERM);
  EXPECT_EQ(waiting->Wait(), 130);
}

TEST_F(DurableTest, TheEndOfTheServiceEndsTheWait) {
  PutUnwritableFile();
  StartService();
  const auto waiting = Start({"set", "--durable", "--root", root_, kPeriod, "750"});
  EXPECT_EQ(Start({"wait", kPeriod + "=750"})->Wait(), 0);
  KillService();
  EXPECT_EQ(waiting->Wait(), 7);
}

// Sets all the time until it goes.
class Flood {
 public:
  Flood(const std::string& socket, const std::string& guid)
      : thread_([this, socket, guid] {
          auto client = Client::Connect(socket, Deadline::After(kPatience));
          ASSERT_TRUE(client);
          const client::PropertyAddress address{client::kServiceComponent, client::kGeneralGroup,
                                                guid};
          for (unsigned value = 1000; !stop_.load(); ++value) {
            const client::SetRequest request{address, std::to_string(value)};
            ASSERT_TRUE(client->Set({&request, 1}, Deadline::After(kPatience)));
            if (value % 16 == 0) {
              ASSERT_TRUE(client->Get({&address, 1}, Deadline::After(kPatience)));
            }
          }
        }) {}
  ~Flood() {
    stop_.store(true);
    thread_.join();
  }

 private:
  std::atomic<bool> stop_{false};
  std::thread thread_;
};

TEST_F(DurableTest, AFloodOfSetsByAnotherClientDoesNotHoldItUp) {
  StartService();
  const Flood flood(folder_.Path("PRN1"), "DA821DC5-948D-4659-9B52-177E4C102129");
  const Outcome other = SetDurably("ThreadIds", "True");
  EXPECT_EQ(other.code, 0) << other.errors;
  const Outcome same = SetDurably(kPeriod, "750");
  EXPECT_EQ(same.code, 0) << same.errors;
  const Outcome store = StoreAndWait();
  EXPECT_EQ(store.code, 0) << store.errors;
}

class ServiceFileTest : public ::testing::Test {
 protected:
  void SetUp() override { std::filesystem::create_directories(root_ + "/Store"); }
  std::variant<ServiceFile, tools::Failure> Find(const std::string& path) const {
    return ServiceFile::Find(root_, "", path);
  }
  std::string NameOf(const std::string& path) const {
    const auto file = Find(path);
    const auto* found = std::get_if<ServiceFile>(&file);
    return found != nullptr ? found->name() : std::get<tools::Failure>(file).text;
  }
  FileLook Look() const {
    return std::get<FileLook>(std::get<ServiceFile>(Find(kFileName)).Look());
  }

  TemporaryFolder folder_;
  const std::string root_ = folder_.Path("root");
  const std::string path_ = root_ + kFileName;
};

TEST_F(ServiceFileTest, NoPathLeadsOutOfTheRoot) {
  for (const char* path : {"/Store/x", "\\Store\\x", "Store/x", "/../../Store/x",
                           "Store/../Store/./x", "//Store\\\\x"}) {
    EXPECT_EQ(NameOf(path), root_ + "/Store/x") << path;
  }
  for (const std::string& path : {std::string("/"), std::string(".."), std::string(""),
                                  std::string("/Store/COM1:"), std::string("/Store/x\0y", 10)}) {
    EXPECT_THAT(NameOf(path), HasSubstr("is no file below its root"));
  }
}

TEST_F(ServiceFileTest, NoLinkIsFollowedBelowTheRoot) {
  const std::string elsewhere = folder_.Path("elsewhere");
  std::filesystem::create_directory(elsewhere);
  WriteBytes(elsewhere + "/x.ini", Sealed("A:B|n:m=1\n"));
  std::filesystem::create_directory_symlink(elsewhere, root_ + "/Link");
  EXPECT_THAT(NameOf("/Link/x.ini"), HasSubstr("name the service's root with --root"));
  std::filesystem::create_symlink(elsewhere + "/x.ini", path_);
  EXPECT_TRUE(
      std::holds_alternative<tools::Failure>(std::get<ServiceFile>(Find(kFileName)).Look()));
}

TEST_F(ServiceFileTest, TheRootItselfMayBeALink) {
  const std::string link = folder_.Path("link");
  std::filesystem::create_directory_symlink(root_, link);
  WriteBytes(path_, Sealed("A:B|n:m=1\n"));
  const auto file = ServiceFile::Find(link, "", kFileName);
  EXPECT_TRUE(std::get<FileLook>(std::get<ServiceFile>(file).Look()).sound);
}

TEST_F(ServiceFileTest, AFileThatIsMissingOrTornIsNotSound) {
  EXPECT_FALSE(Look().version.has_value());
  const std::string sound = Sealed("A:B|n:m=1\nA:C|n:o=2\nA:B|n:m=3\n");
  for (std::size_t length = 0; length < sound.size(); ++length) {
    WriteBytes(path_, sound.substr(0, length));
    EXPECT_FALSE(Look().sound) << length;
    EXPECT_TRUE(Look().values.empty()) << length;
  }
  WriteBytes(path_, sound);
  EXPECT_TRUE(Look().sound);
  EXPECT_THAT(Look().values,
              ::testing::ElementsAre(::testing::Pair("A:B", "3"), ::testing::Pair("A:C", "2")));
}

TEST_F(ServiceFileTest, AFileThatWasReplacedIsCurrentNoMore) {
  WriteBytes(path_, Sealed("A:B|n:m=1\n"));
  const ServiceFile file = std::get<ServiceFile>(Find(kFileName));
  const FileLook look = Look();
  EXPECT_TRUE(file.IsCurrent(look));
  EXPECT_FALSE(file.Sync(look).has_value());
  WriteBytes(path_ + ".new", Sealed("A:B|n:m=1\n"));
  std::filesystem::rename(path_ + ".new", path_);
  EXPECT_FALSE(file.IsCurrent(look));
  EXPECT_NE(look.version, Look().version);
  std::filesystem::remove(path_);
  EXPECT_FALSE(file.IsCurrent(look));
}

TEST_F(ServiceFileTest, WhatIsNoFileIsToldOf) {
  std::filesystem::create_directory(path_);
  const auto look = std::get<ServiceFile>(Find(kFileName)).Look();
  EXPECT_THAT(std::get<tools::Failure>(look).text, HasSubstr("is no regular file"));
}

}  // namespace
}  // namespace valmere::test
