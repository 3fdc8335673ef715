// What an observer sees of a connection.
#include "client/observed_transport.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "client/client.h"
#include "client/socket_transport.h"
#include "tests/client/session_fixture.h"

namespace valmere::test {
using namespace client;
namespace {

using ::testing::ElementsAre;
using ::testing::Pair;

TEST(ObservedTransport, ShowsEveryFrameInOrder) {
  test::FakeService service([](const test::FakeConnection& connection) {
    connection.Receive();
    connection.Send(test::ResponseText({kSpeed}));
    connection.WaitForEnd();
  });
  std::vector<std::pair<Direction, std::string>> frames;
  Client client(Observe(
      std::move(*ConnectSocket(service.path(), Soon())),
      [&](Direction direction, std::string_view text) { frames.emplace_back(direction, text); }));
  ASSERT_TRUE(client.GetAll(Soon()));
  EXPECT_EQ(client.ReceiveSets(Past()).error().kind, ErrorKind::kTimeout);
  EXPECT_TRUE(client.Disconnect(Soon()));
  EXPECT_THAT(frames, ElementsAre(Pair(Direction::kSent, kGetAllText),
                                  Pair(Direction::kReceived, test::ResponseText({kSpeed})),
                                  Pair(Direction::kSent, R"({"Disconnect": true})")));
}

TEST(ObservedTransport, PassesOnAnInterruption) {
  test::PlayedService service;
  Client client(Observe(std::move(*ConnectSocket(service.path(), Soon())),
                        [](Direction, std::string_view) {}));
  client.Interrupt();
  EXPECT_EQ(client.GetAll(Soon()).error().kind, ErrorKind::kInterrupted);
}

TEST_F(SessionTest, ShowsWhatItSaysToAnObserver) {
  Box<std::string> frames;
  const Connector connect = SocketConnector(service_.path());
  const Connector observed = [&](Deadline deadline) -> Result<std::unique_ptr<Transport>> {
    auto transport = connect(deadline);
    if (!transport) return transport;
    return Observe(std::move(*transport), [&](Direction direction, std::string_view text) {
      frames.Put((direction == Direction::kSent ? "> " : "< ") + std::string(text));
    });
  };
  session_.emplace(std::move(*Session::Open(observed, options_, Soon())));
  requests_.emplace(service_.Accept());
  auto call = Meanwhile([&] { return session_->GetAll(); });
  requests_->Receive();
  Answer(*requests_, {});
  EXPECT_TRUE(call.get());
  EXPECT_EQ(frames.Take(), "> " + kGetAllText);
  EXPECT_EQ(frames.Take(), R"(< {"PropertyGetResponses": []})");
  session_.reset();
}

}  // namespace
}  // namespace valmere::test
