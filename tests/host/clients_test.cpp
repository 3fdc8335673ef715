// Who is admitted, and the end of those that are.
#include "host/socket/clients.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "host/socket/limits.h"
#include "host/socket/peer.h"
#include "tests/host/client_end.h"
#include "tests/support/frames.h"

namespace valmere::test {
using namespace host;
namespace {

using ::testing::HasSubstr;
using ::testing::internal::CaptureStderr;
using ::testing::internal::GetCapturedStderr;

Peer PeerWith(pid_t process) {
  return {process, "pid " + std::to_string(process)};
}

std::shared_ptr<Clients> ClientsWithLimits(std::size_t all, std::size_t of_process) {
  Limits limits;
  limits.clients = all;
  limits.clients_per_process = of_process;
  return std::make_shared<Clients>(limits, nullptr);
}

TEST(Clients, TurnsAwayOneOverTheLimitUntilAPlaceIsFree) {
  const auto clients = ClientsWithLimits(2, 2);
  auto first = clients->Admit(PeerWith(1));
  const auto second = clients->Admit(PeerWith(2));
  ASSERT_TRUE(first && second);
  CaptureStderr();
  EXPECT_FALSE(clients->Admit(PeerWith(3)));
  EXPECT_EQ(GetCapturedStderr(),
            "valmered: turned away 1 client, the last one pid 3: 2 are served, which is the limit "
            "of --max-clients\n");
  first.reset();
  EXPECT_TRUE(clients->Admit(PeerWith(3)));
}

TEST(Clients, CountsEachProcessByItself) {
  const auto clients = ClientsWithLimits(100, 2);
  auto first = clients->Admit(PeerWith(1));
  const auto second = clients->Admit(PeerWith(1));
  ASSERT_TRUE(first && second);
  CaptureStderr();
  EXPECT_FALSE(clients->Admit(PeerWith(1)));
  EXPECT_THAT(GetCapturedStderr(), HasSubstr("the limit of --max-clients-per-process"));
  const auto of_another = clients->Admit(PeerWith(2));
  EXPECT_TRUE(of_another);
  EXPECT_FALSE(clients->Admit(PeerWith(1)));
  first.reset();
  EXPECT_TRUE(clients->Admit(PeerWith(1)));
}

TEST(Clients, DoesNotCountProcessesThatItDoesNotKnow) {
  const auto clients = ClientsWithLimits(3, 1);
  const auto first = clients->Admit(PeerWith(0));
  const auto second = clients->Admit(PeerWith(0));
  const auto third = clients->Admit(PeerWith(0));
  EXPECT_TRUE(first && second && third);
  EXPECT_FALSE(clients->Admit(PeerWith(0)));
}

TEST(Clients, KeepAPlaceThatIsHandedOn) {
  const auto clients = ClientsWithLimits(1, 1);
  auto place = clients->Admit(PeerWith(1));
  ASSERT_TRUE(place);
  std::optional<Clients::Place> later(std::move(*place));
  place.reset();
  EXPECT_FALSE(clients->Admit(PeerWith(1)));
  later.reset();
  EXPECT_TRUE(clients->Admit(PeerWith(1)));
}

TEST(Clients, TellThatAllHaveGoneOnceTheLastHas) {
  ServedClient client;
  ASSERT_TRUE(client.end.Send(FrameOf("one")));
  client.all.clients()->Finish();
  EXPECT_EQ(client.all.all_gone(), 0);
  EXPECT_EQ(client.ReadAll(100), FrameOf("one"));
  client.stream->Close();
  EXPECT_EQ(client.all.all_gone(), 0);
  client.stream.reset();
  EXPECT_EQ(client.all.all_gone(), 1);
}

TEST(Clients, TellAtOnceThatAllHaveGoneWhereThereIsNone) {
  ServedClients all;
  all.clients()->Finish();
  EXPECT_EQ(all.all_gone(), 1);
}

TEST(Clients, TellNothingWhileNewOnesMayCome) {
  ServedClient client;
  client.stream.reset();
  EXPECT_EQ(client.all.all_gone(), 0);
}

TEST(Clients, TellNothingOnceDetached) {
  ServedClient client;
  client.all.clients()->Finish();
  client.all.clients()->Detach();
  client.stream.reset();
  EXPECT_EQ(client.all.all_gone(), 0);
}

TEST(Clients, FinishOneThatComesLateToo) {
  ServedClients all;
  all.clients()->Finish();
  SocketPair pair = MakeSocketPair();
  const ClientEnd end(std::move(pair.client));
  ASSERT_TRUE(end.Send("abc"));
  const auto stream = all.Serve(std::move(pair.service));
  char bytes[4] = {};
  EXPECT_EQ(stream->Read(bytes, 4), 3);
  EXPECT_FALSE(end.Send("d"));
}

TEST(Clients, AbandonAllOfThemWithWhatWaits) {
  ServedClients all;
  SocketPair first = MakeSocketPair();
  SocketPair second = MakeSocketPair();
  ClientEnd first_end(std::move(first.client));
  ClientEnd second_end(std::move(second.client));
  const auto first_stream = all.Serve(std::move(first.service));
  const auto second_stream = all.Serve(std::move(second.service));
  const SharedFrame news = SharedOf(std::size_t{8} << 20);
  EventFlags::PendingWake wake;
  first_stream->WriteShared(news, wake);
  all.clients()->AbandonAll();
  EXPECT_FALSE(first_stream->HasWaiting());
  EXPECT_FALSE(first_stream->IsOpen());
  EXPECT_FALSE(second_stream->IsOpen());
  EXPECT_TRUE(first_end.ReachesEnd());
  EXPECT_TRUE(second_end.ReachesEnd());
}

}  // namespace
}  // namespace valmere::test
