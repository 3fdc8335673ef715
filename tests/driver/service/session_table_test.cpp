#include "driver/service/session_table.h"

#include <gtest/gtest.h>

#include <atomic>
#include <vector>

#include "tests/driver/service/recording_sink.h"
#include "tests/support/test_thread.h"

namespace valmere::test {
namespace {

class DriverSessionTableTest : public ::testing::Test {
 protected:
  std::shared_ptr<RecordingSink> sink_ = std::make_shared<RecordingSink>();
  DriverSessionTable table_{sink_};
};

TEST_F(DriverSessionTableTest, HandlesCountUpFromOneAndAreNotUsedAgain) {
  EXPECT_EQ(table_.Open(), 1u);
  EXPECT_EQ(table_.Open(), 2u);
  EXPECT_TRUE(table_.Close(1));
  EXPECT_EQ(table_.Open(), 3u);
  EXPECT_TRUE(table_.Close(3));
  EXPECT_EQ(table_.Open(), 4u);
}

TEST_F(DriverSessionTableTest, FindsOpenHandlesOnly) {
  EXPECT_EQ(table_.Find(1), nullptr);
  table_.Open();
  table_.Open();
  EXPECT_NE(table_.Find(1), nullptr);
  EXPECT_NE(table_.Find(1), table_.Find(2));
  EXPECT_EQ(table_.Find(1), table_.Find(1));
  EXPECT_EQ(table_.Find(0), nullptr);
  EXPECT_EQ(table_.Find(3), nullptr);
  EXPECT_EQ(table_.Find(0xffffffff), nullptr);
  table_.Close(1);
  EXPECT_EQ(table_.Find(1), nullptr);
  EXPECT_NE(table_.Find(2), nullptr);
}

TEST_F(DriverSessionTableTest, ClosesAHandleOnce) {
  EXPECT_FALSE(table_.Close(1));
  table_.Open();
  EXPECT_TRUE(table_.Close(1));
  EXPECT_FALSE(table_.Close(1));
  EXPECT_FALSE(table_.Close(0));
}

TEST_F(DriverSessionTableTest, HandsTheSessionsStreamToItsSink) {
  table_.Find(table_.Open())->Write("x", 1);
  EXPECT_EQ(sink_->streams().size(), 1u);
}

TEST_F(DriverSessionTableTest, ASessionOutlivesItsHandleWhileItIsHeld) {
  table_.Open();
  std::shared_ptr<DriverSession> session = table_.Find(1);
  const std::weak_ptr<DriverSession> watched = session;
  table_.Close(1);
  EXPECT_FALSE(session->IsOpen());
  EXPECT_EQ(session->Write("x", 1), 1);
  char byte;
  EXPECT_EQ(session->Read(&byte, 1), Connection::kDrained);
  session.reset();
  EXPECT_TRUE(watched.expired());
}

TEST_F(DriverSessionTableTest, ClosingAHandleReleasesItsReader) {
  table_.Open();
  const std::shared_ptr<DriverSession> session = table_.Find(1);
  int count = 0;
  {
    TestThread reader([&] {
      char byte;
      count = session->Read(&byte, 1);
    });
    table_.Close(1);
  }
  EXPECT_EQ(count, Connection::kDrained);
}

TEST_F(DriverSessionTableTest, CloseAllClosesEverySessionAndEmptiesTheTable) {
  std::vector<std::shared_ptr<DriverSession>> sessions;
  for (int i = 0; i < 10; ++i)
    sessions.push_back(table_.Find(table_.Open()));
  table_.CloseAll();
  for (const auto& session : sessions) {
    EXPECT_FALSE(session->IsOpen());
    EXPECT_EQ(session.use_count(), 1);
  }
  EXPECT_EQ(table_.Find(1), nullptr);
  EXPECT_FALSE(table_.Close(1));
  EXPECT_EQ(table_.Open(), 11u);
}

TEST_F(DriverSessionTableTest, ATableThatGoesReleasesItsReaders) {
  auto table = std::make_unique<DriverSessionTable>(sink_);
  const std::shared_ptr<DriverSession> session = table->Find(table->Open());
  int count = 0;
  {
    TestThread reader([&] {
      char byte;
      count = session->Read(&byte, 1);
    });
    table.reset();
  }
  EXPECT_EQ(count, Connection::kDrained);
}

TEST_F(DriverSessionTableTest, GivesEachOfManyThreadsHandlesOfItsOwn) {
  constexpr int kThreads = 4;
  constexpr std::uint32_t kRounds = 500;
  std::atomic<std::uint32_t> served{0};
  {
    std::vector<TestThread> threads;
    for (int i = 0; i < kThreads; ++i) {
      threads.emplace_back([&] {
        for (std::uint32_t round = 0; round < kRounds; ++round) {
          const std::uint32_t handle = table_.Open();
          const auto session = table_.Find(handle);
          // A handle that two were given would be gone for one of them.
          if (session && session->Write("x", 1) == 1 && table_.Close(handle) &&
              !table_.Find(handle))
            ++served;
        }
      });
    }
  }
  EXPECT_EQ(served, kThreads * kRounds);
  EXPECT_EQ(sink_->streams().size(), kThreads * kRounds);
  EXPECT_EQ(table_.Open(), kThreads * kRounds + 1);
}

}  // namespace
}  // namespace valmere::test
