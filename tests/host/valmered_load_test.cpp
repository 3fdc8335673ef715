// The operator's wish, by SIGHUP, that the property file be loaded again.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <string>
#include <vector>

#include "tests/host/valmered_fixture.h"

namespace valmere::test {
namespace {

using ::testing::AllOf;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsSupersetOf;
using ::testing::Not;
using ::testing::StartsWith;

// The fake driver lets a load take until a client says that it is over.
class ValmeredLoadTest : public ValmeredTest {
 protected:
  void HangUp(int times = 1) {
    for (int i = 0; i < times; ++i)
      valmered_->Signal(SIGHUP);
  }
  // Ends it, with the calls that the driver got until then.
  std::vector<std::string> CallsUntilItsEnd() {
    valmered_->Signal(SIGTERM);
    const std::vector<std::string> calls = log_.Until("deinit 1 open 0");
    EXPECT_EQ(valmered_->Wait(), 0);
    return calls;
  }
  static long CountOf(const std::vector<std::string>& calls, const std::string& call) {
    return std::count(calls.begin(), calls.end(), call);
  }
};

TEST_F(ValmeredLoadTest, LoadsOnceMoreForAllThatIsAskedWhileItLoads) {
  Start();
  HangUp();
  EXPECT_EQ(log_.Until("load 1").size(), 3U) << "open, write, load";
  HangUp(1000);
  const RawClient client(socket_);
  // Between its answers the loop has seen the signals.
  for (int i = 0; i < 3; ++i)
    client.Exchange("a");
  client.Exchange("loaded");
  EXPECT_THAT(log_.Until("load 1"), Not(Contains("open 3")));
  client.Exchange("loaded");
  const auto calls = CallsUntilItsEnd();
  EXPECT_LE(CountOf(calls, "load 1"), 1) << "one signal may have been late";
  EXPECT_THAT(calls, AllOf(Contains("close 1"), Not(Contains(StartsWith("open")))));
}

TEST_F(ValmeredLoadTest, LoadsForEachWishThatComesAfterALoad) {
  Start();
  const RawClient client(socket_);
  client.Exchange("a");
  for (int i = 0; i < 3; ++i) {
    HangUp();
    EXPECT_EQ(valmered_->ReadErrorLine(), "valmered: loading the property file again");
    EXPECT_EQ(log_.Until("load 2").back(), "load 2");
    client.Exchange("loaded");
  }
  const auto calls = CallsUntilItsEnd();
  EXPECT_EQ(CountOf(calls, "load 2"), 0);
}

TEST_F(ValmeredLoadTest, EndsWhileItLoads) {
  Start();
  HangUp();
  log_.Until("load 1");
  HangUp();
  EXPECT_THAT(CallsUntilItsEnd(), ElementsAre("close 1", "deinit 1 open 0"));
}

TEST_F(ValmeredLoadTest, LoadsAgainWhenTheServiceHasEndedTheSession) {
  Start();
  HangUp();
  log_.Until("load 1");
  const RawClient client(socket_);
  client.Exchange("loads end");
  EXPECT_EQ(log_.Until("close 1").back(), "close 1");
  HangUp();
  EXPECT_EQ(log_.Until("load 3").back(), "load 3");
  EXPECT_THAT(CallsUntilItsEnd(), IsSupersetOf({"close 2", "close 3"}));
  EXPECT_EQ(valmered_->errors(),
            "valmered: loading the property file again\n"
            "valmered: the driver ended the session that loads the property file\n"
            "valmered: loading the property file again\n");
}

}  // namespace
}  // namespace valmere::test
