#include "protocol/stream/json_message_handler.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "store/engine/property_engine.h"
#include "store/property/string_property.h"
#include "tests/support/frames.h"
#include "tests/support/scripted_connection.h"
#include "tests/support/test_engine.h"

namespace valmere::test {
namespace {

using Frames = std::vector<std::string>;

constexpr const char* kGetOwn = R"({"PropertyGetRequests": [{"Component": "OWN","GUID": "G:P"}]})";
constexpr const char* kGetPublished =
    R"({"PropertyGetRequests": [{"Component": "C","GUID": "G:Q"}]})";
constexpr const char* kOwnAnswer =
    R"({"PropertyGetResponses": [{"Component": "OWN","ComponentString": "Valmere",)"
    R"("GUID": "G:P","GroupString": "Group","NameString": "Name","Status": "Successful",)"
    R"("Value": "value"}]})";
constexpr const char* kPublish =
    R"({"PropertyGetResponses": [{"Component": "C","ComponentString": "Client",)"
    R"("GUID": "G:Q","GroupString": "Group","NameString": "Name","Status": "Successful",)"
    R"("Value": "V"}]})";
constexpr const char* kNotFoundAnswer =
    R"({"PropertyGetResponses": [{"Component": "C","ComponentString": "Unknown Group",)"
    R"("GUID": "G:Q","GroupString": "Unknown Group","NameString": "Unknown Property",)"
    R"("Status": "Property Not Found","Value": "Invalid Value"}]})";

class JsonMessageHandlerTest : public ::testing::Test {
 protected:
  JsonMessageHandlerTest() {
    context.engine->AddProperty(StringProperty::Make("value", "P", "Name", "G", "Group"));
  }

  // Serves a stream of these pieces to its end; what was written to it.
  Frames Serve(std::vector<std::string> pieces) {
    connection = std::make_shared<ScriptedConnection>(std::move(pieces));
    return ServeConnection();
  }
  Frames ServeConnection() {
    client = std::make_shared<ClientConnection>(connection);
    const auto stream = std::make_shared<PeekableStream>(client);
    EXPECT_TRUE(stream->Peek(32));
    const auto handler = factory.Create(stream);
    EXPECT_NE(nullptr, handler);
    handler->Serve(context);
    return connection->writes();
  }
  std::uint32_t Score(std::vector<std::string> pieces) {
    const auto stream = std::make_shared<PeekableStream>(std::make_shared<ClientConnection>(
        std::make_shared<ScriptedConnection>(std::move(pieces))));
    while (stream->Peek(32)) {
    }
    return factory.Score(*stream);
  }

  ServiceContext context{MakeTestEngine()};
  JsonMessageFactory factory;
  std::shared_ptr<ScriptedConnection> connection;
  std::shared_ptr<ClientConnection> client;
};

TEST_F(JsonMessageHandlerTest, ScoresAStreamThatStartsWithTheIdentifierZero) {
  EXPECT_EQ(0u, Score({IdentifierBytes()}));
  EXPECT_EQ(0u, Score({IdentifierBytes() + "anything else"}));
  EXPECT_EQ(0u, Score({IdentifierBytes().substr(0, 7), IdentifierBytes().substr(7)}));
}

TEST_F(JsonMessageHandlerTest, DoesNotRecogniseAnythingElse) {
  EXPECT_EQ(0xffffffffu, Score({}));
  EXPECT_EQ(0xffffffffu, Score({IdentifierBytes().substr(0, 15)}));
  EXPECT_EQ(0xffffffffu, Score({"x" + IdentifierBytes()}));
  EXPECT_EQ(0xffffffffu, Score({IdentifierBytes().substr(0, 15) + "x"}));
  EXPECT_EQ(0xffffffffu, Score({std::string(100, 'x')}));
}

TEST_F(JsonMessageHandlerTest, AnswersMessageAfterMessage) {
  EXPECT_EQ((Frames{FrameOf(kOwnAnswer), FrameOf(kOwnAnswer)}),
            Serve({FrameOf(kGetOwn), FrameOf("{}"), FrameOf(kGetOwn)}));
}

TEST_F(JsonMessageHandlerTest, AnswersFramesThatCameInOnePiece) {
  std::string piece;
  for (int i = 0; i < 100; ++i)
    piece += FrameOf(kGetOwn);
  EXPECT_EQ(Frames(100, FrameOf(kOwnAnswer)), Serve({piece}));
}

TEST_F(JsonMessageHandlerTest, ReadsNothingBehindADisconnect) {
  EXPECT_TRUE(Serve({FrameOf(R"({"Disconnect": true})"), FrameOf(kGetOwn)}).empty());
  char byte;
  EXPECT_EQ(1, connection->Read(&byte, 1)) << "the next frame is still there";
}

TEST_F(JsonMessageHandlerTest, EndsWhenAReplyCantBeWritten) {
  connection = std::make_shared<ScriptedConnection>(Frames{FrameOf(kGetOwn), FrameOf(kGetOwn)});
  connection->GiveToWrites(Connection::kGone);
  EXPECT_EQ(1u, ServeConnection().size());
}

TEST_F(JsonMessageHandlerTest, EndsAtAnyBadFrameAndTheServiceAnswersOthersStill) {
  const std::vector<std::string> bad_frames = {
      FrameOf(kGetOwn).substr(0, 30),
      IdentifierBytes() + LengthBytes(0),
      IdentifierBytes() + LengthBytes(4'194'305) + std::string(100, ' '),
      IdentifierBytes() + LengthBytes(0xffffffff),
      FrameOf("["),
      FrameOf("[]"),
      FrameOf("null"),
      FrameOf(R"({"GetAllProperties": )"),
      FrameOf(R"({'a': '\uzzzz'})"),
      FrameOf(std::string("\0{}", 3)),
      FrameOf(R"({"a": )" + std::string(50'000, '[')),
      FrameOf(std::string(100'000, '{')),
  };
  for (const std::string& bad : bad_frames) {
    EXPECT_EQ((Frames{FrameOf(kOwnAnswer)}), Serve({FrameOf(kGetOwn), bad, FrameOf(kGetOwn)}))
        << bad.substr(0, 60);
    EXPECT_EQ((Frames{FrameOf(kOwnAnswer)}), Serve({FrameOf(kGetOwn)}));
  }
}

TEST_F(JsonMessageHandlerTest, LeavesNothingOfAClientThatVanishes) {
  Serve({FrameOf(R"({"SubscribeAllCurrentAndNewProperties": true})"), FrameOf(kPublish),
         FrameOf(kGetPublished).substr(0, 30)});
  EXPECT_EQ(1, client.use_count()) << "no subscription and no property keeps it";
  EXPECT_EQ((Frames{FrameOf(kNotFoundAnswer)}), Serve({FrameOf(kGetPublished)}));
}

TEST_F(JsonMessageHandlerTest, LeavesNothingOfAClientThatPublishesTooMuch) {
  connection = std::make_shared<ScriptedConnection>(
      std::vector<std::string>{FrameOf(kPublish), FrameOf(kGetOwn), FrameOf(kGetOwn)});
  connection->SetMostMemory(100);
  EXPECT_TRUE(ServeConnection().empty());
  EXPECT_EQ((std::vector<std::string>{"it has more than 100 bytes kept for it"}),
            connection->causes());
  EXPECT_EQ(0u, connection->account()->used());
  EXPECT_EQ((Frames{FrameOf(kNotFoundAnswer)}), Serve({FrameOf(kGetPublished)}));
}

TEST_F(JsonMessageHandlerTest, LeavesNothingOfAClientThatDisconnects) {
  Serve({FrameOf(kPublish), FrameOf(R"({"SubscribeAllCurrentAndNewProperties": true})"),
         FrameOf(R"({"Disconnect": true})")});
  EXPECT_EQ(1, client.use_count());
  EXPECT_EQ((Frames{FrameOf(kNotFoundAnswer)}), Serve({FrameOf(kGetPublished)}));
}

TEST_F(JsonMessageHandlerTest, TakesOddlyTypedMessagesForWhatTheyAre) {
  EXPECT_EQ((Frames{FrameOf(R"({"PropertyGetResponses": []})"), FrameOf(kOwnAnswer)}),
            Serve({FrameOf(R"({"PropertySetRequests": 1,"PropertyGetRequests": true,)"
                           R"("PropertySubscribeRequests": "x","PropertyGetResponses": {}})"),
                   FrameOf(kGetOwn)}));
}

}  // namespace
}  // namespace valmere::test
