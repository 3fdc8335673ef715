// What is kept of the memory of large replies, and for how long.
#include "store/engine/reply_memory.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "tests/store/engine/engine_fixture.h"
#include "tests/support/allocations.h"

namespace valmere::test {
namespace {

constexpr std::size_t kMega = 1'000'000;

class ReplyMemories : public ::testing::Test {
 protected:
  // A buffer of that size is used and given back; where it lies.
  const char* Use(std::size_t bytes) {
    std::string buffer = memory->Take(bytes);
    const char* const place = buffer.data();
    memory->GiveBack(std::move(buffer));
    return place;
  }
  void Pass(std::uint32_t times) {
    for (std::uint32_t i = 0; i < times; ++i)
      memory->Pass();
  }

  const std::shared_ptr<ReplyMemory> memory = ReplyMemory::Make();
};

TEST_F(ReplyMemories, GiveTheSameBufferAgain) {
  const char* const place = Use(kMega);
  const std::string again = memory->Take(kMega);
  EXPECT_EQ(place, again.data());
  EXPECT_LE(kMega, again.capacity());
  EXPECT_EQ("", again);
  EXPECT_NE(place, memory->Take(kMega).data()) << "it is in use";
}

TEST_F(ReplyMemories, GiveTheShortestThatIsLongEnoughAndNotTwiceAsLong) {
  std::string longer = memory->Take(3 * kMega);
  const char* const place = longer.data();
  const char* const other = Use(2 * kMega);
  memory->GiveBack(std::move(longer));
  EXPECT_EQ(other, Use(2 * kMega));
  EXPECT_EQ(place, Use(2 * kMega + 100));
  EXPECT_GT(2 * kMega, memory->Take(kMega / 2).capacity());
}

TEST_F(ReplyMemories, KeepTheTwoLongest) {
  std::vector<std::string> buffers;
  for (const std::size_t size : {kMega, 3 * kMega, 2 * kMega})
    buffers.push_back(memory->Take(size));
  const std::size_t before = BytesInUse();
  for (std::string& buffer : buffers)
    memory->GiveBack(std::exchange(buffer, {}));
  EXPECT_GT(before - kMega + 1000, BytesInUse());
  EXPECT_LT(before - kMega - 1000, BytesInUse());
}

TEST_F(ReplyMemories, KeepNoMoreThanTheirBound) {
  const std::size_t before = BytesInUse();
  Use(64 * kMega);
  EXPECT_GT(before + 1000, BytesInUse());
  std::string shorter = memory->Take(7 * kMega);
  Use(10 * kMega);
  memory->GiveBack(std::move(shorter));
  EXPECT_GT(before + 10 * kMega + 1000, BytesInUse());
  EXPECT_LT(before + 10 * kMega, BytesInUse());
}

TEST_F(ReplyMemories, LeaveShortBuffersToTheAllocator) {
  const std::size_t before = BytesInUse();
  Use(ReplyMemory::kLeastKeptBytes / 2);
  EXPECT_EQ(before, BytesInUse());
}

TEST_F(ReplyMemories, FreeWhatIsNotUsedForAWhile) {
  const std::size_t before = BytesInUse();
  Use(kMega);
  for (int i = 0; i < 3; ++i) {
    Pass(ReplyMemory::kIdlePasses - 1);
    const std::size_t kept = BytesInUse();
    EXPECT_LT(before + kMega, kept);
    Use(kMega);
    EXPECT_EQ(kept, BytesInUse()) << "used in time";
  }
  Pass(ReplyMemory::kIdlePasses);
  EXPECT_EQ(before, BytesInUse());
}

TEST_F(ReplyMemories, TakeTheMemoryOfAFrameBackFromItsLastHolder) {
  std::string reply = memory->Take(kMega);
  reply = "text";
  const char* const place = reply.data();
  SharedFrame frame = memory->Share(reply);
  EXPECT_EQ("", reply);
  EXPECT_EQ("text", *frame);
  SharedFrame holder = frame;
  frame.reset();
  EXPECT_NE(place, memory->Take(kMega).data());
  holder.reset();
  EXPECT_EQ(place, memory->Take(kMega).data());
}

TEST_F(ReplyMemories, KeepNothingAfterTheirEnd) {
  const std::size_t before = BytesInUse();
  std::string reply = memory->Take(kMega);
  SharedFrame frame = memory->Share(reply);
  Use(2 * kMega);
  memory->End();
  EXPECT_GT(before + 2 * kMega, BytesInUse());
  frame.reset();
  EXPECT_EQ(before, BytesInUse());
  Use(kMega);
  EXPECT_EQ(before, BytesInUse());
}

TEST_F(ReplyMemories, LeaveAReplyAsItIsWhenThereIsNoMemoryToShareIt) {
  std::string reply = "text";
  FailEachAllocation([&] { memory->Share(reply); }, [&] { EXPECT_EQ("text", reply); });
}

TEST_F(ReplyMemories, ExpectEntriesAsLongAsTheLast) {
  memory->NoteAll(0, 1000);
  EXPECT_EQ(352u, memory->entry_bytes());
  memory->NoteAll(100, 43'000);
  EXPECT_LT(430u, memory->entry_bytes());
  EXPECT_GT(470u, memory->entry_bytes());
}

class LargeReplies : public EngineTest {
 protected:
  LargeReplies() {
    for (int i = 0; i < 500; ++i)
      AddOwn(std::to_string(i), std::string(300, 'x'));
    client.stream->KeepFrames();
  }
  // The frame of a get of all, which the client lets go at once.
  const char* GetAllOf(Client& asking) {
    EXPECT_TRUE(Send(asking, kGetAllText));
    const std::vector<SharedFrame> frames = asking.stream->TakeFrames();
    EXPECT_EQ(1u, frames.size());
    return frames.empty() ? nullptr : frames[0]->data();
  }

  Client client;
};

TEST_F(LargeReplies, UseTheMemoryOfTheLastWhicheverSessionAskedForIt) {
  Client other;
  other.stream->KeepFrames();
  const char* const place = GetAllOf(client);
  EXPECT_EQ(place, GetAllOf(client));
  EXPECT_EQ(place, GetAllOf(other));
  EXPECT_EQ("", client.reply);
  EXPECT_GT(20'000u, client.reply.capacity()) << "the session keeps none of it";
}

TEST_F(LargeReplies, OfGroupsTakeKeptMemoryAsTheyGrow) {
  const char* const place = GetAllOf(client);
  EXPECT_TRUE(Send(client, R"({"PropertyGetRequests": [{"Component": "OWN","GUID": "G:"}]})"));
  const std::vector<SharedFrame> frames = client.stream->TakeFrames();
  ASSERT_EQ(1u, frames.size());
  EXPECT_EQ(place, frames[0]->data());
}

TEST_F(LargeReplies, AreTheClientsUntilItLetsThemGo) {
  EXPECT_TRUE(Send(client, kGetAllText));
  const std::vector<SharedFrame> held = client.stream->TakeFrames();
  ASSERT_EQ(1u, held.size());
  const std::string text = *held[0];
  AddOwn("new", "V");
  EXPECT_NE(held[0]->data(), GetAllOf(client));
  EXPECT_EQ(text, *held[0]);
}

TEST_F(LargeReplies, AreFreedByThePassesAndByTheEnd) {
  GetAllOf(client);
  client.stream->TakeWrites();
  const std::size_t kept = BytesInUse();
  for (std::uint32_t pass = 0; pass < ReplyMemory::kIdlePasses; ++pass)
    engine->PublishPass();
  const std::size_t freed = BytesInUse();
  EXPECT_GT(kept - 100'000, freed);
  GetAllOf(client);
  client.stream->TakeWrites();
  EXPECT_LT(freed + 100'000, BytesInUse());
  engine->End();
  EXPECT_EQ(freed, BytesInUse());
}

TEST_F(LargeReplies, MayOutliveTheEngine) {
  SharedFrame frame;
  {
    const auto own_engine = MakeTestEngine();
    own_engine->AddProperty(
        StringProperty::Make(std::string(100'000, 'x'), "P", "Name", "G", "Group"));
    ScriptedConnection request({FrameOf(kGetAllText)});
    PropertyMessage message;
    ASSERT_TRUE(message.Read(request));
    EXPECT_TRUE(own_engine->HandleMessage(message, client.connection, client.reply));
    frame = client.stream->TakeFrames().at(0);
  }
  EXPECT_EQ(FrameOf(frame->substr(20)), *frame);
  client.stream->TakeWrites();
  const std::size_t before = BytesInUse();
  frame.reset();
  EXPECT_GT(before - 100'000, BytesInUse());
}

TEST_F(LargeReplies, AreNoneIfTheyFitIntoTheSessionsBuffer) {
  EXPECT_TRUE(Send(client, R"({"PropertyGetRequests": [{"Component": "OWN","GUID": "G:1"}]})"));
  EXPECT_TRUE(client.stream->TakeFrames().empty());
  EXPECT_NE("", client.reply) << "it is kept for the next";
}

}  // namespace
}  // namespace valmere::test
