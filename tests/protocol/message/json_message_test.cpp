#include "protocol/message/json_message.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <string>
#include <utility>
#include <vector>

#include "platform/kernel.h"
#include "protocol/message/parser_lock.h"
#include "protocol/message/property_message.h"
#include "protocol/wire/message_frame.h"
#include "tests/support/frames.h"
#include "tests/support/parser_lock_probe.h"
#include "tests/support/request_message.h"
#include "tests/support/scripted_connection.h"
#include "tests/support/test_thread.h"

namespace valmere::test {
namespace {

using Lengths = std::vector<int>;

bool Reads(std::vector<std::string> pieces) {
  ScriptedConnection connection(std::move(pieces));
  PropertyMessage message;
  return message.Read(connection);
}

platform::Ticks AMomentLater() {
  return platform::MonotonicNow() + 20 * platform::kTicksPerMillisecond;
}

// An object whose text has exactly `size` bytes.
std::string ObjectOfSize(std::size_t size) {
  const std::string start = R"({"a": ")";
  const std::string end = R"("})";
  return start + std::string(size - start.size() - end.size(), 'x') + end;
}

TEST(JsonMessageRead, TakesEachFieldByExactlyOneCall) {
  ScriptedConnection connection(FieldsOf(R"({"a": "b"})"));
  PropertyMessage message;
  ASSERT_TRUE(message.Read(connection));
  EXPECT_EQ((Lengths{16, 4, 10}), connection.reads());
  ASSERT_NE(nullptr, message.object().Find("a"));
  EXPECT_EQ("b", message.object().Find("a")->text());
}

TEST(JsonMessageRead, TakesAFrameThatCameInOnePiece) {
  ScriptedConnection connection({FrameOf(R"({"a": "b"})")});
  PropertyMessage message;
  EXPECT_TRUE(message.Read(connection));
  EXPECT_EQ((Lengths{16, 4, 10}), connection.reads());
}

TEST(JsonMessageRead, TakesOneMessageAfterAnother) {
  ScriptedConnection connection({FrameOf(R"({"a": "1"})") + FrameOf(R"({"b": "2"})")});
  PropertyMessage message;
  ASSERT_TRUE(message.Read(connection));
  EXPECT_TRUE(message.Has("a"));
  ASSERT_TRUE(message.Read(connection));
  EXPECT_FALSE(message.Has("a")) << "the second message replaces the first";
  EXPECT_TRUE(message.Has("b"));
  EXPECT_FALSE(message.Read(connection));
}

TEST(JsonMessageRead, FailsWhenTheIdentifierComesInTwoPieces) {
  ScriptedConnection connection(
      {IdentifierBytes().substr(0, 8), IdentifierBytes().substr(8), LengthBytes(2), "{}"});
  PropertyMessage message;
  EXPECT_FALSE(message.Read(connection));
  EXPECT_EQ((Lengths{16}), connection.reads());
}

TEST(JsonMessageRead, FailsWhenTheLengthComesInTwoPieces) {
  ScriptedConnection connection(
      {IdentifierBytes(), LengthBytes(2).substr(0, 3), LengthBytes(2).substr(3), "{}"});
  PropertyMessage message;
  EXPECT_FALSE(message.Read(connection));
  EXPECT_EQ((Lengths{16, 4}), connection.reads());
}

TEST(JsonMessageRead, FailsWhenTheTextComesInTwoPieces) {
  ScriptedConnection connection({IdentifierBytes(), LengthBytes(2), "{", "}"});
  PropertyMessage message;
  EXPECT_FALSE(message.Read(connection));
  EXPECT_EQ((Lengths{16, 4, 2}), connection.reads());
}

TEST(JsonMessageRead, FailsForEveryTruncationOfAFrame) {
  const std::string frame = FrameOf(R"({"a": "b"})");
  for (std::size_t size = 0; size < frame.size(); ++size)
    EXPECT_FALSE(Reads({frame.substr(0, size)})) << size;
  EXPECT_TRUE(Reads({frame}));
}

TEST(JsonMessageRead, FailsWithTheConnectionAtEachField) {
  for (const int error : {Connection::kGone, Connection::kFailed, Connection::kDrained, 0}) {
    const std::vector<std::string> fields = FieldsOf("{}");
    for (std::ptrdiff_t field = 0; field < 3; ++field) {
      ScriptedConnection connection(
          std::vector<std::string>(fields.begin(), fields.begin() + field));
      connection.EndWith(error);
      PropertyMessage message;
      EXPECT_FALSE(message.Read(connection)) << error << " at " << field;
      EXPECT_EQ(static_cast<std::size_t>(field) + 1, connection.reads().size());
    }
  }
}

TEST(JsonMessageRead, DoesNotCompareTheIdentifier) {
  EXPECT_TRUE(Reads({std::string(16, '?'), LengthBytes(2), "{}"}));
}

TEST(JsonMessageRead, RefusesALengthOfZeroWithoutAnotherRead) {
  ScriptedConnection connection({IdentifierBytes(), LengthBytes(0), "{}"});
  PropertyMessage message;
  EXPECT_FALSE(message.Read(connection));
  EXPECT_EQ((Lengths{16, 4}), connection.reads());
}

TEST(JsonMessageRead, ExplainsWhatWasWrongWithAFrame) {
  const auto causes = [](std::vector<std::string> pieces) {
    ScriptedConnection connection(std::move(pieces));
    PropertyMessage message;
    while (message.Read(connection)) {
    }
    return connection.causes();
  };
  using Causes = std::vector<std::string>;
  EXPECT_EQ(Causes{"a frame of 0 bytes"}, causes({IdentifierBytes(), LengthBytes(0)}));
  EXPECT_EQ(Causes{"a frame of 4194305 bytes, over the limit of 4194304"},
            causes({IdentifierBytes(), LengthBytes(4'194'305)}));
  for (const char* text : {"{1}", "[1]", "'\\u'"})
    EXPECT_EQ(Causes{"a text of " + std::to_string(std::string(text).size()) +
                     " bytes that can't be read as a JSON object"},
              causes({FrameOf("{}"), FrameOf(text)}));
  EXPECT_EQ(Causes{}, causes({FrameOf("{}")})) << "it ends";
  EXPECT_EQ(Causes{}, causes({IdentifierBytes(), LengthBytes(3), "{"})) << "in the middle";
}

TEST(JsonMessageRead, DoesNotExplainAnEndThatItWasToldOf) {
  ScriptedConnection connection({FrameOf("{}")});
  PropertyMessage message;
  const std::atomic<bool> stopped{true};
  EXPECT_FALSE(message.Read(connection, &stopped));
  EXPECT_TRUE(connection.causes().empty());
}

TEST(JsonMessageRead, TakesALengthOfOne) {
  ScriptedConnection connection({IdentifierBytes(), LengthBytes(1), "7"});
  PropertyMessage message;
  EXPECT_FALSE(message.Read(connection)) << "no object fits into one byte";
  EXPECT_EQ((Lengths{16, 4, 1}), connection.reads());
}

TEST(JsonMessageRead, TakesTheLongestText) {
  const std::string text = ObjectOfSize(4'194'304);
  ScriptedConnection connection(FieldsOf(text));
  PropertyMessage message;
  ASSERT_TRUE(message.Read(connection));
  EXPECT_EQ((Lengths{16, 4, 4'194'304}), connection.reads());
  EXPECT_EQ(text.size() - 9, message.object().Find("a")->text().size());
}

TEST(JsonMessageRead, RefusesAnyLengthAboveTheLimitWithoutReadingTheText) {
  for (const std::uint32_t length : {4'194'305u, 0x7fffffffu, 0x80000000u, 0xffffffffu}) {
    ScriptedConnection connection({IdentifierBytes(), LengthBytes(length), "{}"});
    PropertyMessage message;
    EXPECT_FALSE(message.Read(connection)) << length;
    EXPECT_EQ((Lengths{16, 4}), connection.reads()) << length;
  }
}

TEST(JsonMessageRead, FailsForATextThatIsNoObject) {
  for (const char* text : {"null", "true", "1", "1.5", R"("a")", "[]", R"([{"a": "b"}])", " "})
    EXPECT_FALSE(Reads(FieldsOf(text))) << text;
}

TEST(JsonMessageRead, FailsForASyntaxError) {
  for (const char* text : {"{", "}", R"({"a"})", R"({"a": })", R"({"a": "b"}})", R"({"a": "b")",
                           R"({"a": "b" "c": "d"})", "{1: 2}"})
    EXPECT_FALSE(Reads(FieldsOf(text))) << text;
}

TEST(JsonMessageRead, FailsForATextNestedBeyondTheParsersStack) {
  std::string text = R"({"a": )" + std::string(100'000, '[') + std::string(100'000, ']') + "}";
  EXPECT_FALSE(Reads(FieldsOf(text)));
  EXPECT_TRUE(Reads(FieldsOf("{}")));
}

TEST(JsonMessageRead, TakesATextNestedNearlyAsDeepAsTheParsersStack) {
  const std::string text = R"({"a": )" + std::string(3'000, '[') + std::string(3'000, ']') + "}";
  EXPECT_TRUE(Reads(FieldsOf(text)));
}

TEST(JsonMessageRead, LeavesTheObjectAsItWasWhenItFails) {
  ScriptedConnection connection(
      {FrameOf(R"({"kept": "1"})"), FrameOf("[]"), FrameOf("{"), FrameOf(R"({'a': '\uxyzq'})")});
  PropertyMessage message;
  ASSERT_TRUE(message.Read(connection));
  for (int i = 0; i < 4; ++i) {
    EXPECT_FALSE(message.Read(connection)) << i;
    ASSERT_TRUE(message.Has("kept")) << i;
  }
}

TEST(JsonMessageRead, FailsForABrokenUnicodeEscapeInSingleQuotesAndFreesTheParserLock) {
  PropertyMessage message;
  ScriptedConnection connection({FrameOf(R"({'a': '\uxyzq'})"), FrameOf(R"({"a": "b"})")});
  EXPECT_FALSE(message.Read(connection));
  EXPECT_TRUE(ParserLockIsFree());
  EXPECT_TRUE(message.Read(connection));
  EXPECT_TRUE(ParserLockIsFree());
}

TEST(JsonMessageRead, WaitsForTheParserLockButReadsWithoutIt) {
  ScriptedConnection connection(FieldsOf("{}"));
  bool read = false;
  platform::Semaphore done;
  ParserLock().Enter();
  TestThread reader([&] {
    PropertyMessage message;
    read = message.Read(connection);
    done.Release();
  });
  EXPECT_TRUE(Eventually([&] { return connection.reads().size() == 3; }));
  EXPECT_FALSE(done.WaitUntil(AMomentLater()));
  ParserLock().Leave();
  reader.Join();
  EXPECT_TRUE(read);
}

TEST(JsonMessageWrite, WaitsForTheParserLock) {
  ScriptedConnection connection;
  platform::Semaphore done;
  ParserLock().Enter();
  TestThread writer([&] {
    PropertyMessage message;
    EXPECT_TRUE(message.Write(connection));
    done.Release();
  });
  EXPECT_FALSE(done.WaitUntil(AMomentLater()));
  EXPECT_TRUE(connection.writes().empty());
  ParserLock().Leave();
  writer.Join();
  EXPECT_EQ(1u, connection.writes().size());
}

TEST(JsonMessageWrite, WritesTheWholeFrameByOneCall) {
  ScriptedConnection connection;
  PropertyMessage message;
  message.SubscribeAll();
  ASSERT_TRUE(message.Write(connection));
  EXPECT_EQ(std::vector<std::string>{FrameOf(R"({"SubscribeAllCurrentAndNewProperties": true})")},
            connection.writes());
}

TEST(JsonMessageWrite, WritesAnEmptyObjectWhenNothingWasFilledIn) {
  ScriptedConnection connection;
  PropertyMessage message;
  ASSERT_TRUE(message.Write(connection));
  EXPECT_EQ(std::vector<std::string>{FrameOf("{}")}, connection.writes());
}

TEST(JsonMessageWrite, StartsEachFrameAnew) {
  ScriptedConnection connection;
  PropertyMessage message;
  message.SubscribeAll();
  message.Write(connection);
  message.Clear();
  message.Write(connection);
  EXPECT_EQ(FrameOf("{}"), connection.writes().at(1));
}

TEST(JsonMessageWrite, FailsUnlessTheWholeLengthWasTaken) {
  for (const int result : {0, 1, 21, 23, Connection::kGone, Connection::kFailed}) {
    ScriptedConnection connection;
    connection.GiveToWrites(result);
    PropertyMessage message;
    EXPECT_FALSE(message.Write(connection)) << result;
    EXPECT_EQ(1u, connection.writes().size()) << "a failed write is not tried again";
  }
  ScriptedConnection connection;
  connection.GiveToWrites(22);
  PropertyMessage message;
  EXPECT_TRUE(message.Write(connection));
}

TEST(JsonMessageWrite, ChecksNoLimit) {
  ScriptedConnection connection;
  const std::string value(kMaximumMessageBytes, 'x');
  PropertyMessage message;
  message.SetRequests(std::array{PropertySetRecord{"p", "g", "c", value}});
  EXPECT_TRUE(message.Write(connection));
  EXPECT_LT(value.size() + 20, connection.writes().at(0).size());
}

TEST(JsonMessageWrite, HoldsNoParserLockWhileTheConnectionTakesTheFrame) {
  class LockProbe final : public Connection {
   public:
    int Read(void*, int) override { return kFailed; }
    int Write(const void*, int length) override {
      lock_was_free = ParserLockIsFree();
      return length;
    }
    void Close() override {}
    bool IsOpen() const override { return true; }
    bool lock_was_free = false;
  };
  LockProbe connection;
  PropertyMessage message;
  EXPECT_TRUE(message.Write(connection));
  EXPECT_TRUE(connection.lock_was_free);
}

TEST(JsonMessageWrite, IsReadBackAsTheSameObject) {
  RequestMessage sent;
  sent.RequestAll();
  sent.AddSubscribeEntry({"c", "g", "p"});
  ScriptedConnection out;
  sent.Write(out);
  ScriptedConnection in(out.writes());
  PropertyMessage received;
  ASSERT_TRUE(received.Read(in));
  EXPECT_TRUE(sent.object() == received.object());
}

}  // namespace
}  // namespace valmere::test
