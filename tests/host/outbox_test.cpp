// The outbox over a socket pair whose other end reads when the test says so.
#include "host/socket/outbox.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstring>
#include <string>
#include <thread>

#include "tests/host/subprocess.h"

namespace valmere::test {
using namespace host;
namespace {

class OutboxTest : public ::testing::Test {
 protected:
  ~OutboxTest() override {
    CloseReader();
    close(ends_[0]);
  }

  static std::array<int, 2> MakePair() {
    std::array<int, 2> ends{-1, -1};
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends.data()), 0);
    return ends;
  }
  static FrameBuffer FrameOf(const std::string& text) {
    FrameBuffer frame;
    frame.MakeRoom(text.size(), 0);
    frame.set_size(text.size());
    std::memcpy(frame.data(), text.data(), text.size());
    return frame;
  }
  Outbox::Sent Send(const std::string& text) {
    FrameBuffer frame = FrameOf(text);
    return outbox_.Send(frame);
  }
  // What is there to be read now, up to `limit` bytes.
  std::string ReadSome(std::size_t limit = 1 << 20) const {
    std::string bytes(limit, '\0');
    const ssize_t count = recv(ends_[1], bytes.data(), bytes.size(), MSG_DONTWAIT);
    bytes.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
    return bytes;
  }
  // Reads and flushes until nothing waits and nothing is left to be read.
  std::string ReadAll() {
    std::string all;
    std::string part;
    do {
      EXPECT_TRUE(outbox_.Flush());
      part = ReadSome();
      all += part;
    } while (!part.empty());
    return all;
  }
  void CloseReader() {
    if (ends_[1] >= 0) close(ends_[1]);
    ends_[1] = -1;
  }

  static constexpr std::size_t kLimit = 1 << 20;

  std::array<int, 2> ends_ = MakePair();
  int backed_up_ = 0;
  Outbox outbox_{ends_[0], kLimit, [this] { ++backed_up_; }};
};

TEST_F(OutboxTest, SendsAtOnceWhileTheSocketTakesIt) {
  EXPECT_EQ(Send("one"), Outbox::Sent::kTaken);
  EXPECT_EQ(Send("two"), Outbox::Sent::kTaken);
  EXPECT_EQ(ReadSome(), "onetwo");
  EXPECT_EQ(backed_up_, 0);
  EXPECT_FALSE(outbox_.waiting_since());
}

TEST_F(OutboxTest, LeavesTheMemoryOfASentFrameAlone) {
  FrameBuffer frame = FrameOf("one");
  const unsigned char* memory = frame.data();
  EXPECT_EQ(outbox_.Send(frame), Outbox::Sent::kTaken);
  EXPECT_EQ(frame.data(), memory);
}

TEST_F(OutboxTest, KeepsWhatTheSocketDoesNotTakeAndCallsOnce) {
  const std::string large(kLimit, 'l');
  const auto before = Outbox::Clock::now();
  EXPECT_EQ(Send(large), Outbox::Sent::kTaken);
  EXPECT_EQ(backed_up_, 1);
  EXPECT_EQ(Send("small"), Outbox::Sent::kTaken);
  EXPECT_EQ(backed_up_, 1);
  ASSERT_TRUE(outbox_.waiting_since());
  EXPECT_GE(*outbox_.waiting_since(), before);
  EXPECT_TRUE(ReadAll() == large + "small");
  EXPECT_FALSE(outbox_.waiting_since());
}

TEST_F(OutboxTest, FlushesNoMoreThanAPartOfALongFrameAtOnce) {
  constexpr std::size_t kPart = 262144;
  const int much = kPart;  // the kernel doubles it
  setsockopt(ends_[0], SOL_SOCKET, SO_SNDBUF, &much, sizeof(much));
  const std::string large(kLimit, 'l');
  EXPECT_EQ(Send(large), Outbox::Sent::kTaken);
  std::string all = ReadSome();
  ASSERT_LT(all.size(), large.size() - kPart) << "too little is left";
  EXPECT_TRUE(outbox_.Flush());
  const std::string flushed = ReadSome();
  EXPECT_GT(flushed.size(), 0U);
  EXPECT_LE(flushed.size(), kPart);
  EXPECT_EQ((all + flushed + ReadAll()).size(), large.size());
}

TEST_F(OutboxTest, CallsWheneverSomethingBeginsToWait) {
  std::string wanted;
  for (int i = 0; i < 500; ++i)
    wanted += std::string(20'000, static_cast<char>('a' + i % 26));
  std::atomic<bool> called{false};
  std::atomic<bool> over{false};
  Outbox outbox(ends_[0], kLimit, [&] { called = true; });
  std::thread pump([&] {
    for (std::size_t at = 0; at < wanted.size(); at += 20'000) {
      const std::string text = wanted.substr(at, 20'000);
      Outbox::Sent sent = Outbox::Sent::kTooMuch;
      while (sent == Outbox::Sent::kTooMuch && !over) {
        FrameBuffer frame = FrameOf(text);
        sent = outbox.Send(frame);
      }
    }
  });
  const auto deadline = Outbox::Clock::now() + kPatience;
  std::string all;
  bool waiting = false;
  while (all.size() < wanted.size() && Outbox::Clock::now() < deadline) {
    waiting = called.exchange(false) || waiting;
    if (waiting) {
      outbox.Flush();
      waiting = outbox.waiting_since().has_value();
    }
    all += ReadSome();
  }
  over = true;
  pump.join();
  EXPECT_TRUE(all == wanted) << "something waits that nobody was told of";
}

TEST_F(OutboxTest, KeepsTheOrderOfManySmallFrames) {
  std::string wanted(kLimit, 'l');
  Send(wanted);
  for (int i = 0; i < 1000; ++i) {
    const std::string text = "frame " + std::to_string(i) + ";";
    EXPECT_EQ(Send(text), Outbox::Sent::kTaken);
    wanted += text;
  }
  EXPECT_TRUE(ReadAll() == wanted);
}

TEST_F(OutboxTest, CallsAgainWhenItBacksUpAnew) {
  Send(std::string(kLimit, 'l'));
  ReadAll();
  EXPECT_EQ(Send("small"), Outbox::Sent::kTaken);
  EXPECT_EQ(ReadSome(), "small");
  EXPECT_EQ(backed_up_, 1);
  Send(std::string(kLimit, 'l'));
  EXPECT_EQ(backed_up_, 2);
}

TEST_F(OutboxTest, TakesAnyFrameWhileNothingWaits) {
  const std::string huge(3 * kLimit, 'h');
  EXPECT_EQ(Send(huge), Outbox::Sent::kTaken);
  EXPECT_EQ(Send("one more"), Outbox::Sent::kTooMuch);
  EXPECT_TRUE(ReadAll() == huge);
}

TEST_F(OutboxTest, RefusesTheFrameThatPassesTheLimit) {
  while (backed_up_ == 0) {
    ASSERT_EQ(Send(std::string(1000, 'x')), Outbox::Sent::kTaken);
  }
  // Something of one frame waits, and nothing else.
  for (std::size_t i = 0; i < kLimit / 1000 - 1; ++i) {
    ASSERT_EQ(Send(std::string(1000, 'x')), Outbox::Sent::kTaken);
  }
  int taken = 0;
  while (taken < 10 && Send(std::string(1000, 'x')) == Outbox::Sent::kTaken) {
    ++taken;
  }
  EXPECT_LE(taken, 2);
}

TEST_F(OutboxTest, TellsWhenTheOldestWasGivenAfterOlderOnesHaveGone) {
  EXPECT_EQ(Send(std::string(kLimit / 2, 'l')), Outbox::Sent::kTaken);
  const auto first = outbox_.waiting_since();
  EXPECT_EQ(Send(std::string(kLimit / 2, 'm')), Outbox::Sent::kTaken);
  EXPECT_EQ(outbox_.waiting_since(), first);
  std::size_t read = 0;
  while (outbox_.waiting_since() == first) {
    read += ReadSome().size();
    ASSERT_TRUE(outbox_.Flush());
  }
  EXPECT_LE(read, kLimit);
  EXPECT_TRUE(outbox_.waiting_since() > first);
}

TEST_F(OutboxTest, SaysWhenTheClientIsGone) {
  CloseReader();
  EXPECT_EQ(Send("one"), Outbox::Sent::kClientGone);
}

TEST_F(OutboxTest, SaysWhenTheClientGoesWhileSomethingWaits) {
  Send(std::string(kLimit, 'l'));
  CloseReader();
  EXPECT_FALSE(outbox_.Flush());
}

}  // namespace
}  // namespace valmere::test
