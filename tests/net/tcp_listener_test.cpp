// Listener and connections together on real loopback sockets.
#include "net/tcp_listener.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>

#include "net/tcp_connection.h"
#include "tests/support/test_thread.h"

namespace valmere::test {
namespace {

std::unique_ptr<Connection> Connect(std::uint16_t port) {
  auto socket = platform::ConnectLoopback(port);
  return socket ? std::make_unique<TcpConnection>(std::move(socket), 0, 0) : nullptr;
}

struct Pair {
  std::unique_ptr<Connection> client;
  std::shared_ptr<Connection> server;
};

Pair Connected() {
  TcpListener listener(0, 10);
  EXPECT_EQ(0, listener.Open());
  Pair pair;
  pair.client = Connect(listener.bound_port());
  EXPECT_NE(nullptr, pair.client);
  pair.server = listener.Accept();
  EXPECT_NE(nullptr, pair.server);
  return pair;
}

std::string ReadAll(Connection& connection, int length) {
  std::string text(static_cast<std::size_t>(length), '\0');
  int have = 0;
  while (have < length) {
    const int count = connection.Read(text.data() + have, length - have);
    if (count <= 0) break;
    have += count;
  }
  text.resize(static_cast<std::size_t>(have));
  return text;
}

TEST(TcpListener, YieldsConnectionsThatCarryBytesBothWays) {
  Pair pair = Connected();
  EXPECT_EQ(7, pair.client->Write("request", 7));
  EXPECT_EQ("request", ReadAll(*pair.server, 7));
  EXPECT_EQ(5, pair.server->Write("reply", 5));
  EXPECT_EQ("reply", ReadAll(*pair.client, 5));
}

TEST(TcpListener, TellsItsConnectionsWhoThePeerIs) {
  const Pair pair = Connected();
  const auto& stream = dynamic_cast<const NetworkStream&>(*pair.server);
  EXPECT_NE(0U, stream.peer_address());
  EXPECT_NE(0U, stream.peer_port());
}

TEST(TcpListener, ServesSeveralPeersAtOnce) {
  TcpListener listener(0, 10);
  ASSERT_EQ(0, listener.Open());
  auto first = Connect(listener.bound_port());
  auto second = Connect(listener.bound_port());
  const std::shared_ptr<Connection> one = listener.Accept();
  const std::shared_ptr<Connection> two = listener.Accept();
  ASSERT_NE(nullptr, one);
  ASSERT_NE(nullptr, two);
  EXPECT_EQ(1, second->Write("2", 1));
  EXPECT_EQ(1, first->Write("1", 1));
  EXPECT_EQ("1", ReadAll(*one, 1));
  EXPECT_EQ("2", ReadAll(*two, 1));
}

TEST(TcpListener, LargeWritesArriveWhole) {
  Pair pair = Connected();
  constexpr int kLength = 8 * 1024 * 1024;  // twice the largest send buffer
  const std::string sent(kLength, 'v');
  int count = 0;
  TestThread writer([&] { count = pair.server->Write(sent.data(), kLength); });
  const std::string got = ReadAll(*pair.client, kLength);
  writer.Join();
  EXPECT_EQ(kLength, count);
  EXPECT_TRUE(sent == got);
}

TEST(TcpListener, AnOrderlyCloseOfThePeerMakesReadReturnMinusTwo) {
  Pair pair = Connected();
  pair.client->Close();
  char byte = 0;
  EXPECT_EQ(-2, pair.server->Read(&byte, 1));
  EXPECT_FALSE(pair.server->IsOpen());
}

TEST(TcpListener, AResetByThePeerMakesReadReturnMinusTwo) {
  Pair pair = Connected();
  ASSERT_EQ(2, pair.server->Write("ab", 2));
  EXPECT_EQ("a", ReadAll(*pair.client, 1));
  pair.client.reset();  // with a byte unread, which makes it a reset
  char byte = 0;
  EXPECT_EQ(-2, pair.server->Read(&byte, 1));
}

TEST(TcpListener, WritingToABrokenPeerReturnsMinusTwoAndRaisesNoSignal) {
  Pair pair = Connected();
  ASSERT_EQ(2, pair.server->Write("ab", 2));
  EXPECT_EQ("a", ReadAll(*pair.client, 1));
  pair.client.reset();
  EXPECT_EQ(-2, pair.server->Write("x", 1));
  EXPECT_EQ(-2, pair.server->Write("x", 1));
}

TEST(TcpListener, ClosingAConnectionEndsABlockedRead) {
  Pair pair = Connected();
  platform::Semaphore reading;
  int result = 0;
  TestThread reader([&] {
    ReadAll(*pair.server, 1);
    reading.Release();
    char byte = 0;
    result = pair.server->Read(&byte, 1);
  });
  ASSERT_EQ(1, pair.client->Write("x", 1));
  reading.Wait();
  pair.server->Close();
  reader.Join();
  EXPECT_EQ(-2, result);
}

TEST(TcpListener, ReleasingAConnectionEndsItForThePeer) {
  Pair pair = Connected();
  pair.server.reset();
  char byte = 0;
  EXPECT_EQ(-2, pair.client->Read(&byte, 1));
}

TEST(TcpListener, ConnectionsOutliveTheirListener) {
  Pair pair;
  {
    TcpListener listener(0, 10);
    ASSERT_EQ(0, listener.Open());
    pair.client = Connect(listener.bound_port());
    pair.server = listener.Accept();
    listener.Close();
  }
  EXPECT_EQ(1, pair.client->Write("x", 1));
  EXPECT_EQ("x", ReadAll(*pair.server, 1));
}

TEST(TcpListener, DoesNotOpenOnAPortThatIsTaken) {
  TcpListener first(0, 10);
  ASSERT_EQ(0, first.Open());
  TcpListener second(first.bound_port(), 10);
  EXPECT_EQ(-1, second.Open());
  EXPECT_EQ(0, second.bound_port());
  EXPECT_EQ(nullptr, second.Accept());
}

TEST(TcpListener, DoesNotOpenTwiceAtOnce) {
  TcpListener listener(0, 10);
  ASSERT_EQ(0, listener.Open());
  const std::uint16_t port = listener.bound_port();
  EXPECT_EQ(-1, listener.Open());
  EXPECT_EQ(port, listener.bound_port());
}

TEST(TcpListener, YieldsNothingBeforeItIsOpenedAndAfterItIsClosed) {
  TcpListener listener(0, 10);
  EXPECT_EQ(nullptr, listener.Accept());
  ASSERT_EQ(0, listener.Open());
  listener.Close();
  EXPECT_EQ(nullptr, listener.Accept());
}

TEST(TcpListener, CloseEndsABlockedAccept) {
  TcpListener listener(0, 10);
  ASSERT_EQ(0, listener.Open());
  platform::Semaphore accepting;
  bool empty = false;
  TestThread accepter([&] {
    listener.Accept();
    accepting.Release();
    empty = listener.Accept() == nullptr;
  });
  auto client = Connect(listener.bound_port());
  accepting.Wait();
  listener.Close();
  accepter.Join();
  EXPECT_TRUE(empty);
}

TEST(TcpListener, ClosesAnyNumberOfTimesAndFreesItsPort) {
  TcpListener listener(0, 10);
  listener.Close();
  ASSERT_EQ(0, listener.Open());
  const std::uint16_t port = listener.bound_port();
  listener.Close();
  TcpListener next(port, 10);
  EXPECT_EQ(0, next.Open());
  listener.Close();
  ASSERT_NE(nullptr, Connect(port));
  EXPECT_NE(nullptr, next.Accept());
}

TEST(TcpListener, OpensAgainAfterAClose) {
  TcpListener listener(0, 10);
  ASSERT_EQ(0, listener.Open());
  listener.Close();
  ASSERT_EQ(0, listener.Open());
  auto client = Connect(listener.bound_port());
  EXPECT_NE(nullptr, listener.Accept());
}

TEST(TcpListener, FreesItsPortWhenItDies) {
  std::uint16_t port = 0;
  {
    TcpListener listener(0, 10);
    ASSERT_EQ(0, listener.Open());
    port = listener.bound_port();
  }
  EXPECT_EQ(nullptr, Connect(port));
  TcpListener next(port, 10);
  EXPECT_EQ(0, next.Open());
}

}  // namespace
}  // namespace valmere::test
