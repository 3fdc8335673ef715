// The end of the engine, and many clients at once.
#include "store/engine/property_engine.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "driver/sync/live_counters.h"
#include "protocol/message/property_message.h"
#include "store/property/string_property.h"
#include "tests/store/engine/engine_fixture.h"
#include "tests/support/frames.h"
#include "tests/support/scripted_connection.h"
#include "tests/support/test_engine.h"
#include "tests/support/test_thread.h"

namespace valmere::test {
namespace {

class EngineEnd : public EngineTest {};

TEST_F(EngineEnd, IsTheEndOfPublishing) {
  const std::uint32_t workers = LiveWorkerThreads::Live();
  ASSERT_TRUE(engine->Start(249));
  EXPECT_EQ(workers + 1, LiveWorkerThreads::Live());
  Client subscriber;
  EXPECT_TRUE(Send(subscriber, Message({kSubscribeAll})));
  const auto property = AddOwn("P", "V");
  property->SetValue("W");
  EXPECT_TRUE(Eventually([&] { return !subscriber.stream->writes().empty(); }));
  engine->End();
  EXPECT_EQ(workers, LiveWorkerThreads::Live());
  subscriber.TakeTexts();
  property->SetValue("X");
  for (int pass = 0; pass < 4; ++pass)
    engine->PublishPass();
  EXPECT_TRUE(subscriber.TakeTexts().empty());
  EXPECT_EQ(Responses({OwnEntry("P", "X")}), Get("OWN", "G:P")) << "requests are answered still";
  engine->End();
}

TEST_F(EngineEnd, NeedsNoStart) {
  engine->End();
  engine->End();
}

// A stream thread that is left behind holds the engine; the publishing thread does not.
TEST_F(EngineEnd, LeavesTheEngineToItsOtherHolders) {
  ASSERT_TRUE(engine->Start(249));
  EXPECT_EQ(1, engine.use_count());
  const std::weak_ptr<PropertyEngine> gone = [] {
    const auto started = MakeTestEngine();
    started->Start(249);
    return std::weak_ptr<PropertyEngine>(started);
  }();
  EXPECT_TRUE(gone.expired());
}

// Counts how many threads are inside a write at once, and checks each frame.
class WatchedConnection final : public Connection {
 public:
  int Read(void*, int) override { return kFailed; }
  int Write(const void* buffer, int length) override {
    if (inside_.fetch_add(1) != 0) overlapped = true;
    const std::string frame(static_cast<const char*>(buffer), static_cast<std::size_t>(length));
    if (FrameOf(frame.substr(20)) != frame) broken = true;
    ++frames;
    inside_.fetch_sub(1);
    return length;
  }
  void Close() override { open_ = false; }
  bool IsOpen() const override { return open_; }

  std::atomic<bool> overlapped{false};
  std::atomic<bool> broken{false};
  std::atomic<int> frames{0};

 private:
  std::atomic<int> inside_{0};
  std::atomic<bool> open_{true};
};

TEST(PropertyEngine, ServesManyClientsAtOnce) {
  constexpr int kClients = 4;
  constexpr int kRounds = 100;
  const auto engine = MakeTestEngine();
  engine->Start(249);
  engine->AddProperty(StringProperty::Make("v", "P", "Name", "G", "Group"));
  std::vector<std::shared_ptr<WatchedConnection>> streams;
  std::atomic<int> failures{0};
  {
    std::vector<TestThread> threads;
    for (int i = 0; i < kClients; ++i) {
      streams.push_back(std::make_shared<WatchedConnection>());
      threads.emplace_back([&, i, stream = streams.back()] {
        const auto connection = std::make_shared<ClientConnection>(stream);
        const std::string component(1, static_cast<char>('A' + i));
        const std::string next(1, static_cast<char>('A' + (i + 1) % kClients));
        const auto send = [&](const std::string& text) {
          ScriptedConnection frame({FrameOf(text)});
          PropertyMessage message;
          ReplyBuffer reply;
          if (!message.Read(frame) || !engine->HandleMessage(message, connection, reply))
            ++failures;
        };
        for (int round = 0; round < kRounds; ++round) {
          send(Message({kSubscribe, kSubscribeAll, kSetOwn}));
          send(Responses({{.component = component, .value = std::to_string(round)}}));
          send(R"({"PropertySetRequests": [{"Component": ")" + next +
               R"(","GUID": "G:P","Value": "x"}]})");
          send(kGetAllText);
          engine->ConnectionEnded(*connection);
        }
      });
    }
  }
  EXPECT_EQ(0, failures);
  for (const auto& stream : streams) {
    EXPECT_FALSE(stream->overlapped);
    EXPECT_FALSE(stream->broken);
    EXPECT_LE(kRounds, stream->frames);
  }
}

}  // namespace
}  // namespace valmere::test
