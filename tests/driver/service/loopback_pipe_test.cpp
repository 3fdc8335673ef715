#include "driver/service/loopback_pipe.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "tests/support/allocations.h"
#include "tests/support/test_thread.h"

namespace valmere::test {
namespace {

// Sizes on both sides of the powers of two that a queue may be cut up by.
constexpr int kOddSizes[] = {1, 2, 3, 1000, 1023, 1024, 1025, 2047, 2048, 2049, 70'000};

int WriteText(Connection& connection, std::string_view text) {
  return connection.Write(text.data(), static_cast<int>(text.size()));
}

// What one read of up to `length` bytes gives.
std::string ReadText(Connection& connection, int length) {
  std::string text(static_cast<std::size_t>(length), '\0');
  const int count = connection.Read(text.data(), length);
  text.resize(static_cast<std::size_t>(std::max(count, 0)));
  return text;
}

// Bytes that differ from their neighbours and from those a chunk further on.
std::string Pattern(std::size_t size) {
  std::string bytes(size, '\0');
  for (std::size_t i = 0; i < size; ++i)
    bytes[i] = static_cast<char>((i * 7 + i / 251) & 0xff);
  return bytes;
}

TEST(PipeBuffer, ReadsWhatWasWritten) {
  PipeBuffer buffer;
  EXPECT_EQ(WriteText(buffer, "one message"), 11);
  EXPECT_EQ(ReadText(buffer, 100), "one message");
}

TEST(PipeBuffer, WakesItsReaderWhenTheWriterLetsIt) {
  PipeBuffer buffer;
  std::atomic<bool> woken{false};
  TestThread reader([&] {
    EXPECT_EQ(ReadText(buffer, 100), "reply");
    woken.store(true);
  });
  {
    EventFlags::PendingWake wake;
    EXPECT_EQ(buffer.WriteDeferringWake("reply", 5, wake), 5);
    EXPECT_EQ(buffer.WriteDeferringWake("", 0, wake), 0);
  }
  reader.Join();
  EXPECT_TRUE(woken.load());
}

// What was written can be read at once: only sleepers depend on the wake.
TEST(PipeBuffer, HasItsBytesBeforeTheWake) {
  PipeBuffer buffer;
  EventFlags::PendingWake wake;
  EXPECT_EQ(buffer.WriteDeferringWake("reply", 5, wake), 5);
  EXPECT_EQ(ReadText(buffer, 100), "reply");
}

TEST(PipeBuffer, KeepsNoMessageBoundaries) {
  PipeBuffer buffer;
  WriteText(buffer, "first");
  WriteText(buffer, "second");
  EXPECT_EQ(ReadText(buffer, 8), "firstsec");
  EXPECT_EQ(ReadText(buffer, 100), "ond");
}

TEST(PipeBuffer, LosesNoByteWhateverTheSizesOfWritesAndReads) {
  for (const int write_size : kOddSizes) {
    for (const int read_size : kOddSizes) {
      PipeBuffer buffer;
      const std::string sent = Pattern(static_cast<std::size_t>(write_size) * 3);
      for (int i = 0; i < 3; ++i)
        ASSERT_EQ(buffer.Write(sent.data() + i * write_size, write_size), write_size);
      std::string received;
      while (received.size() < sent.size()) {
        const std::size_t due =
            std::min(sent.size() - received.size(), static_cast<std::size_t>(read_size));
        const std::string part = ReadText(buffer, read_size);
        ASSERT_EQ(part.size(), due) << write_size << " written, " << read_size << " read";
        received += part;
      }
      ASSERT_TRUE(received == sent) << write_size << " written, " << read_size << " read";
    }
  }
}

TEST(PipeBuffer, TakesAWriteOfAnySize) {
  PipeBuffer buffer;
  const std::string sent = Pattern(8 << 20);
  EXPECT_EQ(WriteText(buffer, sent), 8 << 20);
  EXPECT_TRUE(ReadText(buffer, 8 << 20) == sent);
}

TEST(PipeBuffer, TakesAnyNumberOfSmallWrites) {
  PipeBuffer buffer;
  const std::string sent = Pattern(100'000);
  for (const char& byte : sent)
    ASSERT_EQ(buffer.Write(&byte, 1), 1);
  EXPECT_TRUE(ReadText(buffer, 100'000) == sent);
}

TEST(PipeBuffer, IsUsedAgainAfterItWasDrained) {
  PipeBuffer buffer;
  for (int round = 0; round < 3; ++round) {
    for (const int size : kOddSizes) {
      const std::string sent = Pattern(static_cast<std::size_t>(size));
      ASSERT_EQ(WriteText(buffer, sent), size);
      ASSERT_TRUE(ReadText(buffer, size + 1) == sent);
    }
  }
}

TEST(PipeBuffer, NeedsNoMemoryForAWriteThatFitsWhereADrainedOneWas) {
  PipeBuffer buffer;
  WriteText(buffer, "drained");
  ReadText(buffer, 7);
  const std::string sent = Pattern(100'000);
  {
    const LimitedAllocations none(0);
    EXPECT_EQ(buffer.Write(sent.data(), 1024), 1024);
  }
  WriteText(buffer, std::string_view(sent).substr(1024));
  EXPECT_TRUE(ReadText(buffer, 1024) == sent.substr(0, 1024));
  EXPECT_TRUE(ReadText(buffer, 100'000) == sent.substr(1024));
}

TEST(PipeBuffer, WritesBetweenReadsGoToTheEnd) {
  PipeBuffer buffer;
  const std::string sent = Pattern(20'000);
  std::string received;
  for (std::size_t at = 0; at < sent.size(); at += 400) {
    WriteText(buffer, std::string_view(sent).substr(at, 400));
    received += ReadText(buffer, 390);
  }
  while (received.size() < sent.size())
    received += ReadText(buffer, 390);
  EXPECT_TRUE(received == sent);
}

TEST(PipeBuffer, AReadOfNoLengthTakesNothing) {
  PipeBuffer buffer;
  WriteText(buffer, "kept");
  char byte = 'x';
  EXPECT_EQ(buffer.Read(&byte, 0), 0);
  EXPECT_EQ(buffer.Read(&byte, -1), 0);
  EXPECT_EQ(byte, 'x');
  EXPECT_EQ(ReadText(buffer, 10), "kept");
}

TEST(PipeBuffer, AWriteOfNoLengthQueuesNothing) {
  PipeBuffer buffer;
  EXPECT_EQ(buffer.Write("x", 0), 0);
  EXPECT_EQ(buffer.Write("x", -1), 0);
  buffer.Close();
  char byte;
  EXPECT_EQ(buffer.Read(&byte, 1), Connection::kDrained);
}

TEST(PipeBuffer, GivesItsRestAfterCloseAndThenTellsThatItIsDrained) {
  PipeBuffer buffer;
  WriteText(buffer, "rest");
  buffer.Close();
  EXPECT_EQ(ReadText(buffer, 3), "res");
  EXPECT_EQ(ReadText(buffer, 3), "t");
  char byte;
  EXPECT_EQ(buffer.Read(&byte, 1), Connection::kDrained);
  EXPECT_EQ(buffer.Read(&byte, 0), Connection::kDrained);
}

TEST(PipeBuffer, AWriteAfterCloseIsCountedAndDropped) {
  PipeBuffer buffer;
  WriteText(buffer, "before");
  buffer.Close();
  EXPECT_EQ(WriteText(buffer, "after"), 5);
  EXPECT_EQ(ReadText(buffer, 100), "before");
  char byte;
  EXPECT_EQ(buffer.Read(&byte, 1), Connection::kDrained);
}

TEST(PipeBuffer, IsOpenUntilItIsClosed) {
  PipeBuffer buffer;
  EXPECT_TRUE(buffer.IsOpen());
  buffer.Close();
  EXPECT_FALSE(buffer.IsOpen());
  buffer.Close();
  EXPECT_FALSE(buffer.IsOpen());
}

// A worker's stack is small: releasing a long queue must not go down as deep as the queue is long.
TEST(PipeBuffer, ALongQueueIsReleasedOnASmallStack) {
  TestThread([] {
    PipeBuffer buffer;
    const std::string chunk(1025, 'c');
    for (int i = 0; i < 20'000; ++i)
      WriteText(buffer, chunk);
  }).Join();
}

TEST(PipeBuffer, CloseWakesEveryReader) {
  PipeBuffer buffer;
  std::atomic<int> drained{0};
  {
    std::vector<TestThread> readers;
    for (int i = 0; i < 3; ++i) {
      readers.emplace_back([&] {
        char byte;
        if (buffer.Read(&byte, 1) == Connection::kDrained) ++drained;
      });
    }
    buffer.Close();
  }
  EXPECT_EQ(drained, 3);
}

// Another reader drains the buffer between the close and the waking of the one that waits for it.
TEST(PipeBuffer, AReaderLearnsOfTheCloseThoughAnotherTookTheLastBytes) {
  for (int round = 0; round < 20; ++round) {
    PipeBuffer buffer;
    std::atomic<bool> waits{false};
    int result = 0;
    TestThread reader([&] {
      char byte;
      waits = true;
      result = buffer.Read(&byte, 1);
    });
    EXPECT_TRUE(Eventually([&] { return waits.load(); }));
    {
      EventFlags::PendingWake wake;
      buffer.WriteDeferringWake("x", 1, wake);
      const EventFlags::PendingWake wake_closed = buffer.CloseDeferringWake();
      ReadText(buffer, 1);
    }
    reader.Join();
    // It has taken the byte itself when it came to wait no more.
    EXPECT_TRUE(result == Connection::kDrained || result == 1) << result;
  }
}

// A reader that is alone is never woken for bytes that an earlier read has taken: no read gives 0,
// which would look like the end of a frame in its middle.
TEST(PipeBuffer, ALoneReaderNeverReadsNothing) {
  PipeBuffer buffer;
  const std::string sent = Pattern(1 << 20);
  TestThread writer([&] {
    std::size_t at = 0;
    for (std::size_t size = 1; at < sent.size(); size = size % 97 + 1) {
      const std::size_t part = std::min(size, sent.size() - at);
      WriteText(buffer, std::string_view(sent).substr(at, part));
      at += part;
    }
  });
  std::string received;
  char bytes[64];
  for (int length = 1; received.size() < sent.size(); length = length % 64 + 1) {
    const int count = buffer.Read(bytes, length);
    ASSERT_GT(count, 0) << "after " << received.size() << " bytes";
    received.append(bytes, static_cast<std::size_t>(count));
  }
  EXPECT_TRUE(received == sent);
}

// Each byte is answered before the next one is sent, so that nearly every read finds the queue
// empty and has to wait.
TEST(LoopbackPipe, EachSideWaitsForTheOther) {
  LoopbackPipe pipe;
  constexpr int kRounds = 3000;
  TestThread service([&] {
    char byte;
    while (pipe.service_end()->Read(&byte, 1) == 1)
      pipe.service_end()->Write(&byte, 1);
  });
  int answered = 0;
  for (int i = 0; i < kRounds; ++i) {
    const char sent = static_cast<char>(i);
    char received = static_cast<char>(~sent);
    pipe.driver_end()->Write(&sent, 1);
    if (pipe.driver_end()->Read(&received, 1) == 1 && received == sent) ++answered;
  }
  pipe.driver_end()->Close();
  EXPECT_EQ(answered, kRounds);
}

TEST(LoopbackPipe, LeadsFromEachEndToTheOther) {
  LoopbackPipe pipe;
  WriteText(*pipe.driver_end(), "request");
  WriteText(*pipe.service_end(), "reply");
  EXPECT_EQ(ReadText(*pipe.service_end(), 100), "request");
  EXPECT_EQ(ReadText(*pipe.driver_end(), 100), "reply");
}

TEST(LoopbackPipe, ClosingEitherEndEndsBothDirections) {
  for (const bool driver_closes : {false, true}) {
    LoopbackPipe pipe;
    (driver_closes ? pipe.driver_end() : pipe.service_end())->Close();
    EXPECT_FALSE(pipe.driver_end()->IsOpen());
    EXPECT_FALSE(pipe.service_end()->IsOpen());
    char byte;
    EXPECT_EQ(pipe.driver_end()->Read(&byte, 1), Connection::kDrained);
    EXPECT_EQ(pipe.service_end()->Read(&byte, 1), Connection::kDrained);
  }
}

TEST(LoopbackPipe, ClosingWakesTheReadersOfBothSides) {
  LoopbackPipe pipe;
  std::atomic<int> drained{0};
  {
    const auto read = [&](PipeEndpoint& end) {
      char byte;
      if (end.Read(&byte, 1) == Connection::kDrained) ++drained;
    };
    TestThread driver([&] { read(*pipe.driver_end()); });
    TestThread service([&] { read(*pipe.service_end()); });
    pipe.service_end()->Close();
  }
  EXPECT_EQ(drained, 2);
}

TEST(LoopbackPipe, AnEndOutlivesThePipe) {
  auto pipe = std::make_unique<LoopbackPipe>();
  const std::shared_ptr<PipeEndpoint> service_end = pipe->service_end();
  WriteText(*pipe->driver_end(), "last words");
  pipe.reset();
  EXPECT_EQ(ReadText(*service_end, 100), "last words");
}

}  // namespace
}  // namespace valmere::test
