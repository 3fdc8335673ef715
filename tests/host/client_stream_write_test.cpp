// A client's stream: what is written to it, what the client leaves unread, and how it is closed.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <memory>
#include <new>
#include <string>
#include <thread>

#include "host/socket/client_stream.h"
#include "host/socket/limits.h"
#include "platform/kernel.h"
#include "tests/host/client_end.h"
#include "tests/host/internet_client.h"
#include "tests/support/allocations.h"
#include "tests/support/frames.h"
#include "tests/support/test_thread.h"

namespace valmere::test {
using namespace host;
namespace {

using std::chrono::milliseconds;
using ::testing::HasSubstr;
using ::testing::internal::CaptureStderr;
using ::testing::internal::GetCapturedStderr;

TEST(ClientStreamWrite, SharesOneLongAnswerWithTheClientThatReadsSlowly) {
  ServedClient client;
  const SharedFrame answer = SharedOf(kLongAnswer);
  ASSERT_TRUE(client.end.Send(FrameOf("one") + FrameOf("two")));
  std::thread reader([&] {
    EXPECT_EQ(client.ReadAll(23), FrameOf("one"));
    EXPECT_EQ(client.WriteShared(answer), static_cast<int>(kLongAnswer));
    EXPECT_EQ(answer.use_count(), 2);
    EXPECT_EQ(client.ReadAll(23), FrameOf("two"));
    EXPECT_EQ(answer.use_count(), 1);
  });
  std::size_t count = 0;
  while (count < kLongAnswer) {
    const std::size_t got = client.end.Read(1 << 14).size();
    ASSERT_GT(got, 0U);
    count += got;
  }
  reader.join();
}

TEST(ClientStreamWrite, ClosesAClientThatLeavesTooMuchNewsUnread) {
  Limits limits;
  limits.unread_bytes = 100'000;
  ServedClient client(limits);
  CaptureStderr();
  const SharedFrame news = SharedOf(1000);
  int result = 0;
  int written = 0;
  while ((result = client.WriteShared(news)) == 1000) {
    ++written;
    if (client.stream->HasWaiting()) {
      ASSERT_LE(client.stream->account()->used(), limits.unread_bytes);
    }
  }
  EXPECT_EQ(result, Connection::kGone);
  EXPECT_GE(written, 100);
  EXPECT_THAT(GetCapturedStderr(), HasSubstr("closed: it left more than 100000 bytes unread"));
  EXPECT_FALSE(client.stream->IsOpen());
  EXPECT_EQ(client.WriteShared(news), Connection::kGone);
  EXPECT_EQ(client.stream->account()->used(), 0U);
  EXPECT_TRUE(client.end.ReachesEnd());
  EXPECT_TRUE(Eventually([&] { return news.use_count() == 1; }));
}

TEST(ClientStreamWrite, TellsOthersThatThereIsNoRoomAndWhenThereIs) {
  ServedClient client;
  const SharedFrame frame = SharedOf(std::size_t{1} << 20);
  int result = 0;
  std::size_t written = 0;
  while ((result = client.WriteForOther(frame)) > 0) {
    written += static_cast<std::size_t>(result);
  }
  EXPECT_EQ(result, Connection::kNoRoom);
  EXPECT_TRUE(client.stream->IsOpen());
  EXPECT_FALSE(client.stream->AwaitRoom(platform::MonotonicNow()));
  std::atomic<bool> has_room{false};
  std::thread other([&] {
    has_room = client.stream->AwaitRoom(platform::MonotonicNow() +
                                        60'000 * platform::kTicksPerMillisecond);
  });
  EXPECT_EQ(client.end.Read(written).size(), written);
  other.join();
  EXPECT_TRUE(has_room);
  EXPECT_GT(client.WriteForOther(frame), 0);
}

TEST(ClientStreamWrite, WakesAnotherClientThatAwaitsRoomWhenItIsClosed) {
  const ServedClient client;
  while (client.WriteForOther(SharedOf(std::size_t{1} << 20)) > 0) {
  }
  std::atomic<bool> has_room{false};
  std::thread other([&] {
    has_room = client.stream->AwaitRoom(platform::MonotonicNow() +
                                        60'000 * platform::kTicksPerMillisecond);
  });
  client.stream->Close();
  other.join();
  EXPECT_TRUE(has_room);
  EXPECT_EQ(client.WriteForOther(SharedOf(1)), Connection::kGone);
}

// The next frame would come in the middle of the one whose rest could not be kept.
TEST(ClientStreamWrite, ClosesAClientForWhichThereIsNoMemory) {
  ServedClient client;
  const SharedFrame news = SharedOf(kLongAnswer);
  EXPECT_THROW(
      {
        const LimitedAllocations none(0);
        client.WriteShared(news);
      },
      std::bad_alloc);
  EXPECT_FALSE(client.stream->IsOpen());
  EXPECT_EQ(client.Write("next"), Connection::kGone);
  EXPECT_TRUE(client.end.ReachesEnd());
}

class ClientStreamClose : public ::testing::Test {
 protected:
  // Serves one request on a thread of its own, which closes the stream, and forgets it.
  static void AnswerAndClose(ServedClient& client, const std::string& answer) {
    std::thread([&] {
      EXPECT_EQ(client.ReadAll(23), FrameOf("one"));
      client.Write(answer);
      client.stream->Close();
    }).join();
    EXPECT_EQ(client.Write("late"), Connection::kGone);
    client.stream.reset();
  }
};

TEST_F(ClientStreamClose, ByTheReaderLeavesTimeForTheLastByte) {
  ServedClient client;
  const std::string answer(kLongAnswer, 'x');
  ASSERT_TRUE(client.end.Send(FrameOf("one")));
  AnswerAndClose(client, answer);
  EXPECT_EQ(client.end.Read(kLongAnswer + 1), answer);
  EXPECT_TRUE(client.end.ReachesEnd());
}

TEST_F(ClientStreamClose, LeavesThatTimeOverTcpToAClientThatSendsMore) {
  for (const std::string& where : LoopbackAddresses()) {
    SCOPED_TRACE(where);
    ServedClient client({}, MakeInternetPair(where));
    const std::string answer(kLongAnswer, 'x');
    ASSERT_TRUE(client.end.Send(FrameOf("one") + std::string(10'000, '!')));
    const std::weak_ptr<ClientStream> stream = client.stream;
    AnswerAndClose(client, answer);
    std::size_t count = 0;
    while (!stream.expired() && count < kLongAnswer) {
      count += client.end.Read(1 << 14).size();
      std::this_thread::sleep_for(std::chrono::microseconds(500));
    }
    EXPECT_LT(count, kLongAnswer) << "the kernel has the rest";
    EXPECT_EQ(count + client.end.Read(kLongAnswer).size(), kLongAnswer);
  }
}

TEST_F(ClientStreamClose, EndsForAClientThatDoesNotTakeTheLastByte) {
  ServedClient client(WithUnreadTime(milliseconds(100)));
  const std::weak_ptr<ClientStream> stream = client.stream;
  ASSERT_TRUE(client.end.Send(FrameOf("one")));
  AnswerAndClose(client, std::string(kLongAnswer, 'x'));
  EXPECT_TRUE(Eventually([&] { return stream.expired(); }));
  EXPECT_LT(client.end.Read(kLongAnswer).size(), kLongAnswer);
}

TEST_F(ClientStreamClose, ByAnotherThreadDropsWhatWaits) {
  ServedClient client;
  ASSERT_TRUE(client.end.Send(FrameOf("one")));
  std::thread([&] {
    EXPECT_EQ(client.ReadAll(23), FrameOf("one"));
    client.Write(std::string(kLongAnswer, 'x'));
  }).join();
  client.stream->Close();
  EXPECT_FALSE(client.stream->HasWaiting());
  EXPECT_LT(client.end.Read(kLongAnswer).size(), kLongAnswer);
}

TEST_F(ClientStreamClose, MayBeCalledAgain) {
  ServedClient client;
  client.stream->Close();
  client.stream->Close();
  client.stream->Abandon();
  EXPECT_TRUE(client.end.ReachesEnd());
}

}  // namespace
}  // namespace valmere::test
