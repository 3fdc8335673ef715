// Commands that wait for what happens at the real service.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>

#include "tests/tools/desk_fixture.h"

namespace valmere::test {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::MatchesRegex;
using ::testing::StartsWith;

TEST_F(DeskTest, WaitsForAPropertyThatIsNotThereYet) {
  const auto waiting = Start({"wait", "Head/Motion/Speed=43"});
  const auto publisher = Publish("Motion/Speed=42");
  EXPECT_EQ(Run({"set", "Speed", "43"}).code, 0);
  EXPECT_EQ(waiting->Wait(), 0);
  EXPECT_EQ(waiting->output() + waiting->errors(), "");
  EXPECT_EQ(Run({"wait", "Speed"}).code, 0);
}

TEST_F(DeskTest, WaitsForNoNameThatCouldBeSeveral) {
  const auto first = Publish("Motion/Speed=1");
  const auto second = Publish("Fan/Speed=2");
  const Outcome outcome = Run({"wait", "Speed=3"});
  EXPECT_EQ(outcome.code, 2);
  EXPECT_THAT(outcome.errors, AllOf(HasSubstr("Head/Motion/Speed"), HasSubstr("Head/Fan/Speed")));
}

TEST_F(DeskTest, WaitsNoLongerThanItMay) {
  const auto publisher = Publish("Motion/Speed=42");
  const Outcome outcome = Run({"wait", "--timeout", "0.2", "Speed=43"});
  EXPECT_EQ(outcome.code, 6);
  EXPECT_EQ(outcome.errors, "valmere: time-out: Head/Motion/Speed is \"42\"\n");
  EXPECT_EQ(Run({"wait", "--timeout", "0.2", "Weight"}).code, 6);
}

TEST_F(DeskTest, WatchesFromTheCurrentValuesOn) {
  const auto witness = Start({"watch", "Head/*"});
  EXPECT_EQ(witness->ReadErrorLine(), "valmere: watching");
  const auto publisher = Publish("Motion/Speed=42");
  const auto watching = Start({"watch", "--initial", "--count", "2", "Head/*"});
  EXPECT_EQ(watching->ReadLine(), "Head/Motion/Speed=42");
  // Both are told now that the property has come; only one has printed it before.
  EXPECT_EQ(witness->ReadLine(), "Head/Motion/Speed=42");
  EXPECT_EQ(Run({"set", "Speed", "43"}).code, 0);
  EXPECT_EQ(watching->ReadLine(), "Head/Motion/Speed=43");
  EXPECT_EQ(watching->Wait(), 0);
}

TEST_F(DeskTest, WatchesOnlyWhatMatches) {
  const auto fan = Publish("Fan/Rate=1");
  const auto motion = Publish("Motion/Speed=42");
  const auto watch = Start({"watch", "--count", "1", "Head/Motion/*"});
  EXPECT_EQ(watch->ReadErrorLine(), "valmere: watching");
  // The fan's line would come first.
  EXPECT_EQ(Run({"set", "--verify", "Rate", "2"}).code, 0);
  EXPECT_EQ(Run({"set", "--verify", "Speed", "43"}).code, 0);
  EXPECT_THAT(Finish(*watch).output, StartsWith("Head/Motion/Speed="));
}

TEST_F(DeskTest, WatchesUntilTheTimeIsUp) {
  EXPECT_EQ(Run({"watch", "--timeout", "0.2", "Speed"}).code, 0);
  const Outcome outcome = Run({"watch", "--timeout", "0.2", "--count", "1", "Speed"});
  EXPECT_EQ(outcome.code, 6);
  EXPECT_EQ(outcome.errors, "valmere: watching\nvalmere: time-out after 0 of 1 lines\n");
}

TEST_F(DeskTest, WatchesOnWhenTheServiceComesBack) {
  auto publisher = Publish("Motion/Speed=42");
  const auto watching = Start({"watch", "--initial", "--reconnect", "--count", "2", "Head/*"});
  EXPECT_EQ(watching->ReadErrorLine(), "valmere: watching");
  EXPECT_EQ(watching->ReadLine(), "Head/Motion/Speed=42");
  StopService();
  EXPECT_THAT(watching->ReadErrorLine(), MatchesRegex("valmere: connection lost.*; trying again"));
  StartService();
  publisher = Publish("Motion/Speed=43");
  EXPECT_EQ(watching->ReadErrorLine(), "valmere: connected again");
  // Depending on which came first it was gone in between.
  const std::string line = watching->ReadLine();
  EXPECT_THAT(line, ::testing::AnyOf("Head/Motion/Speed=43", "Head/Motion/Speed is gone"));
  EXPECT_EQ(watching->Wait(), 0);
}

TEST_F(DeskTest, EndsWithSevenWhenItMayNotReconnect) {
  const auto watching = Start({"watch"});
  EXPECT_EQ(watching->ReadErrorLine(), "valmere: watching");
  StopService();
  EXPECT_EQ(watching->Wait(), 7);
}

TEST_F(DeskTest, EndsWellWhenItIsInterruptedWhileItTriesAgain) {
  const auto watching = Start({"watch", "--reconnect"});
  EXPECT_EQ(watching->ReadErrorLine(), "valmere: watching");
  StopService();
  EXPECT_THAT(watching->ReadErrorLine(), HasSubstr("trying again"));
  watching->Signal(SIGINT);
  EXPECT_EQ(watching->Wait(), 0);
}

}  // namespace
}  // namespace valmere::test
