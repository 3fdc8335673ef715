// The outbox over a socket pair whose other end reads when the test says so.
#include "host/socket/outbox.h"

#include <gtest/gtest.h>
#include <sys/socket.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <memory>
#include <string>
#include <thread>
#include <utility>

#include "client/deadline.h"
#include "net/client_account.h"
#include "tests/host/client_end.h"

namespace valmere::test {
using namespace host;
namespace {

using std::chrono::milliseconds;
using Kind = Outbox::Kind;
using Sent = Outbox::Sent;

constexpr std::size_t kMostNews = std::size_t{1} << 20;

class OutboxTest : public ::testing::Test {
 protected:
  Sent Send(const std::string& text, Kind kind = Kind::kNews, milliseconds now = {}) {
    return outbox_.Send({text, nullptr}, kind, now);
  }
  Sent Send(const SharedFrame& frame, Kind kind, milliseconds now = {}) {
    return outbox_.Send({*frame, &frame}, kind, now);
  }
  // An answer that the socket does not take, and what the socket has of it.
  void FillSocket() { ASSERT_EQ(Send(SharedOf(kFilling, 'f'), Kind::kAnswer), Sent::kWaits); }
  // Reads and flushes until nothing waits and nothing is left to be read.
  std::string ReadAll() {
    std::string all;
    std::string part;
    do {
      EXPECT_TRUE(outbox_.Flush());
      part = reader_.ReadThere();
      all += part;
    } while (!part.empty());
    return all;
  }

  static constexpr std::size_t kFilling = std::size_t{4} << 20;

  SocketPair pair_ = MakeSocketPair();
  ClientEnd reader_{std::move(pair_.client)};
  ClientAccount account_{2 * kMostNews};
  Outbox outbox_{pair_.service.get(), kMostNews, account_};
};

TEST_F(OutboxTest, SendsAtOnceWhatTheSocketTakes) {
  EXPECT_EQ(Send("one"), Sent::kWhole);
  EXPECT_EQ(Send("two", Kind::kAnswer), Sent::kWhole);
  EXPECT_EQ(Send("three", Kind::kForOther), Sent::kWhole);
  EXPECT_EQ(reader_.ReadThere(), "onetwothree");
  EXPECT_TRUE(outbox_.empty());
  EXPECT_FALSE(outbox_.waiting_since());
  EXPECT_EQ(account_.used(), 0U);
}

TEST_F(OutboxTest, KeepsTheOrderOfAllKinds) {
  FillSocket();
  EXPECT_EQ(Send("<news>"), Sent::kWaits);
  EXPECT_EQ(Send("<answer>", Kind::kAnswer), Sent::kWaits);
  EXPECT_EQ(Send("<other>", Kind::kForOther), Sent::kWaits);
  EXPECT_EQ(ReadAll(), std::string(kFilling, 'f') + "<news><answer><other>");
  EXPECT_TRUE(outbox_.empty());
  EXPECT_FALSE(outbox_.has_answer());
  EXPECT_EQ(Send("later"), Sent::kWhole);
}

TEST_F(OutboxTest, GetsOutMoreFramesThanOneCallSends) {
  FillSocket();
  std::string expected(kFilling, 'f');
  for (int i = 0; i < 1000; ++i) {
    const std::string text = std::to_string(i) + ";";
    ASSERT_EQ(Send(text), Sent::kWaits);
    expected += text;
  }
  EXPECT_EQ(ReadAll(), expected);
}

TEST_F(OutboxTest, SharesWhatWaitsAndCopiesNoneOfIt) {
  const SharedFrame frame = SharedOf(2 * kFilling);
  ASSERT_EQ(frame.use_count(), 1);
  ASSERT_EQ(Send(frame, Kind::kAnswer), Sent::kWaits);
  EXPECT_EQ(frame.use_count(), 2);
  EXPECT_EQ(ReadAll().size(), frame->size());
  EXPECT_EQ(frame.use_count(), 1);
}

TEST_F(OutboxTest, CopiesWhatIsLeftOfBytesThatTheCallerKeeps) {
  std::string bytes(kFilling, 'c');
  ASSERT_EQ(Send(bytes, Kind::kAnswer), Sent::kWaits);
  bytes.assign(bytes.size(), '!');
  EXPECT_EQ(ReadAll(), std::string(kFilling, 'c'));
}

TEST_F(OutboxTest, RefusesNewsBeyondItsLimitAndNoLess) {
  FillSocket();
  EXPECT_EQ(Send(SharedOf(kMostNews), Kind::kNews), Sent::kWaits);
  EXPECT_EQ(Send("x"), Sent::kTooMuch);
  EXPECT_EQ(Send("<answer>", Kind::kAnswer), Sent::kWaits);
  EXPECT_EQ(ReadAll().size(), kFilling + kMostNews + std::string("<answer>").size());
}

TEST_F(OutboxTest, KeepsNewsOfAnyLengthWhereNothingWaits) {
  ASSERT_EQ(Send(SharedOf(2 * kMostNews), Kind::kNews), Sent::kWaits);
  EXPECT_EQ(Send("x"), Sent::kTooMuch);
  EXPECT_EQ(ReadAll().size(), 2 * kMostNews);
}

TEST_F(OutboxTest, ChargesTheAccountWithNewsUntilTheyAreTaken) {
  FillSocket();
  EXPECT_EQ(account_.used(), 0U);
  ASSERT_EQ(Send(SharedOf(1000), Kind::kNews), Sent::kWaits);
  ASSERT_EQ(Send(SharedOf(500), Kind::kNews), Sent::kWaits);
  EXPECT_EQ(account_.used(), 1500U);
  ASSERT_EQ(Send(SharedOf(300), Kind::kForOther), Sent::kWaits);
  ASSERT_EQ(Send(SharedOf(300), Kind::kAnswer), Sent::kWaits);
  EXPECT_EQ(account_.used(), 1500U);
  ReadAll();
  EXPECT_EQ(account_.used(), 0U);
  FillSocket();
  ASSERT_EQ(Send(SharedOf(1000), Kind::kNews), Sent::kWaits);
  outbox_.Abandon();
  EXPECT_EQ(account_.used(), 0U);
}

TEST_F(OutboxTest, RefusesNewsThatTheAccountHasNothingLeftFor) {
  account_.Charge(account_.most() - 10);
  FillSocket();
  EXPECT_EQ(Send("12345678901"), Sent::kTooMuch);
  EXPECT_EQ(Send("1234567890"), Sent::kWaits);
  EXPECT_EQ(Send("answer", Kind::kAnswer), Sent::kWaits);
}

TEST_F(OutboxTest, HasNoRoomForOthersOnceTheirsAreMuch) {
  FillSocket();
  EXPECT_EQ(Send(SharedOf(3 * kMostNews), Kind::kForOther), Sent::kWaits);
  EXPECT_EQ(Send("<other>", Kind::kForOther), Sent::kNoRoom);
  EXPECT_EQ(Send("<answer>", Kind::kAnswer), Sent::kWaits);
  EXPECT_EQ(ReadAll().size(), kFilling + 3 * kMostNews + std::string("<answer>").size());
  EXPECT_EQ(Send("<other>", Kind::kForOther), Sent::kWhole);
}

TEST_F(OutboxTest, HasNoRoomForOthersOnceNewsAreMuch) {
  FillSocket();
  ASSERT_EQ(Send(SharedOf(kMostNews), Kind::kNews), Sent::kWaits);
  EXPECT_EQ(Send("<other>", Kind::kForOther), Sent::kNoRoom);
}

// Otherwise any client could have another one closed.
TEST_F(OutboxTest, KeepsNewsHoweverMuchOthersHaveSent) {
  FillSocket();
  ASSERT_EQ(Send(SharedOf(3 * kMostNews), Kind::kForOther), Sent::kWaits);
  EXPECT_EQ(Send(SharedOf(kMostNews), Kind::kNews), Sent::kWaits);
  EXPECT_EQ(Send("x"), Sent::kTooMuch);
}

TEST_F(OutboxTest, AwaitsRoomUntilWhatWaitsIsTaken) {
  FillSocket();
  ASSERT_EQ(Send(SharedOf(2 * kMostNews), Kind::kForOther), Sent::kWaits);
  EXPECT_FALSE(outbox_.AwaitRoom(client::Deadline::After(milliseconds(1))));
  std::atomic<bool> has_room{false};
  std::thread waiting([&] { has_room = outbox_.AwaitRoom(client::Deadline::After(kPatience)); });
  EXPECT_EQ(ReadAll().size(), kFilling + 2 * kMostNews);
  waiting.join();
  EXPECT_TRUE(has_room);
}

TEST_F(OutboxTest, WakesAWaitForRoomWhenItIsAbandoned) {
  FillSocket();
  ASSERT_EQ(Send(SharedOf(2 * kMostNews), Kind::kForOther), Sent::kWaits);
  std::atomic<bool> has_room{false};
  std::thread waiting([&] { has_room = outbox_.AwaitRoom(client::Deadline::After(kPatience)); });
  outbox_.Abandon();
  waiting.join();
  EXPECT_TRUE(has_room);
}

TEST_F(OutboxTest, HasRoomForOthersWhereNoNewsMayWait) {
  Outbox outbox(pair_.service.get(), 0, account_);
  const SharedFrame answer = SharedOf(kFilling);
  ASSERT_EQ(outbox.Send({*answer, &answer}, Kind::kAnswer, {}), Sent::kWaits);
  EXPECT_TRUE(outbox.AwaitRoom(client::Deadline::After(milliseconds(0))));
  EXPECT_EQ(outbox.Send({"<other>", nullptr}, Kind::kForOther, {}), Sent::kWaits);
  EXPECT_EQ(outbox.Send({"<other>", nullptr}, Kind::kForOther, {}), Sent::kNoRoom);
  EXPECT_EQ(outbox.Send({"<news>", nullptr}, Kind::kNews, {}), Sent::kTooMuch);
}

TEST_F(OutboxTest, TellsTheAgeOfTheOldest) {
  ASSERT_EQ(Send(SharedOf(kFilling), Kind::kAnswer, milliseconds(10)), Sent::kWaits);
  ASSERT_EQ(Send("<news>", Kind::kNews, milliseconds(20)), Sent::kWaits);
  EXPECT_EQ(outbox_.waiting_since(), milliseconds(10));
  reader_.ReadThere();
  EXPECT_TRUE(outbox_.Flush());
  EXPECT_EQ(outbox_.waiting_since(), milliseconds(10)) << "a part of the oldest still waits";
  while (outbox_.has_answer()) {
    reader_.ReadThere();
    EXPECT_TRUE(outbox_.Flush());
  }
  if (!outbox_.empty()) {
    EXPECT_EQ(outbox_.waiting_since(), milliseconds(20));
  }
}

TEST_F(OutboxTest, KnowsOfAnswersThatWait) {
  EXPECT_FALSE(outbox_.has_answer());
  ASSERT_EQ(Send(SharedOf(kFilling), Kind::kNews), Sent::kWaits);
  EXPECT_FALSE(outbox_.has_answer());
  ASSERT_EQ(Send("<answer>", Kind::kAnswer), Sent::kWaits);
  EXPECT_TRUE(outbox_.has_answer());
  ReadAll();
  EXPECT_FALSE(outbox_.has_answer());
}

TEST_F(OutboxTest, FindsOutThatTheReaderHasGone) {
  reader_.Close();
  EXPECT_EQ(Send("one"), Sent::kGone);
  EXPECT_TRUE(outbox_.empty());
  EXPECT_TRUE(outbox_.Flush()) << "nothing waits, so nothing is tried";
}

TEST_F(OutboxTest, FindsOutWhileSomethingWaitsThatTheReaderHasGone) {
  FillSocket();
  reader_.Close();
  EXPECT_FALSE(outbox_.Flush());
}

TEST_F(OutboxTest, TakesNothingOnceAbandoned) {
  const SharedFrame frame = SharedOf(kFilling);
  ASSERT_EQ(Send(frame, Kind::kAnswer), Sent::kWaits);
  outbox_.Abandon();
  EXPECT_EQ(frame.use_count(), 1);
  EXPECT_TRUE(outbox_.empty());
  EXPECT_FALSE(outbox_.has_answer());
  EXPECT_EQ(Send("x", Kind::kAnswer), Sent::kGone);
  EXPECT_FALSE(outbox_.Flush());
  EXPECT_TRUE(outbox_.AwaitRoom(client::Deadline::After(milliseconds(0))));
}

TEST_F(OutboxTest, KeepsEachFrameInOnePieceForManySenders) {
  constexpr int kFrames = 200;
  constexpr std::size_t kBytes = 3000;
  std::atomic<int> running{3};
  const auto send = [&](char letter) {
    for (int i = 0; i < kFrames; ++i) {
      Send("<" + std::string(kBytes, letter) + ">", Kind::kAnswer);
    }
    --running;
  };
  std::thread a(send, 'a');
  std::thread b(send, 'b');
  std::thread c(send, 'c');
  std::string all;
  while (running > 0) {
    outbox_.Flush();
    all += reader_.ReadThere();
  }
  for (std::thread* sender : {&a, &b, &c}) {
    sender->join();
  }
  all += ReadAll();
  ASSERT_EQ(all.size(), 3 * kFrames * (kBytes + 2));
  for (std::size_t at = 0; at < all.size(); at += kBytes + 2) {
    const char letter = all[at + 1];
    ASSERT_EQ(all.substr(at, kBytes + 2), "<" + std::string(kBytes, letter) + ">");
  }
}

}  // namespace
}  // namespace valmere::test
