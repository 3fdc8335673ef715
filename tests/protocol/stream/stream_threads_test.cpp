// The threads of DataHandlerManager: one per stream, ended and released with it.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "driver/sync/event_flags.h"
#include "driver/sync/live_counters.h"
#include "driver/sync/lock.h"
#include "driver/sync/task_queue.h"
#include "driver/sync/worker_thread.h"
#include "protocol/stream/data_handler_manager.h"
#include "protocol/stream/json_message_handler.h"
#include "tests/support/scripted_connection.h"
#include "tests/support/stream_fakes.h"
#include "tests/support/test_thread.h"

namespace valmere::test {
namespace {

class StreamThreads : public ::testing::Test {
 protected:
  // Reads the stream to its end.
  static void Drain(const ServiceContext&, PeekableStream& stream) {
    char byte;
    while (stream.Read(&byte, 1) > 0) {
    }
  }

  // A manager whose streams are all served by `serve`.
  void Start(FakeFactory::ServeFunction serve) {
    const auto factory = std::make_shared<FakeFactory>([](std::string_view) { return 0u; }, 1);
    factory->OnServe(std::move(serve));
    manager->RegisterFactory(factory);
  }
  std::shared_ptr<ScriptedConnection> AddOpen(std::string first) {
    auto connection =
        std::make_shared<ScriptedConnection>(std::vector<std::string>{std::move(first)});
    connection->HoldOpen();
    manager->AddStream(connection);
    return connection;
  }
  bool AllReleased() {
    return Eventually([&] { return manager->LiveStreams() == 0; });
  }

  const std::uint32_t threads_before = LiveWorkerThreads::Live();
  std::shared_ptr<TaskQueue> tasks = std::make_shared<TaskQueue>(kTestPriority);
  std::shared_ptr<CollectingLog> log = std::make_shared<CollectingLog>();
  std::unique_ptr<DataHandlerManager> manager =
      std::make_unique<DataHandlerManager>(ServiceContext{}, log, tasks, kTestPriority);
};

TEST_F(StreamThreads, ServeSeveralStreamsAtOnce) {
  constexpr int kStreams = 8;
  std::atomic<int> serving{0};
  platform::Semaphore go_on;
  Start([&](const ServiceContext&, PeekableStream&) {
    ++serving;
    go_on.Wait();
  });
  std::vector<std::shared_ptr<ScriptedConnection>> streams;
  for (int i = 0; i < kStreams; ++i)
    streams.push_back(AddOpen("x"));
  EXPECT_TRUE(Eventually([&] { return serving == kStreams; }));
  EXPECT_EQ(static_cast<std::size_t>(kStreams), manager->LiveStreams());
  for (int i = 0; i < kStreams; ++i)
    go_on.Release();
  EXPECT_TRUE(AllReleased());
}

TEST_F(StreamThreads, LeaveNothingBehindWhenTheirStreamsEnd) {
  Start(Drain);
  std::weak_ptr<ScriptedConnection> last;
  for (int i = 0; i < 20; ++i) {
    const auto connection =
        std::make_shared<ScriptedConnection>(std::vector<std::string>{"x", "y"});
    last = connection;
    manager->AddStream(connection);
  }
  EXPECT_TRUE(AllReleased());
  EXPECT_TRUE(Eventually([&] { return LiveWorkerThreads::Live() == threads_before + 1; }))
      << "all but the task queue's worker";
  EXPECT_TRUE(Eventually([&] { return last.expired(); }));
}

TEST_F(StreamThreads, CloseTheirStreamWhenServeHasReturned) {
  std::atomic<bool> was_open{false};
  platform::Semaphore go_on;
  Start([&](const ServiceContext&, PeekableStream& stream) {
    go_on.Wait();
    was_open = stream.IsOpen();
  });
  const auto connection = AddOpen("x");
  go_on.Release();
  EXPECT_TRUE(Eventually([&] { return !connection->IsOpen(); }));
  EXPECT_TRUE(was_open);
  EXPECT_TRUE(AllReleased());
}

TEST_F(StreamThreads, CloseAStreamThatNoHandlerRecognises) {
  const auto connection = std::make_shared<ScriptedConnection>(std::vector<std::string>{"x"});
  manager->AddStream(connection);
  EXPECT_TRUE(AllReleased());
  EXPECT_FALSE(connection->IsOpen());
  EXPECT_EQ(1u, log->lines().size());
}

TEST_F(StreamThreads, EndTheirStreamAloneWhenServeThrows) {
  Start([](const ServiceContext&, PeekableStream& stream) {
    char byte;
    while (stream.Read(&byte, 1) > 0)
      if (byte == '!') throw std::bad_alloc();
  });
  const auto quiet = AddOpen("x");
  const auto failing = AddOpen("!");
  EXPECT_TRUE(Eventually([&] { return manager->LiveStreams() == 1; }));
  EXPECT_FALSE(failing->IsOpen());
  EXPECT_TRUE(quiet->IsOpen());
  quiet->Deliver("!");
  EXPECT_TRUE(AllReleased());
}

TEST_F(StreamThreads, EndWithTheManagerWhereverTheyWait) {
  Start(Drain);
  std::vector<std::shared_ptr<ScriptedConnection>> streams;
  for (int i = 0; i < 10; ++i)
    streams.push_back(AddOpen("x"));  // wait in a read of the handler
  for (int i = 0; i < 10; ++i) {
    streams.push_back(std::make_shared<ScriptedConnection>());  // wait in the first peek
    streams.back()->HoldOpen();
    manager->AddStream(streams.back());
  }
  EXPECT_TRUE(Eventually([&] {
    for (const auto& stream : streams)
      if (stream->reads().empty()) return false;
    return true;
  }));
  manager.reset();
  for (const auto& stream : streams)
    EXPECT_FALSE(stream->IsOpen());
  tasks.reset();
  EXPECT_EQ(threads_before, LiveWorkerThreads::Live());
  for (const auto& stream : streams)
    EXPECT_EQ(1, stream.use_count());
}

TEST_F(StreamThreads, EndWithTheManagerAllAtOnce) {
  Start(Drain);
  std::vector<std::shared_ptr<ScriptedConnection>> streams;
  for (int i = 0; i < 50; ++i)
    streams.push_back(AddOpen("x"));
  const platform::Ticks begin = platform::MonotonicNow();
  manager.reset();
  // Ended by force one after another, they would take half a second each.
  EXPECT_GT(10'000 * platform::kTicksPerMillisecond, platform::MonotonicNow() - begin);
}

// With a lock held none of them can be ended by force: each is left behind with all that it needs.
TEST_F(StreamThreads, ShareTheTimeToEndAndOutliveTheManagerWhenTheyAreStuck) {
  constexpr int kStreams = 30;
  std::atomic<int> serving{0};
  EventFlags go_on(EventFlags::AutoClear::kNo);
  Start([&](const ServiceContext&, PeekableStream&) {
    Lock own;
    const ScopedLock hold(own);
    ++serving;
    go_on.Wait(1);
  });
  std::vector<std::shared_ptr<ScriptedConnection>> streams;
  for (int i = 0; i < kStreams; ++i)
    streams.push_back(AddOpen("x"));
  EXPECT_TRUE(Eventually([&] { return serving == kStreams; }));
  const platform::Ticks begin = platform::MonotonicNow();
  manager.reset();
  EXPECT_GT(kStreams / 2 * WorkerThread::kEndWaitMilliseconds * platform::kTicksPerMillisecond,
            platform::MonotonicNow() - begin);
  tasks.reset();
  EXPECT_EQ(threads_before + kStreams, LiveWorkerThreads::Live());
  EXPECT_EQ(
      std::vector<std::string>{"Stream threads did not end in time: 0 ended by force, 30 left "
                               "behind"},
      log->lines());
  go_on.Set(1);
  EXPECT_TRUE(Eventually([&] { return LiveWorkerThreads::Live() == threads_before; }));
  for (const auto& stream : streams)
    EXPECT_TRUE(Eventually([&] { return stream.use_count() == 1; }));
}

TEST_F(StreamThreads, MayEndWhileTheManagerDoes) {
  for (int round = 0; round < 20; ++round) {
    Start(Drain);
    std::vector<std::shared_ptr<ScriptedConnection>> streams;
    for (int i = 0; i < 4; ++i)
      streams.push_back(AddOpen("x"));
    for (const auto& stream : streams)
      stream->Close();
    manager.reset();
    manager = std::make_unique<DataHandlerManager>(ServiceContext{}, log, tasks, kTestPriority);
  }
  manager.reset();
  tasks.reset();
  EXPECT_EQ(threads_before, LiveWorkerThreads::Live());
}

TEST_F(StreamThreads, AreReleasedByTheTaskQueueAlsoAfterTheManagerHasGone) {
  Start(Drain);
  platform::Semaphore busy;
  tasks->Push([&] { busy.Wait(); });
  const auto connection = AddOpen("x");
  connection->Close();
  EXPECT_EQ(1u, manager->LiveStreams()) << "the queue that would release it is busy";
  manager.reset();
  EXPECT_EQ(threads_before + 1, LiveWorkerThreads::Live());
  busy.Release();
  tasks.reset();
  EXPECT_EQ(threads_before, LiveWorkerThreads::Live());
}

TEST_F(StreamThreads, AreStartedFromManyThreadsAtOnce) {
  Start(Drain);
  {
    std::vector<TestThread> adders;
    for (int i = 0; i < 4; ++i)
      adders.emplace_back([&] {
        for (int j = 0; j < 10; ++j)
          manager->AddStream(std::make_shared<ScriptedConnection>(std::vector<std::string>{"x"}));
      });
  }
  EXPECT_TRUE(AllReleased());
}

}  // namespace
}  // namespace valmere::test
