// The valmere command against the real service.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <thread>

#include "client/client.h"
#include "tests/host/subprocess.h"
#include "tests/support/test_thread.h"
#include "tests/tools/desk_fixture.h"

namespace valmere::test {
namespace {

using client::Client;
using client::Deadline;
using client::Property;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::MatchesRegex;
using ::testing::Not;
using ::testing::StartsWith;

TEST_F(DeskTest, ListsByComponentAndGroup) {
  const auto publisher = Publish("Motion/Speed=42");
  const Outcome outcome = Run({"list"});
  EXPECT_EQ(outcome.code, 0);
  EXPECT_THAT(outcome.output,
              AllOf(StartsWith("Head/Motion/Speed=42\n"), HasSubstr("\nValmere/General/")));
  EXPECT_EQ(Run({"list", "Head/*"}).output, "Head/Motion/Speed=42\n");
  EXPECT_EQ(Run({"list", "--tree", "*/Speed"}).output, "Head\n└─ Motion\n   └─ Speed = 42\n");
}

TEST_F(DeskTest, ListsNothingThatMatches) {
  const Outcome outcome = Run({"list", "no such*"});
  EXPECT_EQ(outcome.code, 4);
  EXPECT_EQ(outcome.output, "");
  EXPECT_EQ(outcome.errors, "valmere: no property matches\n");
}

TEST_F(DeskTest, GetsInEachForm) {
  const auto publisher = Publish("Motion/Speed=42");
  EXPECT_EQ(Run({"get", "Speed"}).output, "42\n");
  EXPECT_EQ(Run({"get", "--format", "%n is %v", "Speed"}).output, "Speed is 42\n");
  EXPECT_EQ(Run({"get", "-0", "Speed"}).output, std::string("42\0", 3));
  EXPECT_THAT(Run({"--json", "get", "Speed"}).output,
              StartsWith("[\n{\"component\":\"Head\",\"group\":\"Motion\",\"name\":\"Speed\","
                         "\"value\":\"42\",\"status\":\"Successful\",\"component_guid\":\""));
}

TEST_F(DeskTest, GetsTheDefaultOfWhatIsNotThere) {
  const Outcome outcome = Run({"get", "--default", "-", "Speed", "Load Properties"});
  EXPECT_EQ(outcome.code, 0);
  EXPECT_EQ(outcome.output, "-\nFalse\n");
  EXPECT_EQ(Run({"get", "Speed"}).code, 4);
}

TEST_F(DeskTest, HasNoDefaultForANameThatCouldBeSeveral) {
  const auto first = Publish("Motion/Speed=1");
  const auto second = Publish("Fan/Speed=2");
  const Outcome outcome = Run({"get", "--default", "-", "Speed"});
  EXPECT_EQ(outcome.code, 2);
  EXPECT_EQ(outcome.output, "");
}

TEST_F(DeskTest, PutsBytesThatAreNoTextUnderAnotherKey) {
  const auto publisher = Publish("Motion/Speed=\xff\xfe");
  EXPECT_EQ(Run({"get", "Speed"}).output, "\xff\xfe\n");
  EXPECT_THAT(Run({"get", "--json", "Speed"}).output,
              AllOf(HasSubstr(R"("value_base64":"//4=")"), Not(HasSubstr(R"("value":)"))));
}

TEST_F(DeskTest, SetsWhatComesOnStandardInput) {
  const auto publisher = Publish("Motion/Speed=42");
  EXPECT_EQ(RunShell("printf 'a\\nb\\n' | $valmere set --verify Speed -").code, 0);
  EXPECT_EQ(Run({"get", "Speed"}).output, "a\nb\n");
}

TEST_F(DeskTest, TakesWordsInBracketsAsTheyAre) {
  const auto publisher = Publish("Motion/[a,b]=42");
  EXPECT_EQ(Run({"get", "[a,b]", "Motion/[a,b]"}).output, "42\n42\n");
  EXPECT_EQ(Run({"set", "--verify", "[a,b]", "[1,2]"}).code, 0);
  EXPECT_EQ(Run({"get", "[a,b]"}).output, "[1,2]\n");
}

TEST_F(DeskTest, TakesAnyWordForAValue) {
  const auto publisher = Publish("Motion/Speed=42");
  for (const char* value : {"++", "{}", "", "\x01\x01", "get", "%%", "-5", "--x=y=", "--"}) {
    EXPECT_EQ(Run({"set", "--verify", "Speed", "--", value}).code, 0) << value;
    EXPECT_EQ(Run({"get", "Speed"}).output, std::string(value) + "\n");
  }
  EXPECT_EQ(Run({"set", "--verify", "Speed", "++"}).code, 0);
  EXPECT_EQ(Run({"get", "Speed"}).output, "++\n");
}

TEST_F(DeskTest, TakesAnEmptyValueOfAnOption) {
  EXPECT_EQ(Run({"get", "--default=", "Speed"}).output, "\n");
  EXPECT_EQ(Run({"get", "Speed", "--default="}).output, "\n");
  EXPECT_EQ(Run({"get", "--default=[a,b]", "Speed"}).output, "[a,b]\n");
}

TEST_F(DeskTest, SetsNothingWhenStandardInputCannotBeRead) {
  const auto publisher = Publish("Motion/Speed=42");
  for (const char* line : {"$valmere set Speed - <&-", "$valmere set Speed - <$dir"}) {
    const Outcome outcome = RunShell(line);
    EXPECT_EQ(outcome.code, 1);
    EXPECT_THAT(outcome.errors, StartsWith("valmere: cannot read standard input: "));
  }
  EXPECT_EQ(Run({"get", "Speed"}).output, "42\n");
}

TEST_F(DeskTest, VerifiesWithTimeOutWhenTheOwnerDoesNothing) {
  const Client owner = Own();
  const Outcome outcome = Run({"--timeout", "1", "set", "--verify", "Speed", "43"});
  EXPECT_EQ(outcome.code, 6);
  EXPECT_EQ(outcome.errors, "valmere: time-out: Head/Motion/Speed is still \"42\"\n");
}

TEST_F(DeskTest, VerifiesWithBadValueWhenTheOwnerReportsAnother) {
  Client owner = Own();
  std::thread answering([&] {
    const auto sets = owner.ReceiveSets(Deadline::After(kPatience));
    EXPECT_TRUE(sets);
    Property limited = kSpeed;
    limited.value = "100";
    EXPECT_TRUE(owner.Publish({&limited, 1}, Deadline::After(kPatience)));
  });
  const Outcome outcome = Run({"--timeout", "2", "set", "--verify", "Speed", "500"});
  answering.join();
  EXPECT_EQ(outcome.code, 5);
  EXPECT_EQ(outcome.errors, "valmere: Head/Motion/Speed reports \"100\", not \"500\"\n");
}

TEST_F(DeskTest, VerifiesABooleanHoweverItIsWritten) {
  EXPECT_EQ(Run({"set", "--verify", "LeakTracking", "TRUE"}).code, 0);
  EXPECT_EQ(Run({"get", "LeakTracking"}).output, "True\n");
  EXPECT_EQ(Run({"set", "--verify", "LeakTracking", "fALSE"}).code, 0);
  EXPECT_EQ(Run({"get", "LeakTracking"}).output, "False\n");
}

TEST_F(DeskTest, EndsWithFiveForAPropertyThatCannotBeSet) {
  const Outcome outcome = Run({"set", "Components/Valmere", "x"});
  EXPECT_EQ(outcome.code, 5);
  EXPECT_THAT(outcome.errors, HasSubstr("did not take \"x\""));
}

TEST_F(DeskTest, TellsAllAboutAProperty) {
  const Client owner = Own();
  EXPECT_EQ(Run({"info", "Speed"}).output,
            "Component:      Head\n"
            "Group:          Motion\n"
            "Name:           Speed\n"
            "Value:          42\n"
            "Status:         Successful\n"
            "Component GUID: C1\n"
            "Group GUID:     G1\n"
            "GUID:           P1\n");
}

TEST_F(DeskTest, MonitorsItsOwnConnection) {
  const Outcome outcome = Run({"monitor", "--hex", "--count", "2"});
  EXPECT_EQ(outcome.code, 0);
  EXPECT_THAT(outcome.output,
              MatchesRegex("[0-9:.]+ sent [0-9]+ bytes\n"
                           "  get none/none:none\n  subscribe to everything\n"
                           "  0000  B3 EC 09 9A 22 92 48 FA 83 D0 06 84 0B C9 91 02  .*\n"
                           "[0-9:.]+ received [0-9]+ bytes\n  property .*"));
}

TEST_F(DeskTest, MonitorsWithBytesOnlyWhenAsked) {
  EXPECT_THAT(Run({"monitor", "--count", "1"}).output, Not(HasSubstr("B3 EC 09 9A")));
  EXPECT_THAT(Run({"--json", "monitor", "--count", "1"}).output, Not(HasSubstr("\"hex\"")));
  EXPECT_THAT(Run({"--json", "monitor", "--hex", "--count", "1"}).output,
              HasSubstr(R"("hex":"B3EC099A229248FA83D006840BC99102)"));
}

TEST_F(DeskTest, MeasuresRoundTrips) {
  EXPECT_THAT(Run({"ping", "--count", "3"}).output,
              MatchesRegex("3 round trips: p50 [0-9.]+ us, p99 [0-9.]+ us, max [0-9.]+ us\n"));
}

TEST_F(DeskTest, StoresAndLoads) {
  EXPECT_EQ(Run({"store"}).code, 0);
  const std::string file = folder_.Path("root/Store/ValmereProperties.ini");
  const auto holds = [&](const std::string& line_part) {
    std::ifstream input(file);
    std::stringstream text;
    text << input.rdbuf();
    return text.str().find(line_part) != std::string::npos;
  };
  // The service writes behind our back, this line as the last; a load of half a file would fail.
  EXPECT_TRUE(Eventually(
      [&] { return holds("Qt Common Modules Build Number=") && Run({"load"}).code == 0; }));
  // A load writes its lines back; the one that is asked for now comes behind them.
  EXPECT_EQ(Run({"set", "Property Publishing Period in ms", "750"}).code, 0);
  EXPECT_TRUE(Eventually([&] {
    return holds("Period in ms=750\n") && Run({"propfile", "check", file}).code == 0;
  }));
  std::ofstream(file) << "no property file";
  const Outcome outcome = Run({"load"});
  EXPECT_EQ(outcome.code, 1);
  EXPECT_THAT(outcome.errors, HasSubstr("could not load"));
}

TEST_F(DeskTest, EndsQuietlyWhenNobodyReads) {
  const auto publisher = Publish("Motion/Speed=" + std::string(100'000, 'x'));
  const Outcome outcome = RunShell("{ $valmere list; echo $? >&2; } | head -c 1");
  EXPECT_EQ(outcome.output, "H");
  EXPECT_EQ(outcome.errors, "0\n");
}

TEST_F(DeskTest, SaysThatItCannotWrite) {
  for (const char* command : {"list", "--help", "get --help"}) {
    const Outcome outcome = RunShell(std::string("$valmere ") + command + " >/dev/full");
    EXPECT_EQ(outcome.code, 1) << command;
    EXPECT_EQ(outcome.errors, "valmere: cannot write to standard output\n") << command;
  }
}

}  // namespace
}  // namespace valmere::test
