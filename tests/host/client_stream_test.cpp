// A client's stream: what is read of it, in which order, and how long it is waited for.
#include "host/socket/client_stream.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "host/socket/limits.h"
#include "tests/host/client_end.h"
#include "tests/host/internet_client.h"
#include "tests/support/frames.h"
#include "tests/support/test_thread.h"

namespace valmere::test {
using namespace host;
namespace {

using std::chrono::milliseconds;
using ::testing::HasSubstr;
using ::testing::internal::CaptureStderr;
using ::testing::internal::GetCapturedStderr;

const std::string kGoneText = std::to_string(Connection::kGone);

Limits WithFrameTime(milliseconds time) {
  Limits limits;
  limits.frame = time;
  return limits;
}

TEST(ClientStreamRead, GivesAFrameByItsFields) {
  const ServedClient client;
  ASSERT_TRUE(client.end.Send(FrameOf("{\"a\":1}")));
  EXPECT_EQ(client.Read(16), IdentifierBytes());
  EXPECT_EQ(client.Read(4), LengthBytes(7));
  EXPECT_EQ(client.Read(7), "{\"a\":1}");
  EXPECT_TRUE(client.stream->ComesInPieces());
}

TEST(ClientStreamRead, PutsFramesTogetherWhereverTheyAreCut) {
  const std::string frame = FrameOf("{\"a\":1}");
  const ServedClient client;
  std::thread sending([&] {
    for (std::size_t cut = 1; cut < frame.size(); ++cut) {
      client.end.Send(frame.substr(0, cut));
      std::this_thread::yield();
      client.end.Send(frame.substr(cut));
    }
  });
  for (std::size_t cut = 1; cut < frame.size(); ++cut) {
    EXPECT_EQ(client.ReadAll(frame.size()), frame) << cut;
  }
  sending.join();
}

TEST(ClientStreamRead, TakesFramesByteByByteOverEverySocket) {
  std::vector<SocketPair> pairs;
  pairs.push_back(MakeSocketPair());
  for (const std::string& where : LoopbackAddresses()) {
    pairs.push_back(MakeInternetPair(where));
  }
  const std::string frames = FrameOf("one") + FrameOf(std::string(5000, 'x')) + FrameOf("three");
  for (SocketPair& pair : pairs) {
    const ServedClient client({}, std::move(pair));
    std::thread sending([&] {
      for (const char byte : frames) {
        client.end.Send({&byte, 1});
      }
    });
    EXPECT_EQ(client.ReadAll(frames.size()), frames);
    sending.join();
  }
}

TEST(ClientStreamRead, GivesManyFramesThatCameAtOnce) {
  const ServedClient client;
  ASSERT_TRUE(client.end.Send(FrameOf("one") + FrameOf("two") + FrameOf("three")));
  for (const char* const text : {"one", "two", "three"}) {
    EXPECT_EQ(client.ReadAll(FrameOf(text).size()), FrameOf(text));
    EXPECT_GT(client.Write("answer"), 0);
  }
}

TEST(ClientStreamRead, ReceivesALongTextWhereItIsWanted) {
  const std::string frame = FrameOf(std::string(4 << 20, 'x'));
  const ServedClient client;
  std::thread sending([&] { client.end.Send(frame + FrameOf("next")); });
  EXPECT_EQ(client.ReadAll(16), IdentifierBytes());
  EXPECT_EQ(client.ReadAll(4), LengthBytes(4 << 20));
  EXPECT_EQ(client.ReadAll(4 << 20), frame.substr(20));
  EXPECT_EQ(client.ReadAll(24), FrameOf("next"));
  sending.join();
}

TEST(ClientStreamRead, GivesWhatAClientSentThatHasGone) {
  ServedClient client;
  ASSERT_TRUE(client.end.Send(FrameOf("one") + FrameOf("two")));
  client.end.Close();
  EXPECT_EQ(client.ReadAll(23), FrameOf("one"));
  EXPECT_EQ(client.Write("answer"), 6) << "dropped";
  EXPECT_FALSE(client.stream->IsOpen());
  EXPECT_EQ(client.ReadAll(23), FrameOf("two"));
  EXPECT_EQ(client.Write("answer"), 6);
  EXPECT_EQ(client.Read(16), kGoneText);
}

TEST(ClientStreamRead, GoesOnWhereAClientHasGoneThatAnAnswerWaitsFor) {
  ServedClient client;
  ASSERT_TRUE(client.end.Send(FrameOf("one") + FrameOf("two")));
  EXPECT_EQ(client.ReadAll(23), FrameOf("one"));
  client.Write(std::string(kLongAnswer, 'x'));
  EXPECT_TRUE(client.stream->HasWaiting());
  client.end.Close();
  EXPECT_EQ(client.ReadAll(23), FrameOf("two"));
  EXPECT_FALSE(client.stream->HasWaiting());
}

TEST(ClientStreamRead, WaitsForTheRestOfAFrameOnlySoLong) {
  ServedClient client(WithFrameTime(milliseconds(50)));
  CaptureStderr();
  ASSERT_TRUE(client.end.Send(FrameOf("text").substr(0, 22)));
  EXPECT_EQ(client.ReadAll(24), FrameOf("text").substr(0, 22));
  EXPECT_THAT(GetCapturedStderr(), HasSubstr("closed: the rest of a frame did not come within"));
  EXPECT_TRUE(client.end.ReachesEnd());
  EXPECT_FALSE(client.stream->IsOpen());
}

TEST(ClientStreamRead, WaitsForTheNextFrameLongerThanForTheRestOfOne) {
  ServedClient client(WithFrameTime(milliseconds(1)));
  for (int i = 0; i < 3; ++i) {
    std::thread sending([&] {
      std::this_thread::sleep_for(milliseconds(20));
      client.end.Send(FrameOf("{}"));
    });
    EXPECT_EQ(client.ReadAll(22), FrameOf("{}"));
    sending.join();
  }
}

TEST(ClientStreamRead, ClosesAClientWhoseBytesAreNoFrames) {
  ServedClient client(WithFrameTime(milliseconds(50)));
  CaptureStderr();
  ASSERT_TRUE(client.end.Send("GET / HTTP/1.0\r\n\r\n"));
  EXPECT_EQ(client.ReadAll(1000), "GET / HTTP/1.0\r\n\r\n");
  EXPECT_THAT(GetCapturedStderr(), HasSubstr("closed: its bytes are no frames"));
  EXPECT_TRUE(client.end.ReachesEnd());
}

TEST(ClientStreamRead, ClosesAClientThatGoesOnSendingSuchBytes) {
  ServedClient client(WithFrameTime(milliseconds(50)));
  CaptureStderr();
  std::thread sending([&] {
    while (client.end.Send(std::string(1000, '!'))) {
    }
  });
  while (client.Read(1000) != kGoneText) {
  }
  sending.join();
  EXPECT_THAT(GetCapturedStderr(), HasSubstr("closed: its bytes are no frames"));
}

TEST(ClientStreamRead, ReturnsAtOnceWhenAnotherThreadCloses) {
  const ServedClient client;
  std::atomic<bool> reading{false};
  std::string read;
  std::thread reader([&] {
    reading = true;
    read = client.Read(16);
  });
  ASSERT_TRUE(Eventually([&] { return reading.load(); }));
  client.stream->Close();
  reader.join();
  EXPECT_EQ(read, kGoneText);
  EXPECT_FALSE(client.stream->IsOpen());
}

TEST(ClientStreamRead, TakesNothingMoreWhileAnAnswerWaits) {
  ServedClient client;
  std::atomic<int> requests{0};
  std::thread reader([&] {
    while (client.ReadAll(22).size() == 22) {
      ++requests;
      client.Write(std::string(kLongAnswer, 'x'));
    }
  });
  // The socket is full when nothing reads from it.
  const std::string frame = FrameOf("{}");
  while (send(client.end.descriptor(), frame.data(), frame.size(), MSG_DONTWAIT) > 0) {
  }
  EXPECT_TRUE(Eventually([&] { return client.stream->HasWaiting(); }));
  EXPECT_EQ(requests, 1);
  EXPECT_EQ(client.end.Read(kLongAnswer).size(), kLongAnswer);
  EXPECT_TRUE(Eventually([&] { return requests == 2; }));
  const auto before = std::chrono::steady_clock::now();
  client.stream->Close();
  reader.join();
  EXPECT_LT(std::chrono::steady_clock::now() - before, std::chrono::seconds(5))
      << "of the thirty that a client has";
  EXPECT_EQ(requests, 2);
}

TEST(ClientStreamRead, GetsOutNewsThatWaitBeforeAnAnswer) {
  ServedClient client;
  ASSERT_TRUE(client.end.Send(FrameOf("one") + FrameOf("two")));
  std::thread([&] { client.Write(std::string(kLongAnswer, 'n')); }).join();
  EXPECT_EQ(client.ReadAll(23), FrameOf("one"));
  client.Write("<answer>");
  std::thread reading([&] { client.end.Read(kLongAnswer + 8); });
  EXPECT_EQ(client.ReadAll(23), FrameOf("two"));
  reading.join();
}

TEST(ClientStreamRead, ClosesAClientThatLeavesAnAnswerUnreadForTooLong) {
  ServedClient client(WithUnreadTime(milliseconds(50)));
  ASSERT_TRUE(client.end.Send(FrameOf("one") + FrameOf("two")));
  EXPECT_EQ(client.ReadAll(23), FrameOf("one"));
  client.Write(std::string(kLongAnswer, 'x'));
  CaptureStderr();
  EXPECT_EQ(client.Read(16), kGoneText);
  EXPECT_THAT(GetCapturedStderr(), HasSubstr("closed: it left bytes unread for 0.05 s"));
  EXPECT_TRUE(client.end.ReachesEnd());
}

TEST(ClientStreamFinish, ReadsWhatTheClientHasSentByThenAndNoMore) {
  ServedClient client;
  ASSERT_TRUE(client.end.Send(FrameOf("one")));
  client.stream->Finish();
  EXPECT_EQ(client.ReadAll(23), FrameOf("one"));
  EXPECT_EQ(client.Write("answer"), 6);
  EXPECT_EQ(client.Read(16), kGoneText);
  EXPECT_EQ(client.end.Read(6), "answer");
  EXPECT_FALSE(client.end.Send("x"));
}

}  // namespace
}  // namespace valmere::test
