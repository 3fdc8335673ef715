#include "net/tcp_connection.h"

#include <gtest/gtest.h>

#include <memory>
#include <utility>

namespace valmere::test {
namespace {

using platform::Transfer;

constexpr int kNotConnected = 10057;

struct SocketRecord {
  Transfer next{0, 0};
  int transfers = 0;
  int closes = 0;
};

class ScriptedSocket final : public platform::StreamSocket {
 public:
  explicit ScriptedSocket(std::shared_ptr<SocketRecord> record) : record_(std::move(record)) {}
  Transfer Receive(void*, int) override { return Take(); }
  Transfer Send(const void*, int) override { return Take(); }
  void Close() override { ++record_->closes; }

 private:
  Transfer Take() {
    ++record_->transfers;
    return record_->next;
  }
  const std::shared_ptr<SocketRecord> record_;
};

class TcpConnectionTest : public ::testing::Test {
 protected:
  std::unique_ptr<TcpConnection> Make() const {
    return std::make_unique<TcpConnection>(std::make_unique<ScriptedSocket>(record_), 0x0100007fU,
                                           0x5c11U);
  }
  int ReadWith(Transfer next) const {
    record_->next = next;
    char byte = 0;
    return Make()->Read(&byte, 1);
  }
  int WriteWith(Transfer next) const {
    record_->next = next;
    return Make()->Write("x", 1);
  }

  const std::shared_ptr<SocketRecord> record_ = std::make_shared<SocketRecord>();
};

TEST_F(TcpConnectionTest, KnowsItsPeer) {
  const auto connection = Make();
  EXPECT_EQ(0x0100007fU, connection->peer_address());
  EXPECT_EQ(0x5c11U, connection->peer_port());
}

TEST_F(TcpConnectionTest, ReadGivesTheCount) {
  EXPECT_EQ(1, ReadWith({1, 0}));
  EXPECT_EQ(4096, ReadWith({4096, platform::kConnectionAborted}));
}

TEST_F(TcpConnectionTest, ReadTakesAbortAndTimeOutForAPeerThatIsGone) {
  EXPECT_EQ(-1, ReadWith({-1, platform::kConnectionAborted}));
  EXPECT_EQ(-1, ReadWith({-1, platform::kTimedOut}));
}

TEST_F(TcpConnectionTest, ReadTakesEveryOtherCodeForAnError) {
  for (const int code : {platform::kConnectionReset, platform::kNoBufferSpace, kNotConnected,
                         platform::kOtherSocketError, 0})
    EXPECT_EQ(-2, ReadWith({-1, code})) << code;
}

TEST_F(TcpConnectionTest, ReadMapsTheEndOfTheStreamByTheErrorCodeToo) {
  EXPECT_EQ(-2, ReadWith({0, 0}));
  EXPECT_EQ(-2, ReadWith({0, platform::kConnectionReset}));
  EXPECT_EQ(-1, ReadWith({0, platform::kConnectionAborted}));
  EXPECT_EQ(-1, ReadWith({0, platform::kTimedOut}));
}

TEST_F(TcpConnectionTest, WriteGivesTheCountEvenOfNothing) {
  EXPECT_EQ(7, WriteWith({7, 0}));
  EXPECT_EQ(0, WriteWith({0, platform::kConnectionAborted}));
}

TEST_F(TcpConnectionTest, WriteTakesAbortNoBuffersAndTimeOutForAPeerThatIsGone) {
  EXPECT_EQ(-1, WriteWith({-1, platform::kConnectionAborted}));
  EXPECT_EQ(-1, WriteWith({-1, platform::kNoBufferSpace}));
  EXPECT_EQ(-1, WriteWith({-1, platform::kTimedOut}));
}

TEST_F(TcpConnectionTest, WriteTakesEveryOtherCodeForAnError) {
  for (const int code : {platform::kConnectionReset, kNotConnected, platform::kOtherSocketError, 0})
    EXPECT_EQ(-2, WriteWith({-1, code})) << code;
}

TEST_F(TcpConnectionTest, ClosesItsSocketOnce) {
  auto connection = Make();
  EXPECT_TRUE(connection->IsOpen());
  connection->Close();
  EXPECT_FALSE(connection->IsOpen());
  connection->Close();
  connection.reset();
  EXPECT_EQ(1, record_->closes);
}

TEST_F(TcpConnectionTest, ClosesItsSocketWhenItDies) {
  Make().reset();
  EXPECT_EQ(1, record_->closes);
}

TEST_F(TcpConnectionTest, TransfersNothingOnceClosed) {
  record_->next = {1, 0};
  const auto connection = Make();
  connection->Close();
  char byte = 0;
  EXPECT_EQ(-2, connection->Read(&byte, 1));
  EXPECT_EQ(-2, connection->Write("x", 1));
  EXPECT_EQ(0, record_->transfers);
}

TEST_F(TcpConnectionTest, IsNoLongerOpenOnceTheStreamHasEnded) {
  const auto connection = Make();
  char byte = 0;
  record_->next = {1, 0};
  EXPECT_EQ(1, connection->Read(&byte, 1));
  EXPECT_TRUE(connection->IsOpen());
  record_->next = {0, 0};
  EXPECT_EQ(-2, connection->Read(&byte, 1));
  EXPECT_FALSE(connection->IsOpen());
}

// A peer may end its own direction and still wait for answers.
TEST_F(TcpConnectionTest, WritesAfterThePeerHasEndedItsDirection) {
  const auto connection = Make();
  char byte = 0;
  record_->next = {0, 0};
  EXPECT_EQ(-2, connection->Read(&byte, 1));
  EXPECT_EQ(0, record_->closes);
  record_->next = {1, 0};
  EXPECT_EQ(1, connection->Write("x", 1));
}

TEST_F(TcpConnectionTest, AFailedWriteShutsTheSocketSoThatNothingFollowsABrokenFrame) {
  const auto connection = Make();
  record_->next = {-1, platform::kTimedOut};
  EXPECT_EQ(-1, connection->Write("x", 1));
  EXPECT_FALSE(connection->IsOpen());
  EXPECT_EQ(1, record_->closes);
}

TEST_F(TcpConnectionTest, AFailedWriteLeavesWhatHasArrivedReadable) {
  const auto connection = Make();
  record_->next = {-1, platform::kConnectionReset};
  EXPECT_EQ(-2, connection->Write("x", 1));
  record_->next = {1, 0};
  char byte = 0;
  EXPECT_EQ(1, connection->Read(&byte, 1));
}

}  // namespace
}  // namespace valmere::test
