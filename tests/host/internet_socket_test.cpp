// Addresses of the internet that valmered listens on, and what it says of both ends of a socket.
#include "host/socket/internet_socket.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <stdexcept>
#include <string>

#include "host/socket/peer.h"
#include "platform/posix/descriptor.h"
#include "tests/host/client_end.h"
#include "tests/host/internet_client.h"

namespace valmere::test {
using namespace host;
namespace {

using ::testing::StartsWith;

std::string RefusalOf(const std::string& where) {
  try {
    ListenOnInternet(where);
  } catch (const std::runtime_error& error) {
    return error.what();
  }
  return "no refusal";
}

TEST(InternetSocket, RefusesWhatIsNoAddressAndPort) {
  for (const std::string where :
       {"nonsense", "1.2.3.4", "127.0.0.1:99999", "127.0.0.1:65536", "127.0.0.1:", "127.0.0.1:-1",
        "127.0.0.1:+1", "127.0.0.1: 1", "127.0.0.1:1x", "localhost:1", "[::1:1", "::1", ":", ""}) {
    EXPECT_EQ(RefusalOf(where), where + ": can't listen there: it is no ADDRESS:PORT in numbers");
  }
}

TEST(InternetSocket, RefusesAPortInUse) {
  const platform::Descriptor taken = ListenOnInternet("127.0.0.1:0");
  const std::string where = InternetAddressOf(taken.get());
  EXPECT_EQ(RefusalOf(where), where + ": can't listen there: Address already in use");
}

TEST(InternetSocket, RefusesAnAddressThatIsNotOfThisMachine) {
  EXPECT_THAT(RefusalOf("192.0.2.1:0"), StartsWith("192.0.2.1:0: can't listen there: "));
}

TEST(InternetSocket, ListensOnTheLoopbackWhereNoAddressIsNamed) {
  for (const char* const where : {"0", ":0", "[]:0", "127.0.0.1:0"}) {
    const platform::Descriptor socket = ListenOnInternet(where);
    EXPECT_THAT(InternetAddressOf(socket.get()), StartsWith("127.0.0.1:")) << where;
    EXPECT_TRUE(IsLoopback(socket.get())) << where;
  }
}

TEST(InternetSocket, ListensOnAddressesOfTheSixthVersion) {
  if (!HasIpv6()) {
    GTEST_SKIP() << "no IPv6 here";
  }
  for (const char* const where : {"[::1]:0", "::1:0"}) {
    const platform::Descriptor socket = ListenOnInternet(where);
    EXPECT_THAT(InternetAddressOf(socket.get()), StartsWith("[::1]:")) << where;
    EXPECT_TRUE(IsLoopback(socket.get())) << where;
  }
  const platform::Descriptor any = ListenOnInternet("[::]:0");
  EXPECT_FALSE(IsLoopback(any.get()));
}

TEST(InternetSocket, KnowsThatOtherMachinesReachAnyOtherAddress) {
  const platform::Descriptor any = ListenOnInternet("0.0.0.0:0");
  EXPECT_FALSE(IsLoopback(any.get()));
  EXPECT_FALSE(IsLoopback(-1));
  const platform::Descriptor all_of_127 = ListenOnInternet("127.3.2.1:0");
  EXPECT_TRUE(IsLoopback(all_of_127.get()));
}

TEST(InternetSocket, DoesNotBlockWhereNoClientWaits) {
  const platform::Descriptor socket = ListenOnInternet("0");
  EXPECT_EQ(accept(socket.get(), nullptr, nullptr), -1);
  EXPECT_EQ(errno, EAGAIN);
}

TEST(Peer, IsTheProcessAtALocalSocket) {
  const SocketPair pair = MakeSocketPair();
  const Peer peer = PeerOf(pair.service.get());
  EXPECT_EQ(peer.process, getpid());
  EXPECT_EQ(peer.text, "pid " + std::to_string(getpid()) + ", uid " + std::to_string(getuid()));
  EXPECT_EQ(InternetAddressOf(pair.service.get()), "");
  EXPECT_EQ(InternetAddressOfPeer(pair.service.get()), "");
}

TEST(Peer, IsAnAddressAtASocketOfTheInternet) {
  for (const std::string& where : LoopbackAddresses()) {
    SCOPED_TRACE(where);
    const SocketPair pair = MakeInternetPair(where);
    ASSERT_TRUE(pair.service.valid());
    const Peer peer = PeerOf(pair.service.get());
    EXPECT_EQ(peer.process, 0);
    EXPECT_EQ(peer.text, InternetAddressOf(pair.client.get()));
    EXPECT_NE(peer.text, "");
    EXPECT_EQ(InternetAddressOfPeer(pair.client.get()), InternetAddressOf(pair.service.get()));
  }
}

TEST(Peer, IsUnknownWhereTheSocketDoesNotTell) {
  EXPECT_EQ(PeerOf(-1).process, 0);
  EXPECT_EQ(PeerOf(-1).text, "unknown peer");
}

}  // namespace
}  // namespace valmere::test
