// Values that are on the disk when the command returns: the command against the real service, which
// is killed where it matters.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <csignal>
#include <filesystem>
#include <thread>

#include "client/client.h"
#include "client/service_properties.h"
#include "tests/tools/durable_fixture.h"

namespace valmere::test {
namespace {

using client::Client;
using client::Deadline;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::StartsWith;
using tools::Sealed;

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

}  // namespace
}  // namespace valmere::test
