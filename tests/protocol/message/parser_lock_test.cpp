#include "protocol/message/parser_lock.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "protocol/message/property_message.h"
#include "tests/support/frames.h"
#include "tests/support/parser_lock_probe.h"
#include "tests/support/scripted_connection.h"
#include "tests/support/test_thread.h"

namespace valmere::test {
namespace {

// Called by the holder of the lock, which the analysis does not see when the scope lies on the
// heap.
void LetNextIn() NO_THREAD_SAFETY_ANALYSIS {
  ParserLock().LetNextIn();
}

TEST(ParsingLock, KeepsOthersOut) {
  EXPECT_TRUE(ParserLockIsFree());
  {
    const ScopedParsing hold;
    EXPECT_FALSE(ParserLockIsFree());
    EXPECT_FALSE(ParserLock().awaited());
  }
  EXPECT_TRUE(ParserLockIsFree());
}

TEST(ParsingLock, IsKeptWhenNobodyWaits) {
  const ScopedParsing hold;
  ParserLock().LetNextIn();
  EXPECT_FALSE(ParserLockIsFree());
}

TEST(ParsingLock, ComesBackBehindWhoWaits) {
  for (int round = 0; round < 200; ++round) {
    auto hold = std::make_unique<ScopedParsing>();
    std::atomic<bool> had_it{false};
    const TestThread waiting([&] {
      const ScopedParsing in_between;
      had_it = true;
    });
    EXPECT_TRUE(Eventually([] { return ParserLock().awaited(); }));
    EXPECT_FALSE(had_it);
    LetNextIn();
    EXPECT_TRUE(had_it);
    EXPECT_FALSE(ParserLockIsFree());
    hold.reset();
    if (HasFailure()) return;
  }
}

// A short message is not read after all of a long one, nor of two.
TEST(ParsingLock, IsLetGoInTheMiddleOfLongMessages) {
  std::string text = R"({"a":[)";
  while (text.size() < 4'000'000)
    text += "1,";
  const std::vector<std::string> fields = FieldsOf(text + "1]}");
  std::atomic<int> unread{2};
  const auto read_long_one = [&] {
    ScriptedConnection connection(fields);
    PropertyMessage message;
    EXPECT_TRUE(message.Read(connection));
    --unread;
  };
  const TestThread first(read_long_one);
  const TestThread second(read_long_one);
  int between = 0;
  EXPECT_TRUE(Eventually([&] { return !ParserLockIsFree(); }));
  while (unread == 2) {
    ScriptedConnection short_one(FieldsOf(R"({"b":1})"));
    PropertyMessage message;
    EXPECT_TRUE(message.Read(short_one));
    if (unread == 2) ++between;
  }
  EXPECT_GT(between, 3);
}

}  // namespace
}  // namespace valmere::test
