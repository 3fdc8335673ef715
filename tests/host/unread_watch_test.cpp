// What clients have left unread gets out when they read, and they are closed when they don't.
#include "host/socket/unread_watch.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tests/host/client_end.h"
#include "tests/support/frames.h"
#include "tests/support/test_thread.h"

namespace valmere::test {
using namespace host;
namespace {

using std::chrono::milliseconds;
using ::testing::HasSubstr;
using ::testing::internal::CaptureStderr;
using ::testing::internal::GetCapturedStderr;

TEST(UnreadWatch, GetsOutWhatWaitsAsTheClientReads) {
  ServedClient client;
  const SharedFrame news = SharedOf(kLongAnswer);
  EXPECT_EQ(client.WriteShared(news), static_cast<int>(kLongAnswer));
  EXPECT_EQ(client.Write("<more>"), 6);
  EXPECT_EQ(client.end.Read(kLongAnswer), *news);
  EXPECT_EQ(client.end.Read(6), "<more>");
  EXPECT_TRUE(Eventually([&] { return !client.stream->HasWaiting(); }));
  EXPECT_TRUE(client.stream->IsOpen());
}

TEST(UnreadWatch, HoldsAStreamOnlyWhileSomethingWaits) {
  ServedClient client;
  const std::weak_ptr<ClientStream> stream = client.stream;
  client.WriteShared(SharedOf(kLongAnswer));
  client.stream.reset();
  EXPECT_FALSE(stream.expired());
  EXPECT_EQ(client.end.Read(kLongAnswer).size(), kLongAnswer);
  EXPECT_TRUE(Eventually([&] { return stream.expired(); }));
}

TEST(UnreadWatch, ServesManyClientsAtOnce) {
  constexpr int kClients = 30;
  ServedClients all;
  std::vector<ClientEnd> ends;
  std::vector<std::shared_ptr<ClientStream>> streams;
  const SharedFrame news = SharedOf(std::size_t{1} << 20);
  for (int i = 0; i < kClients; ++i) {
    SocketPair pair = MakeSocketPair();
    ends.emplace_back(std::move(pair.client));
    streams.push_back(all.Serve(std::move(pair.service)));
    EventFlags::PendingWake wake;
    streams.back()->WriteShared(news, wake);
  }
  for (ClientEnd& end : ends) {
    EXPECT_EQ(end.Read(news->size()).size(), news->size());
  }
  EXPECT_TRUE(Eventually([&] { return news.use_count() == 1; }));
}

TEST(UnreadWatch, SeesEachTimeThatSomethingBeginsToWait) {
  const ServedClient client;
  ClientEnd end(platform::Descriptor(dup(client.end.descriptor())));
  std::thread writing([&] {
    for (int i = 0; i < 100; ++i) {
      client.Write(std::string(300'000, 'x'));
      while (client.stream->HasWaiting()) {
        std::this_thread::yield();
      }
    }
  });
  EXPECT_EQ(end.Read(std::size_t{100} * 300'000).size(), std::size_t{100} * 300'000);
  writing.join();
}

TEST(UnreadWatch, ClosesAClientThatLeavesNewsUnreadForTooLong) {
  ServedClient client(WithUnreadTime(milliseconds(100)));
  CaptureStderr();
  const SharedFrame news = SharedOf(kLongAnswer);
  client.WriteShared(news);
  EXPECT_TRUE(Eventually([&] { return !client.stream->IsOpen(); }));
  EXPECT_TRUE(Eventually([&] { return news.use_count() == 1; }));
  EXPECT_THAT(GetCapturedStderr(), HasSubstr("closed: it left bytes unread for 0.1 s"));
  EXPECT_TRUE(client.end.ReachesEnd());
}

TEST(UnreadWatch, DropsWhatWaitsForAClientThatHasGone) {
  ServedClient client;
  const SharedFrame news = SharedOf(kLongAnswer);
  client.WriteShared(news);
  client.end.Close();
  EXPECT_TRUE(Eventually([&] { return news.use_count() == 1; }));
  EXPECT_FALSE(client.stream->IsOpen());
}

TEST(UnreadWatch, EndsWhileSomethingWaits) {
  const SharedFrame news = SharedOf(kLongAnswer);
  {
    const ServedClient client;
    client.WriteShared(news);
    EXPECT_EQ(news.use_count(), 2);
  }
  EXPECT_EQ(news.use_count(), 1);
}

TEST(UnreadWatch, CountsTimeOnlyWhileSomethingWaits) {
  ServedClient client(WithUnreadTime(milliseconds(40)));
  poll(nullptr, 0, 30);
  EXPECT_EQ(client.all.watch().time(), milliseconds(0));
  client.WriteShared(SharedOf(kLongAnswer));
  EXPECT_TRUE(Eventually([&] { return client.all.watch().time() > milliseconds(0); }));
}

// In a process of its own: 0 when a client that has left news unread, and is in the middle of a
// frame, is still served after a stop that took longer than either may.
int ServeThroughAStop(SocketPair pair) {
  Limits limits = WithUnreadTime(milliseconds(2000));
  limits.frame = milliseconds(2000);
  // The other end is the parent's alone.
  ServedClients all(limits);
  pair.client = {};
  const auto stream = all.Serve(std::move(pair.service));
  EventFlags::PendingWake wake;
  stream->WriteShared(SharedOf(kLongAnswer), wake);
  std::string frame(24, '\0');
  int count = 0;
  while (count < 24) {
    const int got = stream->Read(frame.data() + count, 24 - count);
    if (got < 1) return 1;
    count += got;
  }
  if (frame != FrameOf("text")) return 2;
  while (stream->IsOpen() && stream->HasWaiting()) {
    std::this_thread::yield();
  }
  return stream->IsOpen() ? 0 : 3;
}

TEST(UnreadWatch, HoldsAStopOfTheProcessAgainstNoClient) {
  SocketPair pair = MakeSocketPair();
  const pid_t child = fork();
  if (child == 0) {
    _exit(ServeThroughAStop(std::move(pair)));
  }
  pair.service = {};
  ClientEnd client(std::move(pair.client));
  ASSERT_TRUE(client.Send(FrameOf("text").substr(0, 22)));
  EXPECT_EQ(client.Read(1), "x");
  int status = 0;
  kill(child, SIGSTOP);
  EXPECT_EQ(waitpid(child, &status, WUNTRACED), child);
  EXPECT_TRUE(WIFSTOPPED(status));
  std::this_thread::sleep_for(milliseconds(2500));
  kill(child, SIGCONT);
  EXPECT_TRUE(client.Send(FrameOf("text").substr(22)));
  EXPECT_EQ(client.Read(kLongAnswer - 1).size(), kLongAnswer - 1);
  EXPECT_EQ(waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 0);
}

}  // namespace
}  // namespace valmere::test
