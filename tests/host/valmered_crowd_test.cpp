// Many clients that misbehave at once, and what one client can make the others and the machine pay.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <cstddef>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "platform/posix/sanitizers.h"
#include "tests/host/valmered_fixture.h"

namespace valmere::test {
namespace {

class ValmeredCrowdTest : public ValmeredTest {
 protected:
  using Crowd = std::vector<std::unique_ptr<RawClient>>;

  template <class Misbehave>
  void Add(Crowd& crowd, Misbehave misbehave) const {
    constexpr int kOfAKind = 50;
    for (int i = 0; i < kOfAKind; ++i) {
      crowd.push_back(std::make_unique<RawClient>(socket_));
      misbehave(*crowd.back());
    }
  }
  // How many of its lines say that a client was closed.
  int ClosedLines() const {
    const std::string& lines = valmered_->errors();
    int count = 0;
    for (std::size_t at = 0; (at = lines.find(": closed: ", at)) != std::string::npos; ++at)
      ++count;
    return count;
  }
};

TEST_F(ValmeredCrowdTest, IsClosedAndCostsAGoodClientNothing) {
  Start({"--frame-timeout", "1", "--unread-timeout", "1"});
  const RawClient good(socket_);
  good.Exchange("first");
  Crowd crowd;
  Add(crowd, [](const RawClient& never_reads) { never_reads.AskWithoutReading(400'000); });
  Add(crowd, [](const RawClient& one_byte) { one_byte.Send("\xb3"); });
  Add(crowd, [](const RawClient& half) { half.Send(half.Request("half").substr(0, 100)); });
  Add(crowd, [](const RawClient& junk) { junk.Send("GET / HTTP/1.1\r\n\r\n"); });
  const auto is_closed = [](const auto& client) { return client->PeerHasClosed(); };
  RepeatUntil([&] { return std::all_of(crowd.begin(), crowd.end(), is_closed); },
              [&] { good.Exchange("still there?"); });
  good.Exchange("and now?");
  valmered_->Signal(SIGTERM);
  ExpectCleanEnd();
  EXPECT_GE(ClosedLines(), 50);
  EXPECT_LT(ClosedLines(), 150) << "clients can fill the log";
}

TEST_F(ValmeredCrowdTest, LeavesMemoryForOneAnswerToAClientThatAsksAndDoesNotRead) {
#ifdef VALMERE_SANITIZER
  GTEST_SKIP() << "its memory is the sanitizer's";
#endif
  constexpr int kRequests = 100;
  constexpr std::size_t kValue = 1'000'000;
  constexpr int kValues = 4;
  constexpr std::size_t kSlack = 3'000'000;
  Start({"--unread-timeout", "3600"});
  Crowd owners;
  for (int i = 0; i < kValues; ++i) {
    owners.push_back(std::make_unique<RawClient>(socket_));
    owners.back()->Exchange(std::string(kValue, 'x'));
  }
  const RawClient other(socket_);
  other.Exchange("first");
  const std::string all = other.Ask(kGetAll);
  ASSERT_GT(all.size(), kValues * kValue);
  const std::size_t before = MemoryOf(valmered_->process());
  const RawClient greedy(socket_);
  std::string requests;
  for (int i = 0; i < kRequests; ++i)
    requests += FrameOf(kGetAll);
  greedy.Send(requests);
  std::size_t most = 0;
  for (int i = 0; i < 500; ++i) {
    other.Exchange("first");
    most = std::max(most, MemoryOf(valmered_->process()));
  }
  EXPECT_LT(most, before + all.size() + kSlack);
  for (int i = 0; i < kRequests; ++i)
    ASSERT_TRUE(greedy.ReceiveFrame() == all) << i;
  Stop(SIGTERM);
}

// What the flood sends is a multiple of what is kept for an owner.
TEST_F(ValmeredCrowdTest, SendsASlowOwnerAllSetsOfAFloodInOrder) {
  constexpr int kSets = 400;
  const std::string filling(20'000, 'x');
  Start({"--max-unread", "64K"});
  const RawClient owner(socket_);
  owner.Exchange("published");
  std::thread flood([this, &filling, to = owner.address()] {
    const RawClient sender(socket_);
    for (int i = 0; i < kSets; ++i)
      sender.Send(FrameOf(SetText(to, std::to_string(i) + filling)));
    sender.Exchange("all are sent");
  });
  const RawClient other(socket_);
  for (int i = 0; i < kSets && !HasFailure(); ++i) {
    other.Exchange("meanwhile");
    EXPECT_TRUE(owner.ReceiveFrame() == SetText(owner.address(), std::to_string(i) + filling)) << i;
  }
  flood.join();
  owner.Exchange("still there");
  Stop(SIGTERM);
}

}  // namespace
}  // namespace valmere::test
