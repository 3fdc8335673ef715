#include "protocol/stream/data_handler_manager.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "protocol/stream/json_message_handler.h"
#include "store/engine/property_engine.h"
#include "store/property/string_property.h"
#include "tests/support/frames.h"
#include "tests/support/scripted_connection.h"
#include "tests/support/stream_fakes.h"
#include "tests/support/test_engine.h"
#include "tests/support/test_thread.h"

namespace valmere::test {
namespace {

constexpr const char* kUnknownFormatLine =
    "DataHandlerManager encountered an unknown stream format";

std::uint32_t Recognised(std::string_view) {
  return 0;
}

// Runs Handle on the test's own thread.
class DataHandlerManagerTest : public ::testing::Test {
 protected:
  int Handle(std::vector<std::string> pieces) {
    connection = std::make_shared<ScriptedConnection>(std::move(pieces));
    return manager.Handle(
        std::make_shared<PeekableStream>(std::make_shared<ClientConnection>(connection)));
  }
  std::shared_ptr<FakeFactory> Register(FakeFactory::ScoreFunction score, int result) {
    auto factory = std::make_shared<FakeFactory>(std::move(score), result);
    manager.RegisterFactory(factory);
    return factory;
  }

  const std::shared_ptr<PropertyEngine> engine = MakeTestEngine();
  const std::shared_ptr<CollectingLog> log = std::make_shared<CollectingLog>();
  const std::shared_ptr<TaskQueue> tasks = std::make_shared<TaskQueue>(kTestPriority);
  DataHandlerManager manager{ServiceContext{engine}, log, tasks, kTestPriority};
  std::shared_ptr<ScriptedConnection> connection;
};

TEST_F(DataHandlerManagerTest, LooksAtThirtyTwoBytesByOneRead) {
  Register(Recognised, 7);
  Handle({std::string(100, 'x')});
  EXPECT_EQ((std::vector<int>{32}), connection->reads());
}

TEST_F(DataHandlerManagerTest, ReturnsWhatServeReturns) {
  Register(Recognised, 7);
  EXPECT_EQ(7, Handle({"x"}));
  EXPECT_TRUE(log->lines().empty());
}

TEST_F(DataHandlerManagerTest, ServesWithTheServiceAndTheStreamFromItsFirstByte) {
  const auto factory = Register(Recognised, 7);
  std::string first;
  const PropertyEngine* served_with = nullptr;
  factory->OnServe([&](const ServiceContext& context, PeekableStream& stream) {
    served_with = context.engine.get();
    char bytes[8];
    const int count = stream.Read(bytes, 4);
    first.assign(bytes, static_cast<std::size_t>(count));
  });
  Handle({"abcdef"});
  EXPECT_EQ(engine.get(), served_with);
  EXPECT_EQ("abcd", first);
}

TEST_F(DataHandlerManagerTest, ChoosesTheLowestScore) {
  const auto good = [](std::string_view) { return 5u; };
  const auto better = [](std::string_view) { return 4u; };
  const auto worse = [](std::string_view) { return 6u; };
  Register(good, 1);
  Register(better, 2);
  Register(worse, 3);
  EXPECT_EQ(2, Handle({"x"}));
}

TEST_F(DataHandlerManagerTest, ChoosesTheFirstOfTwoThatScoreZero) {
  const auto first = Register(Recognised, 1);
  const auto second = Register(Recognised, 2);
  EXPECT_EQ(1, Handle({"x"}));
  EXPECT_EQ(1, first->created());
  EXPECT_EQ(0, second->created());
}

TEST_F(DataHandlerManagerTest, TakesNoScoreFrom65535Upwards) {
  for (const std::uint32_t score : {0xffffu, 0x10000u, 0xfffffffeu, 0xffffffffu}) {
    DataHandlerManager own_manager(ServiceContext{engine}, log, tasks, kTestPriority);
    const auto factory =
        std::make_shared<FakeFactory>([score](std::string_view) { return score; }, 1);
    own_manager.RegisterFactory(factory);
    const auto stream = std::make_shared<PeekableStream>(std::make_shared<ClientConnection>(
        std::make_shared<ScriptedConnection>(std::vector<std::string>{"x"})));
    EXPECT_EQ(0, own_manager.Handle(stream)) << score;
    EXPECT_EQ(0, factory->created()) << score;
  }
  EXPECT_EQ(4u, log->lines().size());
}

TEST_F(DataHandlerManagerTest, TakesAScoreOf65534) {
  Register([](std::string_view) { return 0xfffeu; }, 1);
  EXPECT_EQ(1, Handle({"x"}));
}

TEST_F(DataHandlerManagerTest, LogsAStreamThatCantBeReadOnceAsUnknown) {
  Register(Recognised, 1);
  for (const int end : {0, Connection::kGone, Connection::kFailed, Connection::kDrained}) {
    const auto closed = std::make_shared<ScriptedConnection>();
    closed->EndWith(end);
    EXPECT_EQ(0, manager.Handle(
                     std::make_shared<PeekableStream>(std::make_shared<ClientConnection>(closed))));
    EXPECT_EQ(std::vector<std::string>{kUnknownFormatLine}, log->TakeLines()) << end;
    EXPECT_EQ(1u, closed->reads().size());
  }
}

TEST_F(DataHandlerManagerTest, LogsAStreamThatNoHandlerRecognisesOnceWhenItEnds) {
  const auto factory =
      Register([](std::string_view) { return DataHandlerFactory::kNotRecognised; }, 1);
  EXPECT_EQ(0, Handle({std::string(1000, 'x')}));
  EXPECT_EQ(std::vector<std::string>{kUnknownFormatLine}, log->lines());
  EXPECT_LT(1, factory->scored()) << "each peek is followed by a look at what is kept";
  EXPECT_EQ(Connection::kGone, connection->Read(nullptr, 0)) << "the stream was read to its end";
}

TEST_F(DataHandlerManagerTest, ExplainsTheEndOfAStreamOfAnUnknownFormat) {
  Register([](std::string_view) { return 0xffffu; }, 1);
  Handle({"x"});
  EXPECT_EQ((std::vector<std::string>{"what it sent is of no format that is known"}),
            connection->causes());
  Handle({});
  EXPECT_TRUE(connection->causes().empty()) << "it sent nothing";
}

TEST_F(DataHandlerManagerTest, LogsNothingWhenItHasNoLog) {
  DataHandlerManager silent(ServiceContext{engine}, nullptr, tasks, kTestPriority);
  EXPECT_EQ(0, silent.Handle(std::make_shared<PeekableStream>(
                   std::make_shared<ClientConnection>(std::make_shared<ScriptedConnection>()))));
}

TEST_F(DataHandlerManagerTest, HasNoFactoryToBeginWith) {
  EXPECT_EQ(0, Handle({FrameOf("{}")}));
  EXPECT_EQ(std::vector<std::string>{kUnknownFormatLine}, log->lines());
}

TEST_F(DataHandlerManagerTest, LooksAgainUntilAFactoryRecognisesWhatIsKept) {
  const auto factory =
      Register([](std::string_view kept) { return kept == "abc" ? 0u : 0xffffffffu; }, 9);
  EXPECT_EQ(9, Handle({"a", "b", "c", "d"}));
  EXPECT_EQ(3, factory->scored());
  EXPECT_TRUE(log->lines().empty());
}

TEST_F(DataHandlerManagerTest, ShowsEveryFactoryTheStreamFromItsStart) {
  std::vector<std::string> seen;
  const auto look = [&seen](std::string_view kept) {
    seen.emplace_back(kept);
    return DataHandlerFactory::kNotRecognised;
  };
  Register(look, 1);
  Register(look, 2);
  Handle({"abc", "de"});
  EXPECT_EQ((std::vector<std::string>{"abc", "abc", "abcde", "abcde"}), seen);
}

TEST_F(DataHandlerManagerTest, ReturnsZeroAndLogsNothingWhenNoHandlerCanBeMade) {
  const auto factory = Register(Recognised, 1);
  factory->CreateNothing();
  EXPECT_EQ(0, Handle({"x"}));
  EXPECT_EQ(1, factory->created());
  EXPECT_TRUE(log->lines().empty());
  EXPECT_EQ((std::vector<int>{32}), connection->reads());
}

TEST_F(DataHandlerManagerTest, CreatesAndServesWithoutTheLockOfTheFactories) {
  const auto factory = Register(Recognised, 1);
  std::vector<std::unique_ptr<TestThread>> threads;
  // Another thread registers a factory while this one creates and serves.
  const auto register_elsewhere = [&] {
    const auto done = std::make_shared<std::atomic<bool>>(false);
    threads.push_back(std::make_unique<TestThread>([this, done] {
      manager.RegisterFactory(std::make_shared<FakeFactory>(Recognised, 2));
      *done = true;
    }));
    EXPECT_TRUE(Eventually([&] { return done->load(); }));
  };
  factory->OnCreate(register_elsewhere);
  factory->OnServe([&](const ServiceContext&, PeekableStream&) { register_elsewhere(); });
  EXPECT_EQ(1, Handle({"x"}));
  EXPECT_EQ(2u, threads.size());
}

TEST_F(DataHandlerManagerTest, GivesAStreamThatStartsWithTheIdentifierToTheJsonHandler) {
  manager.RegisterFactory(std::make_shared<JsonMessageFactory>());
  Handle({FrameOf(R"({"GetAllProperties": true})") + FrameOf(R"({"Disconnect": true})")});
  EXPECT_EQ(std::vector<std::string>{FrameOf(R"({"PropertyGetResponses": []})")},
            connection->writes());
  EXPECT_TRUE(log->lines().empty());
}

TEST_F(DataHandlerManagerTest, RecognisesAnIdentifierThatComesInDribs) {
  manager.RegisterFactory(std::make_shared<JsonMessageFactory>());
  const std::string text = R"({"GetAllProperties": true})";
  const std::string frame = FrameOf(text);
  for (const std::size_t drib : {1u, 3u, 5u, 15u}) {
    std::vector<std::string> pieces;
    std::size_t at = 0;
    for (; at < 16; at += drib)
      pieces.push_back(frame.substr(at, drib));
    pieces.push_back(frame.substr(at));
    Handle(pieces);
    // The length may lie across what was peeked; the rest then comes by one read.
    EXPECT_EQ(std::vector<std::string>{FrameOf(R"({"PropertyGetResponses": []})")},
              connection->writes())
        << drib;
  }
}

TEST_F(DataHandlerManagerTest, PeeksAStreamOfAnyOtherBeginningUntilItFails) {
  manager.RegisterFactory(std::make_shared<JsonMessageFactory>());
  const std::string frame = FrameOf(R"({"GetAllProperties": true})");
  for (std::size_t wrong = 0; wrong < 16; ++wrong) {
    std::string broken = frame;
    broken[wrong] = static_cast<char>(broken[wrong] ^ 1);
    EXPECT_EQ(0, Handle({broken, frame})) << wrong;
    EXPECT_TRUE(connection->writes().empty()) << wrong;
    EXPECT_EQ(std::vector<std::string>{kUnknownFormatLine}, log->TakeLines()) << wrong;
  }
}

TEST_F(DataHandlerManagerTest, DoesNotFindAnIdentifierBehindGarbage) {
  manager.RegisterFactory(std::make_shared<JsonMessageFactory>());
  for (const std::size_t garbage : {1u, 15u, 16u, 31u, 32u, 64u}) {
    EXPECT_EQ(0, Handle({std::string(garbage, '?') + FrameOf(R"({"GetAllProperties": true})")}));
    EXPECT_TRUE(connection->writes().empty()) << garbage;
    EXPECT_EQ(1u, log->TakeLines().size()) << garbage;
  }
}

TEST_F(DataHandlerManagerTest, TreatsFewerBytesThanAnIdentifierAsUnknown) {
  manager.RegisterFactory(std::make_shared<JsonMessageFactory>());
  EXPECT_EQ(0, Handle({IdentifierBytes().substr(0, 15)}));
  EXPECT_EQ(std::vector<std::string>{kUnknownFormatLine}, log->lines());
}

}  // namespace
}  // namespace valmere::test
