// What each entry point returns, for handles in every state.
#include <atomic>

#include "tests/driver/entry_fixture.h"
#include "tests/support/test_thread.h"

namespace valmere::test {
namespace {

class EntryPointsTest : public EntryTest {};

TEST_F(EntryPointsTest, HandlesCountUpFromOneAndAreNotUsedAgain) {
  EXPECT_EQ(PRN_Open(1, 0, 0), 1u);
  EXPECT_EQ(PRN_Open(7, 0xc0000000, 3), 2u);
  EXPECT_EQ(PRN_Close(1), 1u);
  EXPECT_EQ(PRN_Open(0, 0, 0), 3u);
}

TEST_F(EntryPointsTest, AReplacingServiceCountsFromOneAgain) {
  EXPECT_EQ(PRN_Open(1, 0, 0), 1u);
  EXPECT_EQ(PRN_Open(1, 0, 0), 2u);
  EXPECT_EQ(PRN_Init(0), 1u);
  EXPECT_EQ(PRN_Close(2), 0u);
  EXPECT_EQ(PRN_Open(1, 0, 0), 1u);
}

TEST_F(EntryPointsTest, InitReturnsOneWhateverItIsGiven) {
  EXPECT_EQ(PRN_Init(1), 1u);
  EXPECT_EQ(PRN_Init(0xffffffff), 1u);
}

TEST_F(EntryPointsTest, ReadReturnsItsCountForAHandleNeverIssued) {
  char bytes[8] = "as left";
  EXPECT_EQ(PRN_Read(1, bytes, 8), 8u);
  EXPECT_EQ(PRN_Read(0, bytes, 0), 0u);
  EXPECT_EQ(PRN_Read(0xffffffff, nullptr, 0xffffffff), 0xffffffffu);
  EXPECT_STREQ(bytes, "as left");
}

TEST_F(EntryPointsTest, ReadReturnsItsCountForAClosedHandle) {
  const std::uint32_t handle = PRN_Open(1, 0, 0);
  PRN_Close(handle);
  char byte = 'x';
  EXPECT_EQ(PRN_Read(handle, &byte, 1), 1u);
  EXPECT_EQ(byte, 'x');
}

TEST_F(EntryPointsTest, ReadReturnsItsCountWhenLessWasThere) {
  Client client;
  const std::string expected = FrameOf(OwnComponentText());
  ASSERT_TRUE(client.Send(GetText(kOwnComponent)));
  std::string bytes(expected.size() + 100, 'x');
  EXPECT_EQ(PRN_Read(client.handle(), bytes.data(), static_cast<std::uint32_t>(bytes.size())),
            bytes.size());
  EXPECT_EQ(bytes, expected + std::string(100, 'x'));
}

TEST_F(EntryPointsTest, AReadOfNothingLeavesTheReplyWhereItIs) {
  Client client;
  ASSERT_TRUE(client.Send(GetText(kOwnComponent)));
  EXPECT_EQ(PRN_Read(client.handle(), nullptr, 0), 0u);
  EXPECT_EQ(client.Receive(), OwnComponentText());
}

TEST_F(EntryPointsTest, AReplyCanBeReadByteByByte) {
  Client client;
  ASSERT_TRUE(client.Send(GetText(kOwnComponent)));
  const std::string expected = FrameOf(OwnComponentText());
  std::string received;
  while (received.size() < expected.size()) {
    char byte;
    ASSERT_EQ(PRN_Read(client.handle(), &byte, 1), 1u);
    received += byte;
  }
  EXPECT_EQ(received, expected);
}

TEST_F(EntryPointsTest, AReadWaitsUntilItsHandleIsClosed) {
  const std::uint32_t handle = PRN_Open(1, 0, 0);
  std::atomic<bool> closed{false};
  bool returned_early = false;
  char byte = 'x';
  {
    TestThread reader([&] {
      EXPECT_EQ(PRN_Read(handle, &byte, 1), 1u);
      returned_early = !closed;
    });
    // Other handles are served meanwhile.
    for (int i = 0; i < 20; ++i)
      EXPECT_EQ(Client().Ask(GetText(kOwnComponent)), OwnComponentText());
    closed = true;
    EXPECT_EQ(PRN_Close(handle), 1u);
  }
  EXPECT_FALSE(returned_early);
  EXPECT_EQ(byte, 'x');
}

TEST_F(EntryPointsTest, WriteReturnsTheNumberOfBytesTaken) {
  Client client;
  EXPECT_EQ(PRN_Write(client.handle(), "12345", 5), 5);
  EXPECT_EQ(PRN_Write(client.handle(), "12345", 1), 1);
  EXPECT_EQ(PRN_Write(client.handle(), "12345", 0), 0);
  EXPECT_EQ(PRN_Write(client.handle(), nullptr, 0), 0);
}

TEST_F(EntryPointsTest, WriteFailsForAHandleThatIsNotOpen) {
  EXPECT_EQ(PRN_Write(1, "x", 1), -1);
  EXPECT_EQ(PRN_Write(0, "x", 1), -1);
  EXPECT_EQ(PRN_Write(0xffffffff, "", 0), -1);
  const std::uint32_t handle = PRN_Open(1, 0, 0);
  EXPECT_EQ(PRN_Write(handle, "x", 1), 1);
  PRN_Close(handle);
  EXPECT_EQ(PRN_Write(handle, "x", 1), -1);
}

TEST_F(EntryPointsTest, AnEmptyFirstWriteIsTakenAndTheNextOneServed) {
  Client client;
  EXPECT_EQ(PRN_Write(client.handle(), "", 0), 0);
  EXPECT_EQ(client.Ask(GetText(kOwnComponent)), OwnComponentText());
}

TEST_F(EntryPointsTest, CloseSucceedsOnce) {
  EXPECT_EQ(PRN_Close(1), 0u);
  const std::uint32_t handle = PRN_Open(1, 0, 0);
  EXPECT_EQ(PRN_Close(handle), 1u);
  EXPECT_EQ(PRN_Close(handle), 0u);
  EXPECT_EQ(PRN_Close(0), 0u);
  EXPECT_EQ(PRN_Close(0xffffffff), 0u);
}

TEST_F(EntryPointsTest, KnowsNoControlCodes) {
  Client client;
  char in[4] = {};
  char out[4] = {'x', 'x', 'x', 'x'};
  std::uint32_t out_count = 17;
  for (const std::uint32_t code : {0u, 1u, 0x222000u, 0x80000000u, 0xffffffffu}) {
    EXPECT_EQ(PRN_IOControl(client.handle(), code, in, 4, out, 4, &out_count), 0u);
    EXPECT_EQ(PRN_IOControl(0, code, nullptr, 0, nullptr, 0, nullptr), 0u);
  }
  EXPECT_EQ(out[0], 'x');
  EXPECT_EQ(out_count, 17u);
}

}  // namespace
}  // namespace valmere::test
