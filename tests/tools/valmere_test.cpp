// The valmere command as a script sees it: what it prints where, and how it ends.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <future>
#include <mutex>
#include <sstream>

#include "tests/client/fake_service.h"
#include "tests/tools/valmere_fixture.h"

namespace valmere::test {
namespace {

using client::Property;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::StartsWith;

const Property kColour{"G1", "Motion", "P2", "Colour", "red", client::kSuccessful, "C1", "Head"};
const Property kSpare{"G1", "Motion", "P1", "Speed", "7", client::kSuccessful, "C2", "Spare"};
const Property kVersion{"G3",
                        "General",
                        "P3",
                        "OS Version",
                        "1.0",
                        client::kSuccessful,
                        "955CFDC2-8EA6-478E-A927-7C870022EA03",
                        "Valmere"};

TEST_F(ValmereTest, ListsEverything) {
  Serve(Answering({{kSpeed, kColour}, {}}));
  const Outcome outcome = Run({"list"});
  EXPECT_EQ(outcome.code, 0);
  EXPECT_EQ(outcome.output, "Head/Motion/Speed=42\nHead/Motion/Colour=red\n");
  EXPECT_EQ(outcome.errors, "");
}

TEST_F(ValmereTest, GetsValuesInTheOrderOfTheNames) {
  Serve(Answering({{kSpeed, kColour}, {}}));
  const Outcome outcome = Run({"get", "Colour", "Motion/Speed"});
  EXPECT_EQ(outcome.code, 0);
  EXPECT_EQ(outcome.output, "red\n42\n");
}

TEST_F(ValmereTest, PrintsNothingWhenOneNameIsUnknown) {
  Serve(Answering({{kSpeed, kColour}, {}}));
  const Outcome outcome = Run({"get", "Colour", "Weight"});
  EXPECT_EQ(outcome.code, 4);
  EXPECT_EQ(outcome.output, "");
  EXPECT_EQ(outcome.errors, "valmere: no property \"Weight\"\n");
}

TEST_F(ValmereTest, ListsTheCandidatesOfAnAmbiguousName) {
  Serve(Answering({{kSpeed, kSpare}, {}}));
  const Outcome outcome = Run({"get", "Speed"});
  EXPECT_EQ(outcome.code, 2);
  EXPECT_EQ(outcome.errors,
            "valmere: \"Speed\" is ambiguous; it could be\n"
            "  Head/Motion/Speed  (C1/G1/P1)\n"
            "  Spare/Motion/Speed  (C2/G1/P1)\n");
}

TEST_F(ValmereTest, WatchesAsManyChangesAsItIsAskedFor) {
  Property nobodys;
  nobodys.status = client::kNotFound;
  Property gone = kColour;
  gone.status = client::kNoLongerAvailable;
  // The script may outlast this scope.
  Serve([nobodys, gone](const FakeConnection& connection) {
    connection.Receive();
    connection.Send(ResponseText({nobodys}));
    connection.Send(ResponseText({kSpeed}));
    connection.Send(ResponseText({gone, kVersion}));
    connection.WaitForEnd();
  });
  const Outcome outcome = Run({"watch", "--count", "2"});
  EXPECT_EQ(outcome.code, 0);
  EXPECT_EQ(outcome.output, "Head/Motion/Speed=42\nHead/Motion/Colour is gone\n");
  EXPECT_EQ(outcome.errors, "valmere: watching\n");
}

TEST_F(ValmereTest, SendsASetAndWaitsUntilItIsHandled) {
  std::mutex lock;
  std::vector<std::string> received;
  Serve([&](const FakeConnection& connection) {
    for (std::string text = connection.Receive(); !text.empty(); text = connection.Receive()) {
      const std::lock_guard hold(lock);
      received.push_back(text);
      if (text.find("SetRequests") == std::string::npos) connection.Send(ResponseText({kSpeed}));
    }
  });
  const Outcome outcome = Run({"set", "Speed", "50"});
  EXPECT_EQ(outcome.code, 0);
  EXPECT_EQ(outcome.output, "");
  const std::lock_guard hold(lock);
  EXPECT_THAT(received,
              ::testing::ElementsAre(
                  R"({"GetAllProperties": true})",
                  R"({"PropertySetRequests": [{"Component": "C1","GUID": "G1:P1","Value": "50"}]})",
                  R"({"PropertyGetRequests": [{"Component": "C1","GUID": "G1:P1"}]})"));
}

TEST_F(ValmereTest, TakesANegativeNumberForAValue) {
  Serve(Answering({{kSpeed}, kSpeed}));
  EXPECT_EQ(Run({"set", "Speed", "--", "-5"}).code, 0);
  EXPECT_EQ(Run({"set", "Speed", "-5"}).code, 0);
}

TEST_F(ValmereTest, SaysThatTheServiceKeptItsValue) {
  Serve(Answering({{kVersion}, kVersion}));
  const Outcome outcome = Run({"set", "OS Version", "2.0"});
  EXPECT_EQ(outcome.code, 5);
  EXPECT_EQ(outcome.errors,
            "valmere: Valmere/General/OS Version did not take \"2.0\"; it is still \"1.0\"\n");
  EXPECT_EQ(Run({"set", "OS Version", "1.0"}).code, 0);
}

TEST_F(ValmereTest, TakesABooleanThatStaysAsItIsForSet) {
  Property flag = kVersion;
  flag.value = "True";
  Serve(Answering({{flag}, flag}));
  EXPECT_EQ(Run({"set", "OS Version", "yes"}).code, 0);
}

TEST_F(ValmereTest, SaysThatThePropertyWentAwayBeforeItWasSet) {
  Property gone = kSpeed;
  gone.status = client::kNotFound;
  Serve(Answering({{kSpeed}, gone}));
  EXPECT_EQ(Run({"set", "Speed", "50"}).code, 4);
}

TEST_F(ValmereTest, EndsWithTwoForBadUsage) {
  const std::vector<std::vector<std::string>> bad{
      {},
      {"bogus"},
      {"get"},
      {"set", "Speed"},
      {"set", "a", "b", "c"},
      {"list", "--bogus"},
      {"list", "--timeout", "soon"},
      {"list", "--timeout", "-1"},
      {"list", "--timeout", "nan"},
      {"list", "--timeout="},
      {"publish", "Speed=1"},
      {"publish", "--hold"},
      {"publish", "--hold", "Speed"},
      {"list", "--format", "%x"},
      {"list", "--json", "--format", "%v"},
      {"list", "--tree", "--json"},
      {"list", "--color", "green"},
      {"list", "--color", "ALWAYS"},
      {"[a]"},
      {"watch", "--count", "0"},
  };
  for (const auto& arguments : bad) {
    const Outcome outcome = Run(arguments);
    EXPECT_EQ(outcome.code, 2) << outcome.errors;
    EXPECT_EQ(outcome.output, "");
    EXPECT_THAT(outcome.errors, StartsWith("valmere: "));
  }
  EXPECT_THAT(Run({"bogus"}).errors, HasSubstr("bogus"));
  EXPECT_THAT(Run({"[a]"}).errors, HasSubstr(" [a]\n"));
}

TEST_F(ValmereTest, EndsWithThreeWhenNobodyServes) {
  const Outcome outcome = Run({"list"});
  EXPECT_EQ(outcome.code, 3);
  EXPECT_EQ(outcome.errors,
            "valmere: cannot connect to /nonexistent/PRN1: No such file or directory\n");
}

TEST_F(ValmereTest, EndsWithSixWhenNoAnswerComesInTime) {
  Serve([](const FakeConnection& connection) { connection.WaitForEnd(); });
  const Outcome outcome = Run({"list", "--timeout", "0.05"});
  EXPECT_EQ(outcome.code, 6);
  EXPECT_EQ(outcome.errors, "valmere: time-out waiting for the service\n");
}

TEST_F(ValmereTest, EndsWithSevenWhenTheConnectionIsLost) {
  Serve([](const FakeConnection& connection) { connection.Receive(); });
  const Outcome outcome = Run({"list"});
  EXPECT_EQ(outcome.code, 7);
  EXPECT_EQ(outcome.errors, "valmere: connection lost: the service ended it\n");
}

TEST_F(ValmereTest, EndsWithOneWhenTheAnswerIsNoMessage) {
  Serve([](const FakeConnection& connection) {
    connection.Receive();
    connection.Send("[]");
    connection.WaitForEnd();
  });
  EXPECT_EQ(Run({"list"}).code, 1);
}

TEST_F(ValmereTest, EndsWith130WhenItIsInterrupted) {
  for (const int signal : {SIGINT, SIGTERM}) {
    std::promise<void> asked;  // it waits for the answer then, or is about to
    Serve([&](const FakeConnection& connection) {
      connection.Receive();
      asked.set_value();
      connection.WaitForEnd();
    });
    const auto process = Start({"list"});
    ASSERT_EQ(asked.get_future().wait_for(kPatience), std::future_status::ready);
    process->Signal(signal);
    EXPECT_EQ(process->Wait(), 130);
    EXPECT_EQ(process->errors(), "valmere: interrupted\n");
    service_.reset();
  }
}

TEST_F(ValmereTest, ExplainsItself) {
  for (const char* command : {"",
                              "list",
                              "get",
                              "set",
                              "watch",
                              "wait",
                              "publish",
                              "info",
                              "monitor",
                              "ping",
                              "store",
                              "load",
                              "export",
                              "import",
                              "propfile",
                              "propfile show",
                              "propfile check",
                              "propfile set",
                              "propfile seal",
                              "frame",
                              "frame encode",
                              "frame decode"}) {
    std::istringstream words(std::string(command) + " --help");
    const Outcome outcome = Run({std::istream_iterator<std::string>(words), {}});
    EXPECT_EQ(outcome.code, 0);
    EXPECT_THAT(outcome.output, HasSubstr("Usage: valmere"));
    EXPECT_EQ(outcome.errors, "");
  }
  EXPECT_THAT(Run({"frame", "decode", "--help"}).output,
              AllOf(HasSubstr("--check"), HasSubstr("Every command takes --socket, --timeout")));
  EXPECT_THAT(Run({"--version"}).output, ::testing::MatchesRegex("valmere [0-9.]+\n"));
}

}  // namespace
}  // namespace valmere::test
