// Frames that a pipe shares with their writer.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <memory>
#include <string>
#include <utility>

#include "driver/service/loopback_pipe.h"
#include "tests/support/allocations.h"
#include "tests/support/test_thread.h"

namespace valmere::test {
namespace {

// What one read of up to `length` bytes gives.
std::string ReadUpTo(Connection& connection, int length) {
  std::string text(static_cast<std::size_t>(length), '\0');
  const int count = connection.Read(text.data(), length);
  text.resize(static_cast<std::size_t>(std::max(count, 0)));
  return text;
}

// Bytes that differ from their neighbours.
std::string Bytes(int size) {
  std::string bytes(static_cast<std::size_t>(size), '\0');
  for (int i = 0; i < size; ++i)
    bytes[static_cast<std::size_t>(i)] = static_cast<char>((i * 7 + i / 251) & 0xff);
  return bytes;
}

SharedFrame FrameWith(std::string bytes) {
  return std::make_shared<const std::string>(std::move(bytes));
}

int WriteFrame(Connection& connection, const SharedFrame& frame) {
  EventFlags::PendingWake wake;
  return connection.WriteShared(frame, wake);
}

TEST(PipeFrames, AreKeptInsteadOfACopyUntilTheyHaveBeenRead) {
  PipeBuffer buffer;
  const SharedFrame frame = FrameWith(Bytes(70'000));
  const std::size_t before = BytesInUse();
  EXPECT_EQ(70'000, WriteFrame(buffer, frame));
  EXPECT_EQ(2, frame.use_count());
  EXPECT_GT(before + 1000, BytesInUse());
  EXPECT_EQ(Bytes(70'000).substr(0, 20), ReadUpTo(buffer, 20));
  EXPECT_EQ(Bytes(70'000).substr(20), ReadUpTo(buffer, 70'000));
  EXPECT_EQ(1, frame.use_count());
}

TEST(PipeFrames, AreCopiedIfTheyAreShort) {
  PipeBuffer buffer;
  const SharedFrame frame = FrameWith("short");
  EXPECT_EQ(5, WriteFrame(buffer, frame));
  EXPECT_EQ(1, frame.use_count());
  EXPECT_EQ("short", ReadUpTo(buffer, 100));
}

TEST(PipeFrames, ComeInTheOrderOfTheWrites) {
  PipeBuffer buffer;
  std::string all;
  for (int i = 0; i < 3; ++i) {
    const std::string text = "text " + std::to_string(i);
    EXPECT_EQ(static_cast<int>(text.size()),
              buffer.Write(text.data(), static_cast<int>(text.size())));
    EXPECT_EQ(20'000 + i, WriteFrame(buffer, FrameWith(Bytes(20'000 + i))));
    all += text + Bytes(20'000 + i);
  }
  EXPECT_EQ(all, ReadUpTo(buffer, 100'000));
}

TEST(PipeFrames, AreLetGoWithThePipe) {
  const SharedFrame frame = FrameWith(Bytes(70'000));
  {
    PipeBuffer buffer;
    for (int i = 0; i < 3; ++i)
      WriteFrame(buffer, frame);
    buffer.Close();
    EXPECT_EQ(70'000, WriteFrame(buffer, frame)) << "dropped";
    EXPECT_EQ(4, frame.use_count());
  }
  EXPECT_EQ(1, frame.use_count());
}

// A frame's end may run others' code.
TEST(PipeFrames, AreLetGoWhenThePipesLockIsFree) {
  PipeBuffer buffer;
  bool called = false;
  auto* const text = new std::string(Bytes(70'000));
  WriteFrame(buffer, SharedFrame(text, [&](const std::string* last) {
               called = true;
               TestThread other([&] { EXPECT_EQ(4, buffer.Write("more", 4)); });
               other.Join();
               delete last;
             }));
  ReadUpTo(buffer, 70'000);
  EXPECT_TRUE(called);
  EXPECT_EQ("more", ReadUpTo(buffer, 100));
}

TEST(PipeFrames, WakeTheReader) {
  LoopbackPipe pipe;
  TestThread reader([&] { EXPECT_EQ(Bytes(70'000), ReadUpTo(*pipe.driver_end(), 70'000)); });
  EXPECT_EQ(70'000, WriteFrame(*pipe.service_end(), FrameWith(Bytes(70'000))));
  reader.Join();
}

}  // namespace
}  // namespace valmere::test
