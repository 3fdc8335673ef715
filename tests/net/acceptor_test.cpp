#include "net/acceptor.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <stdexcept>
#include <utility>
#include <vector>

#include "driver/sync/live_counters.h"
#include "net/listener_factory.h"
#include "net/tcp_connection.h"
#include "net/tcp_listener.h"
#include "tests/support/test_thread.h"

namespace valmere::test {
namespace {

constexpr int kPriority = 249;

// Keeps what it is given.
class CollectingSink final : public StreamSink {
 public:
  void AddStream(std::shared_ptr<Connection> stream) override {
    const ScopedLock hold(lock_);
    streams_.push_back(std::move(stream));
  }
  std::size_t count() const {
    const ScopedLock hold(lock_);
    return streams_.size();
  }
  std::shared_ptr<Connection> at(std::size_t index) const {
    const ScopedLock hold(lock_);
    return streams_.at(index);
  }

 private:
  mutable Lock lock_;
  std::vector<std::shared_ptr<Connection>> streams_ GUARDED_BY(lock_);
};

// Passes everything on and counts the accepts that began and that came back. A thread that is ended
// by force inside one never comes back from it.
class WatchedListener final : public Listener {
 public:
  explicit WatchedListener(std::shared_ptr<Listener> inner) : inner_(std::move(inner)) {}
  std::shared_ptr<Connection> Accept() override {
    ++begun;
    auto connection = inner_->Accept();
    ++ended;
    return connection;
  }
  int Open() override { return inner_->Open(); }
  void Close() override {
    ++closes;
    inner_->Close();
  }

  std::atomic<int> begun{0};
  std::atomic<int> ended{0};
  std::atomic<int> closes{0};

 private:
  const std::shared_ptr<Listener> inner_;
};

class SilentConnection final : public Connection {
 public:
  int Read(void*, int) override { return kFailed; }
  int Write(const void*, int) override { return kFailed; }
  void Close() override {}
  bool IsOpen() const override { return true; }
};

// Fails the first `failures` accepts (all of them when negative), then yields one connection and
// then blocks until it is closed.
class FaultyListener final : public Listener {
 public:
  explicit FaultyListener(int failures, int open_result = 0)
      : failures_(failures), open_result_(open_result) {}
  std::shared_ptr<Connection> Accept() override {
    const int number = accepts++;
    if (failures_ < 0 || number < failures_) return nullptr;
    if (number == failures_) {
      auto connection = std::make_shared<SilentConnection>();
      yielded = connection;
      return connection;
    }
    closed_.Wait(1);
    return nullptr;
  }
  int Open() override {
    ++opens;
    return open_result_;
  }
  void Close() override { closed_.Set(1); }

  std::atomic<int> opens{0};
  std::atomic<int> accepts{0};
  std::weak_ptr<Connection> yielded;

 private:
  const int failures_;
  const int open_result_;
  EventFlags closed_{EventFlags::AutoClear::kNo};
};

TEST(Acceptor, HandsEachConnectionToTheSink) {
  const auto listener = std::make_shared<TcpListener>(std::uint16_t{0}, 10);
  const auto sink = std::make_shared<CollectingSink>();
  const Acceptor acceptor(listener, sink, kPriority);
  const auto first = platform::ConnectLoopback(listener->bound_port());
  const auto second = platform::ConnectLoopback(listener->bound_port());
  ASSERT_NE(nullptr, first);
  ASSERT_NE(nullptr, second);
  ASSERT_TRUE(Eventually([&] { return sink->count() == 2; }));
  EXPECT_EQ(1, first->Send("a", 1).count);
  char byte = 0;
  EXPECT_EQ(1, sink->at(0)->Read(&byte, 1));
  EXPECT_EQ('a', byte);
}

TEST(Acceptor, LeavesTheConnectionsThatItHandedOverAlone) {
  const auto listener = std::make_shared<TcpListener>(std::uint16_t{0}, 10);
  const auto sink = std::make_shared<CollectingSink>();
  std::unique_ptr<platform::StreamSocket> client;
  {
    const Acceptor acceptor(listener, sink, kPriority);
    client = platform::ConnectLoopback(listener->bound_port());
    ASSERT_TRUE(Eventually([&] { return sink->count() == 1; }));
  }
  EXPECT_EQ(2, sink->at(0)->Write("ok", 2));
  char byte = 0;
  EXPECT_EQ(1, client->Receive(&byte, 1).count);
}

TEST(Acceptor, EndsItsThreadInOrderWhenATcpListenerIsClosedUnderIt) {
  const auto inner = std::make_shared<TcpListener>(std::uint16_t{0}, 10);
  const auto listener = std::make_shared<WatchedListener>(inner);
  {
    const Acceptor acceptor(listener, std::make_shared<CollectingSink>(), kPriority);
    ASSERT_TRUE(Eventually([&] { return listener->begun == 1; }));
    EXPECT_EQ(1U, LiveWorkerThreads::Live());
  }
  EXPECT_EQ(1, listener->ended);
  EXPECT_EQ(0U, LiveWorkerThreads::Live());
  EXPECT_EQ(0, inner->bound_port());
}

TEST(Acceptor, SleepsOnANullListenerUntilItEnds) {
  const auto listener = std::make_shared<WatchedListener>(MakeListener(kNoListenerPort, 10));
  const auto sink = std::make_shared<CollectingSink>();
  {
    const Acceptor acceptor(listener, sink, kPriority);
    ASSERT_TRUE(Eventually([&] { return listener->begun == 1; }));
    EXPECT_EQ(0, listener->ended);
  }
  EXPECT_EQ(1, listener->begun);
  EXPECT_EQ(1, listener->ended);
  EXPECT_EQ(0U, sink->count());
}

TEST(Acceptor, EndsItsLoopOnCloseAndBearsAnother) {
  const auto listener = std::make_shared<WatchedListener>(MakeListener(kNoListenerPort, 10));
  Acceptor acceptor(listener, std::make_shared<CollectingSink>(), kPriority);
  ASSERT_TRUE(Eventually([&] { return listener->begun == 1; }));
  acceptor.Close();
  EXPECT_TRUE(Eventually([&] { return listener->ended == 1; }));
  acceptor.Close();
  EXPECT_EQ(1, listener->begun);
}

TEST(Acceptor, EndsAnyNumberOfTimesAndItsThreadWithTheFirst) {
  const auto listener = std::make_shared<WatchedListener>(MakeListener(kNoListenerPort, 10));
  Acceptor acceptor(listener, std::make_shared<CollectingSink>(), kPriority);
  ASSERT_TRUE(Eventually([&] { return listener->begun == 1; }));
  acceptor.End();
  EXPECT_EQ(1, listener->ended);
  EXPECT_EQ(0U, LiveWorkerThreads::Live());
  acceptor.End();
  EXPECT_EQ(1, listener->begun);
}

TEST(Acceptor, LeavesNothingAlive) {
  {
    const Acceptor acceptor(MakeListener(kNoListenerPort, 10), std::make_shared<CollectingSink>(),
                            kPriority);
  }
  EXPECT_EQ(0U, LiveWorkerThreads::Live());
  EXPECT_EQ(0U, LiveEventFlags::Live());
}

TEST(Acceptor, StartsNoThreadWhenTheListenerDoesNotOpen) {
  const auto listener = std::make_shared<FaultyListener>(0, -1);
  const auto sink = std::make_shared<CollectingSink>();
  {
    const Acceptor acceptor(listener, sink, kPriority);
    EXPECT_EQ(0U, LiveWorkerThreads::Live());
    EXPECT_EQ(1, listener->opens);
  }
  EXPECT_EQ(0, listener->accepts);
  EXPECT_EQ(0U, sink->count());
}

TEST(Acceptor, StartsNoThreadOnAPortThatIsTaken) {
  TcpListener holder(0, 10);
  ASSERT_EQ(0, holder.Open());
  const Acceptor acceptor(std::make_shared<TcpListener>(holder.bound_port(), 10),
                          std::make_shared<CollectingSink>(), kPriority);
  EXPECT_EQ(0U, LiveWorkerThreads::Live());
}

TEST(Acceptor, GoesOnAfterAFailedAccept) {
  const auto listener = std::make_shared<FaultyListener>(2);
  const auto sink = std::make_shared<CollectingSink>();
  const Acceptor acceptor(listener, sink, kPriority);
  EXPECT_TRUE(Eventually([&] { return sink->count() == 1; }));
}

TEST(Acceptor, DoesNotSpinWhileAcceptsFail) {
  const auto listener = std::make_shared<FaultyListener>(-1);
  const platform::Ticks start = platform::MonotonicNow();
  const Acceptor acceptor(listener, std::make_shared<CollectingSink>(), kPriority);
  ASSERT_TRUE(Eventually([&] { return listener->accepts >= 4; }));
  // Three pauses lie between four accepts.
  EXPECT_GE(platform::MonotonicNow() - start, 300 * platform::kTicksPerMillisecond);
}

class RefusingSink final : public StreamSink {
 public:
  void AddStream(std::shared_ptr<Connection>) override {
    ++offers;
    throw std::runtime_error("no thread to serve it");
  }
  std::atomic<int> offers{0};
};

TEST(Acceptor, DropsAConnectionThatTheSinkCannotTakeAndGoesOn) {
  const auto listener = std::make_shared<FaultyListener>(0);
  const auto sink = std::make_shared<RefusingSink>();
  const Acceptor acceptor(listener, sink, kPriority);
  ASSERT_TRUE(Eventually([&] { return listener->accepts == 2; }));
  EXPECT_EQ(1, sink->offers);
  EXPECT_TRUE(listener->yielded.expired());
}

}  // namespace
}  // namespace valmere::test
