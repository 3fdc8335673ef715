// Frames over a real socket, cut and faulty ones too.
#include "client/socket_transport.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "client/socket_path.h"
#include "tests/client/deadlines.h"
#include "tests/client/fake_service.h"

namespace valmere::test {
using namespace client;
namespace {

using test::FakeConnection;
using test::FakeService;
using test::FrameOf;

std::unique_ptr<Transport> ConnectTo(const FakeService& service) {
  auto transport = ConnectSocket(service.path(), Soon());
  return transport ? std::move(*transport) : nullptr;
}

std::string ReceiveText(Transport& transport) {
  std::string text;
  const auto result = transport.Receive(text, Soon());
  return result ? text : "failed: " + result.error().text;
}

ErrorKind ReceiveError(Transport& transport, Deadline deadline) {
  std::string text;
  const auto result = transport.Receive(text, deadline);
  EXPECT_FALSE(result.ok());
  return result.error().kind;
}

TEST(SocketTransport, SaysThatNobodyServesThere) {
  const auto transport = ConnectSocket("/nonexistent/PRN1", Soon());
  ASSERT_FALSE(transport);
  EXPECT_EQ(transport.error().kind, ErrorKind::kCannotConnect);
  EXPECT_EQ(transport.error().text,
            "cannot connect to /nonexistent/PRN1: No such file or directory");
}

TEST(SocketTransport, RefusesAPathThatIsTooLong) {
  const auto transport = ConnectSocket(std::string(200, 'x'), Soon());
  ASSERT_FALSE(transport);
  EXPECT_EQ(transport.error().kind, ErrorKind::kCannotConnect);
}

TEST(SocketTransport, CarriesFramesBothWays) {
  FakeService service([](const FakeConnection& connection) {
    connection.Send(connection.Receive() + "!");
    connection.WaitForEnd();
  });
  const auto transport = ConnectTo(service);
  ASSERT_TRUE(transport->Send(FrameOf("hello"), Soon()));
  EXPECT_EQ(ReceiveText(*transport), "hello!");
}

TEST(SocketTransport, PutsTogetherFramesThatComeByteByByte) {
  FakeService service([](const FakeConnection& connection) {
    for (const char byte : FrameOf("one") + FrameOf("") + FrameOf("three")) {
      connection.SendBytes(std::string(1, byte));
    }
  });
  const auto transport = ConnectTo(service);
  EXPECT_EQ(ReceiveText(*transport), "one");
  EXPECT_EQ(ReceiveText(*transport), "");
  EXPECT_EQ(ReceiveText(*transport), "three");
}

TEST(SocketTransport, CarriesFramesThatAreLongerThanTheSocketTakesAtOnce) {
  const std::string text(4 << 20, 'z');
  FakeService service([](const FakeConnection& connection) {
    connection.Send(connection.Receive());
    connection.WaitForEnd();
  });
  const auto transport = ConnectTo(service);
  ASSERT_TRUE(transport->Send(FrameOf(text), Soon()));
  EXPECT_TRUE(ReceiveText(*transport) == text);
}

TEST(SocketTransport, ReportsALostConnectionAtOnceAndEverAfter) {
  FakeService service([](const FakeConnection& connection) { connection.Receive(); });
  const auto transport = ConnectTo(service);
  ASSERT_TRUE(transport->Send(FrameOf("bye"), Soon()));
  EXPECT_EQ(ReceiveError(*transport, Deadline::Never()), ErrorKind::kConnectionLost);
  EXPECT_EQ(ReceiveError(*transport, Deadline::Never()), ErrorKind::kConnectionLost);
  const auto sent = transport->Send(FrameOf("hello?"), Soon());
  ASSERT_FALSE(sent);
  EXPECT_EQ(sent.error().kind, ErrorKind::kConnectionLost);
}

TEST(SocketTransport, ReportsAConnectionThatEndsInsideAFrame) {
  FakeService service([](const FakeConnection& connection) {
    connection.SendBytes(FrameOf("never complete").substr(0, 25));
  });
  const auto transport = ConnectTo(service);
  EXPECT_EQ(ReceiveError(*transport, Soon()), ErrorKind::kConnectionLost);
}

TEST(SocketTransport, GivesUpAtTheDeadlineAndKeepsWhatHasCome) {
  FakeService service([&](const FakeConnection& connection) {
    const std::string frame = FrameOf("late");
    connection.SendBytes(frame.substr(0, 22));
    connection.Receive();
    connection.SendBytes(frame.substr(22));
    connection.WaitForEnd();
  });
  const auto transport = ConnectTo(service);
  EXPECT_EQ(ReceiveError(*transport, Past()), ErrorKind::kTimeout);
  ASSERT_TRUE(transport->Send(FrameOf("go on"), Soon()));
  EXPECT_EQ(ReceiveText(*transport), "late");
}

TEST(SocketTransport, GivesUpSendingToAServiceThatDoesNotRead) {
  std::atomic<bool> done{false};
  FakeService service([&](const FakeConnection&) { done.wait(false); });
  const auto transport = ConnectTo(service);
  const auto sent = transport->Send(FrameOf(std::string(8 << 20, 'x')), Past());
  done = true;
  done.notify_all();
  ASSERT_FALSE(sent);
  EXPECT_EQ(sent.error().kind, ErrorKind::kTimeout);
  EXPECT_EQ(ReceiveError(*transport, Past()), ErrorKind::kConnectionLost);
}

TEST(SocketTransport, IsInterruptedWhileItWaits) {
  Transport* target = nullptr;
  FakeService service([&](const FakeConnection& connection) {
    connection.Receive();
    target->Interrupt();
    connection.WaitForEnd();
  });
  const auto transport = ConnectTo(service);
  target = transport.get();
  ASSERT_TRUE(transport->Send(FrameOf("interrupt me"), Soon()));
  EXPECT_EQ(ReceiveError(*transport, Deadline::Never()), ErrorKind::kInterrupted);
}

TEST(SocketTransport, IsInterruptedWhileTheServiceDoesNotRead) {
  std::atomic<bool> done{false};
  FakeService service([&](const FakeConnection&) { done.wait(false); });
  const auto transport = ConnectTo(service);
  transport->Interrupt();
  const auto sent = transport->Send(FrameOf(std::string(8 << 20, 'x')), Soon());
  done = true;
  done.notify_all();
  ASSERT_FALSE(sent);
  EXPECT_EQ(sent.error().kind, ErrorKind::kInterrupted);
  EXPECT_EQ(ReceiveError(*transport, Past()), ErrorKind::kConnectionLost);
}

TEST(SocketTransport, IsInterruptedByWhatCameBeforeTheWaitOnce) {
  FakeService service([&](const FakeConnection& connection) {
    connection.Send(connection.Receive());
    connection.WaitForEnd();
  });
  const auto transport = ConnectTo(service);
  transport->Interrupt();
  transport->Interrupt();
  EXPECT_EQ(ReceiveError(*transport, Soon()), ErrorKind::kInterrupted);
  ASSERT_TRUE(transport->Send(FrameOf("on we go"), Soon()));
  EXPECT_EQ(ReceiveText(*transport), "on we go");
}

TEST(SocketTransport, IsClosedByAnyThreadWhileOthersWait) {
  std::atomic<bool> done{false};
  FakeService service([&](const FakeConnection& connection) {
    connection.Send("go on");
    done.wait(false);
  });
  const auto transport = ConnectTo(service);
  EXPECT_EQ(ReceiveText(*transport), "go on");
  std::thread sender([&] {
    const auto sent = transport->Send(FrameOf(std::string(8 << 20, 'x')), Deadline::Never());
    EXPECT_EQ(sent.error().kind, ErrorKind::kConnectionLost);
  });
  std::thread closer([&] { transport->Close(); });
  EXPECT_EQ(ReceiveError(*transport, Deadline::Never()), ErrorKind::kConnectionLost);
  sender.join();
  closer.join();
  done = true;
  done.notify_all();
}

TEST(SocketTransport, RefusesBytesThatAreNoFrame) {
  FakeService service([](const FakeConnection& connection) { connection.SendBytes("HTTP/1.1"); });
  const auto transport = ConnectTo(service);
  EXPECT_EQ(ReceiveError(*transport, Soon()), ErrorKind::kProtocol);
}

TEST(SocketTransport, RefusesALengthThatIsNonsenseWithoutTakingMemory) {
  FakeService service([](const FakeConnection& connection) {
    connection.SendBytes(FrameOf("").substr(0, 16) + "\xff\xff\xff\xff");
    connection.WaitForEnd();
  });
  const auto transport = ConnectTo(service);
  EXPECT_EQ(ReceiveError(*transport, Soon()), ErrorKind::kProtocol);
}

TEST(DefaultSocketPath, FollowsTheEnvironment) {
  setenv("XDG_RUNTIME_DIR", "/run/user/1", 1);
  setenv("VALMERE_SOCKET", "/tmp/here", 1);
  EXPECT_EQ(DefaultSocketPath(), "/tmp/here");
  setenv("VALMERE_SOCKET", "", 1);
  EXPECT_EQ(DefaultSocketPath(), "/run/user/1/valmere/PRN1");
  unsetenv("VALMERE_SOCKET");
  unsetenv("XDG_RUNTIME_DIR");
  EXPECT_EQ(DefaultSocketPath(), "/run/valmere/PRN1");
}

}  // namespace
}  // namespace valmere::test
