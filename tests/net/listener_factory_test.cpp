#include "net/listener_factory.h"

#include <gtest/gtest.h>

#include "net/null_listener.h"
#include "net/tcp_listener.h"
#include "platform/sockets.h"

namespace valmere::test {
namespace {

TEST(ListenerFactory, TakesPort65534ForNoListener) {
  EXPECT_EQ(65534, kNoListenerPort);
  EXPECT_NE(nullptr, std::dynamic_pointer_cast<NullListener>(MakeListener(65534, 10)));
}

TEST(ListenerFactory, OpensNoSocketForPort65534) {
  const auto listener = MakeListener(kNoListenerPort, 10);
  ASSERT_EQ(0, listener->Open());
  EXPECT_EQ(nullptr, platform::ConnectLoopback(kNoListenerPort));
  listener->Close();
  EXPECT_EQ(nullptr, listener->Accept());
}

TEST(ListenerFactory, MakesATcpListenerForEveryOtherPort) {
  for (const std::uint16_t port :
       {std::uint16_t{0}, std::uint16_t{1}, std::uint16_t{65533}, std::uint16_t{65535}})
    EXPECT_NE(nullptr, std::dynamic_pointer_cast<TcpListener>(MakeListener(port, 10))) << port;
}

TEST(ListenerFactory, PassesThePortOn) {
  TcpListener chosen(0, 10);
  ASSERT_EQ(0, chosen.Open());
  const std::uint16_t port = chosen.bound_port();
  chosen.Close();
  const auto listener = MakeListener(port, 10);
  EXPECT_EQ(nullptr, platform::ConnectLoopback(port));
  ASSERT_EQ(0, listener->Open());
  EXPECT_NE(nullptr, platform::ConnectLoopback(port));
}

}  // namespace
}  // namespace valmere::test
