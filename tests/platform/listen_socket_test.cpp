#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <memory>

#include "platform/kernel.h"
#include "platform/sockets.h"
#include "tests/platform/socket_pair.h"
#include "tests/support/test_thread.h"

namespace valmere::test {
using namespace platform;
namespace {

using ::valmere::test::TestThread;

TEST(ListenSocket, NamesThePortThatTheSystemChose) {
  auto listener = MakeListenSocket();
  EXPECT_EQ(0, listener->BoundPort());
  ASSERT_EQ(0, listener->Listen(0, 10));
  EXPECT_NE(0, listener->BoundPort());
}

TEST(ListenSocket, TellsThePeersAddressInNetworkByteOrder) {
  auto listener = Listening();
  auto client = ConnectLoopback(listener->BoundPort());
  const Accepted accepted = listener->Accept();
  ASSERT_NE(nullptr, accepted.socket);
  std::array<unsigned char, 4> address{};
  std::memcpy(address.data(), &accepted.address, address.size());
  EXPECT_EQ((std::array<unsigned char, 4>{127, 0, 0, 1}), address);
  EXPECT_NE(0U, accepted.port);
  EXPECT_LE(accepted.port, 0xffffU);
}

TEST(ListenSocket, RefusesAPortThatAnotherListensOn) {
  auto first = Listening();
  auto second = MakeListenSocket();
  EXPECT_EQ(-1, second->Listen(first->BoundPort(), 10));
  EXPECT_EQ(0, second->BoundPort());
}

TEST(ListenSocket, ListensAfterARefusalOnceThePortIsFree) {
  auto first = Listening();
  const std::uint16_t port = first->BoundPort();
  auto second = MakeListenSocket();
  ASSERT_EQ(-1, second->Listen(port, 10));
  first.reset();
  EXPECT_EQ(0, second->Listen(port, 10));
  EXPECT_EQ(port, second->BoundPort());
}

TEST(ListenSocket, KeepsItsPortWhenAskedToListenAgain) {
  auto listener = Listening();
  const std::uint16_t port = listener->BoundPort();
  EXPECT_EQ(-1, listener->Listen(0, 10));
  EXPECT_EQ(port, listener->BoundPort());
  EXPECT_NE(nullptr, ConnectLoopback(port));
}

TEST(ListenSocket, GetsItsPortBackWhileAnOldConnectionLingers) {
  auto listener = Listening();
  const std::uint16_t port = listener->BoundPort();
  Pair pair = Connected(*listener);
  // The address of the side that closes first is the one that lingers.
  pair.server.reset();
  char byte = 0;
  EXPECT_EQ(0, pair.client->Receive(&byte, 1).count);
  pair.client.reset();
  listener.reset();
  EXPECT_EQ(0, MakeListenSocket()->Listen(port, 10));
}

TEST(ListenSocket, AcceptsNothingOnceClosed) {
  auto listener = Listening();
  auto waiting = ConnectLoopback(listener->BoundPort());
  listener->Close();
  EXPECT_EQ(nullptr, listener->Accept().socket);
  EXPECT_EQ(nullptr, listener->Accept().socket);
  const std::uint16_t port = listener->BoundPort();
  listener.reset();
  EXPECT_EQ(nullptr, ConnectLoopback(port));
}

TEST(ListenSocket, AcceptsNothingBeforeItListens) {
  EXPECT_EQ(nullptr, MakeListenSocket()->Accept().socket);
}

TEST(ListenSocket, CloseEndsABlockedAccept) {
  auto listener = Listening();
  Semaphore accepting;
  bool empty = false;
  TestThread accepter([&] {
    // The first accept shows that the thread runs; it then blocks in the second.
    listener->Accept();
    accepting.Release();
    empty = listener->Accept().socket == nullptr;
  });
  auto client = ConnectLoopback(listener->BoundPort());
  accepting.Wait();
  Pause(20);
  listener->Close();
  accepter.Join();
  EXPECT_TRUE(empty);
}

TEST(ListenSocket, ClosingAgainLeavesALaterSocketAlone) {
  auto first = Listening();
  first->Close();
  auto second = Listening();
  first->Close();
  first.reset();
  Pair pair = Connected(*second);
  EXPECT_EQ(1, pair.client->Send("x", 1).count);
}

TEST(ConnectLoopback, GivesNothingWhereNothingListens) {
  const std::uint16_t port = Listening()->BoundPort();
  EXPECT_EQ(nullptr, ConnectLoopback(port));
}

TEST(SocketLibrary, StartsAndIsCleanedUp) {
  ASSERT_EQ(kSocketLibrary, StartSockets());
  CleanUpSockets();
}

}  // namespace
}  // namespace valmere::test
