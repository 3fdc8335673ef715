// valmered's clients over TCP.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "tests/host/valmered_fixture.h"

namespace valmere::test {
namespace {

using ::testing::MatchesRegex;
using ::testing::StartsWith;

class ValmeredTcpTest : public ValmeredTest {
 protected:
  // Listens on that address as well, on a port that the system chooses.
  void StartOn(const std::string& address, const std::vector<std::string>& options = {}) {
    std::vector<std::string> all{"--listen-tcp", address};
    all.insert(all.end(), options.begin(), options.end());
    valmered_ = std::make_unique<Subprocess>(Command(all));
    const std::string line = valmered_->ReadLine();
    ASSERT_THAT(line, StartsWith("valmered: listens on "));
    listens_on_ = line.substr(line.rfind(' ') + 1);
    port_ = static_cast<std::uint16_t>(std::stoul(listens_on_.substr(listens_on_.rfind(':') + 1)));
    ASSERT_EQ(valmered_->ReadLine(), "valmered: ready on " + socket_);
  }
  // Expects that it does not start, with this as the reason.
  void ExpectRefused(const std::string& where, const std::string& reason) {
    Subprocess refused(Command({"--listen-tcp", where}));
    EXPECT_EQ(refused.Wait(), 1) << where;
    EXPECT_EQ(refused.errors(), "valmered: " + where + ": can't listen there: " + reason + "\n");
    EXPECT_EQ(refused.output(), "");
  }

  std::string listens_on_;
  std::uint16_t port_ = 0;
};

TEST_F(ValmeredTcpTest, AnswersAFrameThatComesByteByByte) {
  StartOn("0");
  EXPECT_EQ(listens_on_, "127.0.0.1:" + std::to_string(port_));
  const RawClient client(port_);
  for (const char byte : client.Request("hello"))
    client.Send(std::string(1, byte));
  EXPECT_EQ(client.ReceiveFrame(), client.Published("hello"));
  EXPECT_EQ(RawClient(socket_).Ask(client.Get()), client.Published("hello"));
  Stop(SIGTERM);
  EXPECT_EQ(client.ReceiveToEnd(), "");
}

TEST_F(ValmeredTcpTest, CarriesRepliesThatAreLongerThanASocketTakes) {
  StartOn("127.0.0.1:0");
  const RawClient client(port_);
  client.AskWithoutReading(9'000'000);
  RawClient(port_).Exchange("still there?");
  EXPECT_GT(client.ReceiveFrame().size(), 9'000'000U);
  client.Exchange("after");
  Stop(SIGTERM);
}

TEST_F(ValmeredTcpTest, AnswersAllThatItHasWhenTheSignalComes) {
  drain_timeout_ = "60s";
  StartOn("0");
  const RawClient client(port_);
  client.AskWithoutReading(8'000'000);
  client.Send(FrameOf(GetText(kOwnComponent)));
  valmered_->Signal(SIGTERM);
  EXPECT_GT(client.ReceiveFrame().size(), 8'000'000U);
  EXPECT_EQ(client.ReceiveFrame(), OwnComponentText());
  EXPECT_EQ(client.ReceiveToEnd(), "");
  ExpectCleanEnd();
}

TEST_F(ValmeredTcpTest, SaysWhichClientItClosesByItsAddress) {
  StartOn("0", {"--frame-timeout", "0.3"});
  const RawClient half(port_);
  half.Send("\xb3");
  EXPECT_EQ(half.ReceiveToEnd(), "");
  EXPECT_THAT(valmered_->ReadErrorLine(),
              MatchesRegex("valmered: client [0-9]+ \\(127\\.0\\.0\\.1:[0-9]+\\): closed: "
                           "the rest of a frame did not come within 0\\.3 s"));
  Stop(SIGTERM);
}

TEST_F(ValmeredTcpTest, DoesNotCountClientsByProcess) {
  StartOn("0", {"--max-clients-per-process", "1"});
  const RawClient local(socket_);
  local.Exchange("a");
  const RawClient first(port_);
  first.Exchange("b");
  const RawClient second(port_);
  second.Exchange("c");
  Stop(SIGTERM);
}

TEST_F(ValmeredTcpTest, WarnsWhereOtherMachinesCanConnect) {
  StartOn("0.0.0.0:0");
  EXPECT_EQ(valmered_->ReadErrorLine(),
            "valmered: clients of any machine that reaches " + listens_on_ +
                " may read and set every property: nothing checks who they are");
  RawClient(port_).Exchange("a");
  Stop(SIGTERM);
}

TEST_F(ValmeredTcpTest, RefusesAPortThatIsTaken) {
  StartOn("0");
  Subprocess second({VALMERED, "--root", folder_.Path("other"), "--socket", folder_.Path("second"),
                     "--listen-tcp", listens_on_});
  EXPECT_EQ(second.Wait(), 1);
  EXPECT_EQ(second.errors(),
            "valmered: " + listens_on_ + ": can't listen there: Address already in use\n");
  EXPECT_EQ(second.output(), "");
  RawClient(port_).Exchange("still there?");
}

TEST_F(ValmeredTcpTest, RefusesATextThatIsNoAddress) {
  for (const char* const where : {"localhost:80", "127.0.0.1:http", "1.2.3.4.5:80"})
    ExpectRefused(where, "it is no ADDRESS:PORT in numbers");
}

TEST_F(ValmeredTcpTest, RefusesAnAddressOfAnotherMachine) {
  ExpectRefused("192.0.2.1:0", "Cannot assign requested address");
}

}  // namespace
}  // namespace valmere::test
