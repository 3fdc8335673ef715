#include "net/client_connection.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "tests/support/scripted_connection.h"
#include "tests/support/test_thread.h"

namespace valmere::test {
namespace {

// Takes each write byte by byte and lets other threads run in between.
class DawdlingConnection final : public Connection {
 public:
  int Read(void*, int) override { return kFailed; }
  int Write(const void* buffer, int length) override {
    for (int i = 0; i < length; ++i) {
      {
        const ScopedLock hold(lock_);
        bytes_.push_back(static_cast<const char*>(buffer)[i]);
      }
      if (i % 16 == 0) pause_.WaitUntil(platform::MonotonicNow() + 1);
    }
    return length;
  }
  void Close() override {}
  bool IsOpen() const override { return true; }
  std::string bytes() const {
    const ScopedLock hold(lock_);
    return bytes_;
  }

 private:
  mutable Lock lock_;
  platform::Semaphore pause_;
  std::string bytes_ GUARDED_BY(lock_);
};

// Holds each write until it is closed.
class StuckConnection final : public Connection {
 public:
  int Read(void*, int) override { return kFailed; }
  int Write(const void*, int) override {
    begun.Release();
    closed_.Wait();
    return kGone;
  }
  void Close() override { closed_.Release(); }
  bool IsOpen() const override { return true; }
  platform::Semaphore begun;

 private:
  platform::Semaphore closed_;
};

TEST(ClientConnection, KeepsTheWritesOfSeveralThreadsApart) {
  constexpr std::size_t kPiece = 64;
  constexpr int kPieces = 20;
  const auto stream = std::make_shared<DawdlingConnection>();
  ClientConnection client(stream);
  {
    std::vector<TestThread> writers;
    for (const char mark : {'a', 'b', 'c', 'd'})
      writers.emplace_back([&client, mark] {
        const std::string piece(kPiece, mark);
        for (int i = 0; i < kPieces; ++i)
          client.Write(piece.data(), static_cast<int>(kPiece));
      });
  }
  const std::string bytes = stream->bytes();
  ASSERT_EQ(4 * kPieces * kPiece, bytes.size());
  for (std::size_t at = 0; at < bytes.size(); at += kPiece)
    ASSERT_EQ(std::string(kPiece, bytes[at]), bytes.substr(at, kPiece)) << at;
}

TEST(ClientConnection, ClosesWhileAWriteIsStuck) {
  const auto stream = std::make_shared<StuckConnection>();
  ClientConnection client(stream);
  int result = 0;
  TestThread writer([&] { result = client.Write("x", 1); });
  stream->begun.Wait();
  client.Close();
  writer.Join();
  EXPECT_EQ(Connection::kGone, result);
}

TEST(ClientConnection, ReadsWhileAWriteIsStuck) {
  const auto stream = std::make_shared<StuckConnection>();
  ClientConnection client(stream);
  TestThread writer([&] { client.Write("x", 1); });
  stream->begun.Wait();
  char byte;
  EXPECT_EQ(Connection::kFailed, client.Read(&byte, 1));
  client.Close();
}

TEST(ClientConnection, PassesEverythingOn) {
  const auto stream = std::make_shared<ScriptedConnection>(std::vector<std::string>{"abc"});
  ClientConnection client(stream);
  char bytes[4] = {};
  EXPECT_EQ(3, client.Read(bytes, 4));
  EXPECT_STREQ("abc", bytes);
  EXPECT_EQ(Connection::kGone, client.Read(bytes, 4));
  EXPECT_EQ(2, client.Write("de", 2));
  stream->GiveToWrites(Connection::kFailed);
  EXPECT_EQ(Connection::kFailed, client.Write("f", 1));
  EXPECT_EQ((std::vector<std::string>{"de", "f"}), stream->writes());
  EXPECT_TRUE(client.IsOpen());
  client.Close();
  EXPECT_FALSE(client.IsOpen());
  EXPECT_FALSE(stream->IsOpen());
}

}  // namespace
}  // namespace valmere::test
