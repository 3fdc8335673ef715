#include "protocol/stream/peekable_stream.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "protocol/message/property_message.h"
#include "tests/support/frames.h"
#include "tests/support/scripted_connection.h"

namespace valmere::test {
namespace {

using Lengths = std::vector<int>;

// A peekable stream on a scripted connection.
class PeekableStreamTest : public ::testing::Test {
 protected:
  void Script(std::vector<std::string> pieces) {
    connection = std::make_shared<ScriptedConnection>(std::move(pieces));
    stream = std::make_unique<PeekableStream>(std::make_shared<ClientConnection>(connection));
  }

  std::pair<int, std::string> Read(int length) {
    std::string bytes(static_cast<std::size_t>(length), '?');
    const int count = stream->Read(bytes.data(), length);
    bytes.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
    return {count, bytes};
  }

  using Result = std::pair<int, std::string>;

  std::shared_ptr<ScriptedConnection> connection;
  std::unique_ptr<PeekableStream> stream;
};

TEST_F(PeekableStreamTest, PeeksByOneReadOfTheCountAskedFor) {
  Script({"abcdef"});
  EXPECT_TRUE(stream->Peek(4));
  EXPECT_EQ("abcd", stream->Peeked());
  EXPECT_EQ((Lengths{4}), connection->reads());
}

TEST_F(PeekableStreamTest, IsContentWithFewerBytesThanItAskedFor) {
  Script({"a", "bc"});
  EXPECT_TRUE(stream->Peek(32));
  EXPECT_EQ("a", stream->Peeked());
  EXPECT_EQ((Lengths{32}), connection->reads());
}

TEST_F(PeekableStreamTest, ExtendsTheKeptBytesByEachPeek) {
  Script({"a", "bc", "d"});
  EXPECT_TRUE(stream->Peek(32));
  EXPECT_TRUE(stream->Peek(32));
  EXPECT_EQ("abc", stream->Peeked());
  EXPECT_TRUE(stream->Peek(32));
  EXPECT_EQ("abcd", stream->Peeked());
}

TEST_F(PeekableStreamTest, FailsToPeekWhereNothingCanBeRead) {
  for (const int result : {0, Connection::kGone, Connection::kFailed, Connection::kDrained}) {
    Script({"a"});
    connection->EndWith(result);
    EXPECT_TRUE(stream->Peek(32));
    EXPECT_FALSE(stream->Peek(32)) << result;
    EXPECT_EQ("a", stream->Peeked()) << "what was kept stays";
  }
}

TEST_F(PeekableStreamTest, ReadsTheKeptBytesFirstWithoutTheConnection) {
  Script({"abcdef"});
  stream->Peek(6);
  EXPECT_EQ((Result{2, "ab"}), Read(2));
  EXPECT_EQ((Result{4, "cdef"}), Read(4));
  EXPECT_EQ((Lengths{6}), connection->reads()) << "nothing but the peek";
}

TEST_F(PeekableStreamTest, ReadsTheConnectionOnceNothingIsKept) {
  Script({"ab", "cd"});
  stream->Peek(2);
  Read(2);
  EXPECT_EQ((Result{2, "cd"}), Read(8));
  EXPECT_EQ((Lengths{2, 8}), connection->reads());
  EXPECT_EQ((Result{Connection::kGone, ""}), Read(8));
}

TEST_F(PeekableStreamTest, GoesOnWithOneReadWhereTheKeptBytesFillAReadInPart) {
  Script({"abcd", "efgh", "ij"});
  stream->Peek(32);
  EXPECT_EQ((Result{8, "abcdefgh"}), Read(8));
  EXPECT_EQ((Lengths{32, 4}), connection->reads());
}

TEST_F(PeekableStreamTest, GoesOnWithNoMoreThanOneReadWhenThatGivesTooLittle) {
  Script({"abcd", "e", "fgh"});
  stream->Peek(32);
  EXPECT_EQ((Result{5, "abcde"}), Read(8));
  EXPECT_EQ((Lengths{32, 4}), connection->reads());
}

TEST_F(PeekableStreamTest, GivesTheKeptBytesWhenTheReadThatFollowsFails) {
  for (const int result : {0, Connection::kGone, Connection::kFailed, Connection::kDrained}) {
    Script({"abcd"});
    connection->EndWith(result);
    stream->Peek(32);
    EXPECT_EQ((Result{4, "abcd"}), Read(8)) << result;
    EXPECT_EQ((Result{result, ""}), Read(8)) << result;
  }
}

TEST_F(PeekableStreamTest, ReadsNothingWhenAskedForNothing) {
  Script({"abcd"});
  stream->Peek(32);
  EXPECT_EQ((Result{0, ""}), Read(0));
  EXPECT_EQ((Lengths{32}), connection->reads());
  EXPECT_EQ("abcd", stream->Peeked());
}

TEST_F(PeekableStreamTest, GivesEveryByteOfTheStreamInOrderWhereverThePeekEnded) {
  const std::string text = "0123456789abcdefghijklmnopqrstuvwxyz";
  for (std::size_t cut = 1; cut < text.size(); ++cut) {
    Script({text.substr(0, cut), text.substr(cut)});
    ASSERT_TRUE(stream->Peek(32));
    std::string got;
    for (auto [count, bytes] = Read(5); count > 0; std::tie(count, bytes) = Read(5))
      got += bytes;
    EXPECT_EQ(text, got) << cut;
  }
}

TEST_F(PeekableStreamTest, KeepsSixtyFourBytesAtMost) {
  Script({std::string(40, 'a'), std::string(40, 'b'), std::string(40, 'c')});
  for (int i = 0; i < 20 && stream->Peek(32); ++i) {
  }
  EXPECT_EQ(std::string(40, 'a') + std::string(24, 'b'), stream->Peeked());
}

TEST_F(PeekableStreamTest, DropsNoByteUntilTheKeptBytesAreFull) {
  Script({"12345", std::string(200, 'x')});
  stream->Peek(32);
  while (stream->Peeked().size() < PeekableStream::kMostPeeked)
    ASSERT_TRUE(stream->Peek(32));
  std::string got;
  for (auto [count, bytes] = Read(7); count > 0; std::tie(count, bytes) = Read(7))
    got += bytes;
  EXPECT_EQ("12345" + std::string(200, 'x'), got);
}

TEST_F(PeekableStreamTest, ReadsAHalfPeekedFrameFieldByField) {
  const std::string text = R"({"PropertyGetRequests": [{"Component": "C","GUID": "G:P"}]})";
  Script({FrameOf(text)});
  ASSERT_TRUE(stream->Peek(32));
  PropertyMessage message;
  ASSERT_TRUE(message.Read(*stream));
  EXPECT_EQ(1u, message.Count("PropertyGetRequests"));
  EXPECT_EQ((Lengths{32, static_cast<int>(text.size()) - 12}), connection->reads());
}

TEST_F(PeekableStreamTest, GivesNothingOnceItIsClosed) {
  Script({"abcd", "efgh"});
  stream->Peek(4);
  stream->Close();
  EXPECT_FALSE(stream->Peek(4));
  EXPECT_EQ((Result{Connection::kGone, ""}), Read(4));
  EXPECT_EQ((Lengths{4}), connection->reads());
}

TEST_F(PeekableStreamTest, ExplainsItsEndToTheConnectionWhoseAccountItHas) {
  auto scripted = std::make_shared<ScriptedConnection>();
  scripted->SetMostMemory(1);
  PeekableStream peekable(std::make_shared<ClientConnection>(scripted));
  peekable.ExplainEnd("cause");
  EXPECT_EQ((std::vector<std::string>{"cause"}), scripted->causes());
  EXPECT_EQ(scripted->account(), peekable.account());
}

TEST_F(PeekableStreamTest, WritesAndClosesTheConnection) {
  Script({});
  EXPECT_EQ(2, stream->Write("ab", 2));
  EXPECT_EQ((std::vector<std::string>{"ab"}), connection->writes());
  EXPECT_TRUE(stream->IsOpen());
  stream->Close();
  EXPECT_FALSE(stream->IsOpen());
  EXPECT_FALSE(connection->IsOpen());
}

}  // namespace
}  // namespace valmere::test
