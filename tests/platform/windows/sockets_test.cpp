// What this system's sockets do where its calls don't do what they are for. The linker leads the
// calls of this program here first (see CMakeLists.txt).
#include "platform/sockets.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <memory>
#include <vector>

#include "platform/kernel.h"
#include "platform/windows/windows_api.h"
#include "tests/support/test_thread.h"

namespace {

std::atomic<bool> g_no_connections{false};
std::atomic<int> g_longest_send{0};

}  // namespace

// NOLINTBEGIN(bugprone-reserved-identifier): the linker's names
extern "C" {

using ConnectCall = int(WSAAPI*)(SOCKET, const sockaddr*, int);
using SendCall = int(WSAAPI*)(SOCKET, const char*, int, int);
extern ConnectCall __real___imp_connect;
extern SendCall __real___imp_send;

static int WSAAPI WatchedConnect(SOCKET socket, const sockaddr* address, int size) {
  if (!g_no_connections) return __real___imp_connect(socket, address, size);
  WSASetLastError(WSAENOBUFS);
  return SOCKET_ERROR;
}

static int WSAAPI WatchedSend(SOCKET socket, const char* bytes, int length, int flags) {
  g_longest_send = std::max(g_longest_send.load(), length);
  return __real___imp_send(socket, bytes, length, flags);
}

ConnectCall __wrap___imp_connect = WatchedConnect;
SendCall __wrap___imp_send = WatchedSend;

}  // extern "C"
// NOLINTEND(bugprone-reserved-identifier)

namespace valmere::test {
using namespace platform;
namespace {

using ::valmere::test::TestThread;

// While it lives, nothing can be connected to.
class NoConnections {
 public:
  NoConnections() { g_no_connections = true; }
  ~NoConnections() { g_no_connections = false; }
  NoConnections(const NoConnections&) = delete;
  NoConnections& operator=(const NoConnections&) = delete;
};

std::unique_ptr<ListenSocket> ListeningOnAnyPort() {
  auto listener = MakeListenSocket();
  EXPECT_EQ(0, listener->Listen(0, 10));
  return listener;
}

TEST(ListenSocket, CloseEndsABlockedAcceptThatItCantConnectTo) {
  auto listener = ListeningOnAnyPort();
  Semaphore accepting;
  bool empty = false;
  TestThread accepter([&] {
    listener->Accept();
    accepting.Release();
    empty = listener->Accept().socket == nullptr;
  });
  auto client = ConnectLoopback(listener->BoundPort());
  accepting.Wait();
  {
    // Lets the accept begin; if it has not, it is to find the listener closed.
    Semaphore never;
    never.WaitUntil(MonotonicNow() + 20 * kTicksPerMillisecond);
    const NoConnections none;
    listener->Close();
  }
  accepter.Join();
  EXPECT_TRUE(empty);
}

TEST(ListenSocket, GivesItsHandleBackOnceHoweverItWasClosed) {
  auto listener = ListeningOnAnyPort();
  {
    const NoConnections none;
    listener->Close();
  }
  // These may well get the number that has become free.
  auto second = ListeningOnAnyPort();
  auto third = ListeningOnAnyPort();
  listener->Close();
  listener.reset();
  for (const auto* other : {&second, &third}) {
    const auto client = ConnectLoopback((*other)->BoundPort());
    ASSERT_NE(nullptr, client);
    EXPECT_NE(nullptr, (*other)->Accept().socket);
  }
}

// The system frees the room of a send only when the peer has taken all of it.
TEST(StreamSocket, HandsItsBytesOverInPiecesByWhichThePeerIsSeenToMove) {
  auto listener = ListeningOnAnyPort();
  const auto client = ConnectLoopback(listener->BoundPort());
  const auto server = listener->Accept().socket;
  g_longest_send = 0;
  const std::vector<char> bytes(100'000, 'x');
  TestThread receiver([&] {
    std::vector<char> got(bytes.size());
    int have = 0;
    while (have < static_cast<int>(got.size())) {
      const Transfer part = client->Receive(got.data(), static_cast<int>(got.size()) - have);
      if (part.count <= 0) break;
      have += part.count;
    }
  });
  EXPECT_EQ(static_cast<int>(bytes.size()),
            server->Send(bytes.data(), static_cast<int>(bytes.size())).count);
  EXPECT_GT(g_longest_send, 0);
  EXPECT_LE(g_longest_send, 4096);
}

}  // namespace
}  // namespace valmere::test
