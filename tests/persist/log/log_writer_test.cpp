#include "persist/log/log_writer.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "tests/persist/file/thread_end.h"
#include "tests/platform/processor_time.h"
#include "tests/support/allocations.h"
#include "tests/support/test_thread.h"

namespace valmere::test {
namespace {

// What was written, kept beyond the stream; each write can be held up.
struct Written {
  platform::Lock lock;
  std::vector<std::string> lines;
  std::atomic<bool> held{false};
  std::atomic<bool> thread_returned{false};
  int result = 0;
  platform::Semaphore begun;
  platform::Semaphore go;

  std::vector<std::string> Lines() {
    const platform::ScopedLock hold(lock);
    return lines;
  }
};

class LogStream final : public Connection {
 public:
  explicit LogStream(Written& written) : written_(written) {}
  int Read(void*, int) override { return 0; }
  int Write(const void* buffer, int length) override {
    ThreadEnd::Watch(written_.thread_returned);
    if (written_.held) {
      written_.begun.Release();
      written_.go.Wait();
    }
    const platform::ScopedLock hold(written_.lock);
    written_.lines.emplace_back(static_cast<const char*>(buffer), static_cast<std::size_t>(length));
    return written_.result;
  }
  void Close() override {}
  bool IsOpen() const override { return true; }

 private:
  Written& written_;
};

std::unique_ptr<LogWriter> MakeWriter(Written& written) {
  return std::make_unique<LogWriter>(std::make_unique<LogStream>(written), 253);
}

TEST(LogWriter, WritesEachLineAsItStandsInOrder) {
  Written written;
  const auto writer = MakeWriter(written);
  EXPECT_TRUE(writer->running());
  writer->Write("one\r\n");
  writer->Write(std::string("t\0o", 3));
  EXPECT_TRUE(Eventually([&] { return written.Lines().size() == 2; }));
  EXPECT_EQ(written.Lines(), (std::vector<std::string>{"one\r\n", std::string("t\0o", 3)}));
}

TEST(LogWriter, LosesNoLineWrittenBeforeItsEnd) {
  for (int round = 0; round < 50; ++round) {
    Written written;
    auto writer = MakeWriter(written);
    writer->Write("last");
    writer.reset();
    ASSERT_EQ(written.Lines(), std::vector<std::string>{"last"}) << round;
    ASSERT_TRUE(written.thread_returned) << round;
  }
}

TEST(LogWriter, LosesNoLineOfABurstBeforeItsEnd) {
  Written written;
  auto writer = MakeWriter(written);
  for (std::size_t i = 0; i < LogWriter::kMostLines / 2; ++i)
    writer->Write("line");
  writer.reset();
  EXPECT_EQ(written.Lines().size(), LogWriter::kMostLines / 2);
}

TEST(LogWriter, LosesNoLineOfManyThreads) {
  Written written;
  auto writer = MakeWriter(written);
  {
    std::vector<TestThread> threads;
    for (int t = 0; t < 4; ++t)
      threads.emplace_back([&] {
        for (int i = 0; i < 500; ++i)
          writer->Write("line");
      });
  }
  writer.reset();
  EXPECT_EQ(written.Lines().size(), 2000u);
}

TEST(LogWriter, AWriteThatFailsDropsItsLineOnly) {
  Written written;
  written.result = -1;
  auto writer = MakeWriter(written);
  writer->Write("one");
  writer->Write("two");
  writer.reset();
  EXPECT_EQ(written.Lines(), (std::vector<std::string>{"one", "two"}));
}

TEST(LogWriter, NobodyWaitsForTheStreamAndTooManyLinesAreCounted) {
  Written written;
  written.held = true;
  auto writer = MakeWriter(written);
  writer->Write("held up");
  written.begun.Wait();
  for (std::size_t i = 0; i < LogWriter::kMostLines + 3; ++i)
    writer->Write("waits");
  written.held = false;
  written.go.Release();
  // No further line comes to bring it along.
  EXPECT_TRUE(Eventually([&] { return written.Lines().size() == LogWriter::kMostLines + 2; }));
  writer->Write("after");
  writer.reset();
  const auto lines = written.Lines();
  ASSERT_EQ(lines.size(), LogWriter::kMostLines + 3);
  EXPECT_NE(lines[LogWriter::kMostLines + 1].find(",3 lines came too fast for the log\r\n"),
            std::string::npos);
  EXPECT_EQ(lines.back(), "after");
}

TEST(LogWriter, TellsAtItsEndToo) {
  Written written;
  written.held = true;
  auto writer = MakeWriter(written);
  writer->Write("held up");
  written.begun.Wait();
  for (std::size_t i = 0; i < LogWriter::kMostLines + 1; ++i)
    writer->Write("waits");
  written.held = false;
  TestThread going_on([&] { written.go.Release(); });
  writer.reset();
  EXPECT_NE(written.Lines().back().find(",1 lines came too fast for the log\r\n"),
            std::string::npos);
}

TEST(LogWriter, ALineForWhichThereIsNoMemoryIsCountedAsLost) {
  Written written;
  written.held = true;
  auto writer = MakeWriter(written);
  writer->Write("held up");
  written.begun.Wait();
  for (std::size_t i = 0; i < LogWriter::kReservedLines; ++i)
    writer->Write("waits");
  {
    const LimitedAllocations none(0);
    writer->Write("lost");
  }
  written.held = false;
  written.go.Release();
  EXPECT_TRUE(Eventually([&] { return written.Lines().size() == LogWriter::kReservedLines + 2; }));
  EXPECT_NE(written.Lines().back().find(",1 lines came too fast for the log\r\n"),
            std::string::npos);
}

TEST(LogWriter, TakesNothingAfterItsEnd) {
  Written written;
  auto writer = MakeWriter(written);
  writer->Write("one");
  writer->End();
  EXPECT_FALSE(writer->running());
  EXPECT_TRUE(written.thread_returned);
  writer->Write("two");
  writer->End();
  writer.reset();
  EXPECT_EQ(written.Lines(), std::vector<std::string>{"one"});
}

// A thread stands still with the lock of the lines: it asks for memory for them.
TEST(LogWriter, TakesNoProcessorTimeWhileAnotherThreadHasItsLock) {
  Written written;
  written.held = true;
  auto writer = MakeWriter(written);
  writer->Write("held up");
  written.begun.Wait();
  for (std::size_t i = 0; i < LogWriter::kReservedLines; ++i)
    writer->Write("waits");
  platform::Semaphore standing;
  platform::Semaphore go_on;
  TestThread less_urgent([&] {
    const AtTheNextAllocation stand([&] {
      standing.Release();
      go_on.Wait();
    });
    writer->Write("needs memory");
  });
  standing.Wait();
  written.held = false;
  written.go.Release();
  ASSERT_TRUE(Eventually([&] { return written.Lines().size() == 1; }));
  const platform::Ticks start = ProcessorTime();
  platform::Semaphore never;
  never.WaitUntil(platform::MonotonicNow() + 200 * platform::kTicksPerMillisecond);
  EXPECT_LT(ProcessorTime() - start, 80 * platform::kTicksPerMillisecond);
  go_on.Release();
  EXPECT_TRUE(Eventually([&] { return written.Lines().size() == LogWriter::kReservedLines + 2; }));
  EXPECT_EQ(written.Lines().back(), "needs memory");
}

// Counts lines and keeps none; the first is held up.
class CountingStream final : public Connection {
 public:
  CountingStream(std::atomic<std::size_t>& lines, platform::Semaphore& go)
      : lines_(lines), go_(go) {}
  int Read(void*, int) override { return 0; }
  int Write(const void*, int length) override {
    if (lines_ == 0) go_.Wait();
    ++lines_;
    return length;
  }
  void Close() override {}
  bool IsOpen() const override { return true; }

 private:
  std::atomic<std::size_t>& lines_;
  platform::Semaphore& go_;
};

TEST(LogWriter, GoesOnWhileManyThreadsFindNoRoomForTheirLines) {
  for (int round = 0; round < 10; ++round) {
    std::atomic<std::size_t> lines{0};
    std::atomic<std::size_t> sent{0};
    std::atomic<bool> stop{false};
    platform::Semaphore go;
    LogWriter writer(std::make_unique<CountingStream>(lines, go), 253);
    std::vector<TestThread> threads;
    for (int t = 0; t < 3; ++t)
      threads.emplace_back([&] {
        for (; !stop; ++sent)
          writer.Write("line");
      });
    const bool full = Eventually([&] { return sent > 3 * LogWriter::kMostLines; });
    go.Release();
    const bool went_on = Eventually([&] { return lines >= 2 * LogWriter::kMostLines; });
    stop = true;
    threads.clear();
    ASSERT_TRUE(full);
    ASSERT_TRUE(went_on) << round;
  }
}

TEST(LogWriter, TakesNoProcessorTimeWhileThereIsNothingToWrite) {
  Written written;
  auto writer = MakeWriter(written);
  writer->Write("line");
  ASSERT_TRUE(Eventually([&] { return written.Lines().size() == 1; }));
  const platform::Ticks start = ProcessorTime();
  platform::Semaphore never;
  never.WaitUntil(platform::MonotonicNow() + 100 * platform::kTicksPerMillisecond);
  // Some systems count in steps of 10 ms and more.
  EXPECT_LT(ProcessorTime() - start, 40 * platform::kTicksPerMillisecond);
}

}  // namespace
}  // namespace valmere::test
