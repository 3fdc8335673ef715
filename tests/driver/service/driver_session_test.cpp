#include "driver/service/driver_session.h"

#include <gtest/gtest.h>

#include <new>
#include <string>
#include <vector>

#include "tests/driver/service/recording_sink.h"
#include "tests/support/test_thread.h"

namespace valmere::test {
namespace {

class DriverSessionTest : public ::testing::Test {
 protected:
  // The service's end; the session must be attached.
  Connection& service() { return *sink_->streams().front(); }
  std::size_t attached() const { return sink_->streams().size(); }

  std::shared_ptr<RecordingSink> sink_ = std::make_shared<RecordingSink>();
  DriverSession session_{sink_};
};

TEST_F(DriverSessionTest, IsUnknownToTheServiceUntilItIsWrittenTo) {
  EXPECT_EQ(attached(), 0u);
}

TEST_F(DriverSessionTest, TheFirstWriteAttachesItWithItsBytes) {
  EXPECT_EQ(session_.Write("request", 7), 7);
  ASSERT_EQ(attached(), 1u);
  char bytes[16];
  EXPECT_EQ(service().Read(bytes, sizeof bytes), 7);
  EXPECT_EQ(std::string(bytes, 7), "request");
}

TEST_F(DriverSessionTest, IsAttachedOnce) {
  session_.Write("a", 1);
  session_.Write("b", 1);
  EXPECT_EQ(attached(), 1u);
  char bytes[16];
  EXPECT_EQ(service().Read(bytes, sizeof bytes), 2);
}

TEST_F(DriverSessionTest, AnEmptyFirstWriteDoesNotAttachIt) {
  EXPECT_EQ(session_.Write("", 0), 0);
  EXPECT_EQ(session_.Write(nullptr, 0), 0);
  EXPECT_EQ(attached(), 0u);
  EXPECT_EQ(session_.Write("x", 1), 1);
  EXPECT_EQ(attached(), 1u);
}

TEST_F(DriverSessionTest, AReplyLongerThanTheReadComesInSeveral) {
  session_.Write("x", 1);
  service().Write("0123456789", 10);
  std::string reply;
  char bytes[4];
  while (reply.size() < 10) {
    const int count = session_.Read(bytes, sizeof bytes);
    ASSERT_GT(count, 0);
    reply.append(bytes, static_cast<std::size_t>(count));
  }
  EXPECT_EQ(reply, "0123456789");
}

TEST_F(DriverSessionTest, AReadWaitsForTheReply) {
  session_.Write("x", 1);
  const auto stream = sink_->streams().front();
  TestThread service([&] {
    char byte;
    while (stream->Read(&byte, 1) == 1)
      stream->Write(&byte, 1);
  });
  char byte = 0;
  for (int i = 0; i < 500; ++i) {
    ASSERT_EQ(session_.Read(&byte, 1), 1);
    ASSERT_EQ(session_.Write("x", 1), 1);
  }
  session_.Close();
}

TEST_F(DriverSessionTest, CloseWakesTheReaderOfANeverWrittenSession) {
  int count = 0;
  {
    TestThread reader([&] {
      char byte;
      count = session_.Read(&byte, 1);
    });
    session_.Close();
  }
  EXPECT_EQ(count, Connection::kDrained);
}

TEST_F(DriverSessionTest, CloseEndsTheServicesSide) {
  session_.Write("x", 1);
  session_.Close();
  EXPECT_FALSE(session_.IsOpen());
  EXPECT_FALSE(service().IsOpen());
  char byte;
  EXPECT_EQ(service().Read(&byte, 1), 1);
  EXPECT_EQ(service().Read(&byte, 1), Connection::kDrained);
}

TEST_F(DriverSessionTest, WhatTheServiceWroteCanBeReadAfterClose) {
  session_.Write("x", 1);
  service().Write("reply", 5);
  session_.Close();
  char bytes[16];
  EXPECT_EQ(session_.Read(bytes, sizeof bytes), 5);
  EXPECT_EQ(session_.Read(bytes, sizeof bytes), Connection::kDrained);
}

TEST_F(DriverSessionTest, WritesAfterTheServiceHasEndedItAreCountedAndDropped) {
  session_.Write("x", 1);
  service().Close();
  EXPECT_FALSE(session_.IsOpen());
  EXPECT_EQ(session_.Write("dropped", 7), 7);
  char bytes[16];
  EXPECT_EQ(service().Read(bytes, sizeof bytes), 1);
  EXPECT_EQ(service().Read(bytes, sizeof bytes), Connection::kDrained);
}

TEST_F(DriverSessionTest, AWriteAfterCloseAttachesNothing) {
  session_.Close();
  EXPECT_EQ(session_.Write("late", 4), 4);
  EXPECT_EQ(attached(), 0u);
}

// The service must be able to go while a read or write of a closed session is still on its way out.
TEST_F(DriverSessionTest, KeepsNoHoldOnTheSinkOnceAttachedOrClosed) {
  DriverSession closed(sink_);
  EXPECT_EQ(sink_.use_count(), 3);
  closed.Close();
  EXPECT_EQ(sink_.use_count(), 2);
  session_.Write("x", 1);
  EXPECT_EQ(sink_.use_count(), 1);
}

// No client reads such a session: its own reader must not wait for a reply, nor its bytes pile up.
TEST_F(DriverSessionTest, IsClosedWhenItCannotBeAttached) {
  class FailingSink : public StreamSink {
   public:
    void AddStream(std::shared_ptr<Connection>) override { throw std::bad_alloc(); }
  };
  DriverSession session(std::make_shared<FailingSink>());
  EXPECT_THROW(session.Write("x", 1), std::bad_alloc);
  EXPECT_FALSE(session.IsOpen());
  char byte;
  EXPECT_EQ(session.Read(&byte, 1), Connection::kDrained);
  EXPECT_EQ(session.Write("x", 1), 1);
}

TEST_F(DriverSessionTest, ManyFirstWritesAtOnceAttachItOnce) {
  for (int round = 0; round < 50; ++round) {
    const auto sink = std::make_shared<RecordingSink>();
    DriverSession session(sink);
    {
      std::vector<TestThread> writers;
      for (int i = 0; i < 4; ++i)
        writers.emplace_back([&] { session.Write("12345", 5); });
    }
    ASSERT_EQ(sink->streams().size(), 1u);
    char bytes[32];
    ASSERT_EQ(sink->streams().front()->Read(bytes, sizeof bytes), 20);
  }
}

// In either order, a stream that the sink was given does end.
TEST_F(DriverSessionTest, TheFirstWriteMayMeetTheClose) {
  for (int round = 0; round < 50; ++round) {
    const auto sink = std::make_shared<RecordingSink>();
    DriverSession session(sink);
    {
      TestThread writer([&] { EXPECT_EQ(session.Write("x", 1), 1); });
      TestThread closer([&] { session.Close(); });
    }
    ASSERT_LE(sink->streams().size(), 1u);
    for (const auto& stream : sink->streams()) {
      char byte;
      while (stream->Read(&byte, 1) == 1) {
      }
      ASSERT_EQ(stream->Read(&byte, 1), Connection::kDrained);
    }
  }
}

}  // namespace
}  // namespace valmere::test
