// Many clients at once, and handles that several threads use.
#include <array>
#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "tests/driver/entry_fixture.h"
#include "tests/support/test_thread.h"

namespace valmere::test {
namespace {

class SharingTest : public EntryTest {};

Address Numbered(std::string_view component, int number) {
  return {std::string(component), "G:" + std::to_string(number)};
}

TEST_F(SharingTest, TwoFramesInOneWriteAreTwoRequests) {
  Client client;
  const std::string both = FrameOf(GetText(kOwnComponent)) + FrameOf(GetText({"C", "G:P"}));
  for (int i = 0; i < 200; ++i) {
    ASSERT_TRUE(client.SendBytes(both));
    ASSERT_EQ(client.Receive(), OwnComponentText());
    ASSERT_EQ(client.Receive(), NotFoundText({"C", "G:P"}));
  }
}

TEST_F(SharingTest, TheFirstWriteMayCarryManyFrames) {
  Client client;
  std::string frames;
  for (int i = 0; i < 500; ++i)
    frames += FrameOf(GetText(Numbered("C", i)));
  ASSERT_TRUE(client.SendBytes(frames));
  for (int i = 0; i < 500; ++i)
    ASSERT_EQ(client.Receive(), NotFoundText(Numbered("C", i)));
}

// No reply may be lost, doubled or out of order while the pipes fill and run dry.
TEST_F(SharingTest, FourClientsPipelineThousandsOfFrames) {
  constexpr int kFrames = 3000;
  std::array<int, 4> in_order{};
  {
    std::array<Client, 4> clients;
    std::vector<TestThread> threads;
    for (std::size_t c = 0; c < clients.size(); ++c) {
      const std::string name = "client " + std::to_string(c);
      threads.emplace_back([&client = clients[c], name] {
        for (int i = 0; i < kFrames; ++i)
          EXPECT_TRUE(client.Send(GetText(Numbered(name, i))));
      });
      threads.emplace_back([&client = clients[c], &count = in_order[c], name] {
        while (count < kFrames && client.Receive() == NotFoundText(Numbered(name, count)))
          ++count;
      });
    }
  }
  for (const int count : in_order)
    EXPECT_EQ(count, kFrames);
}

TEST_F(SharingTest, TwoHundredHandlesAreServedAtOnce) {
  std::vector<std::unique_ptr<Client>> clients;
  for (int i = 0; i < 200; ++i)
    clients.push_back(std::make_unique<Client>());
  for (int round = 0; round < 2; ++round) {
    for (std::size_t i = 0; i < clients.size(); ++i)
      ASSERT_TRUE(clients[i]->Send(GetText(Numbered("C", static_cast<int>(i)))));
    for (std::size_t i = clients.size(); i-- > 0;)
      ASSERT_EQ(clients[i]->Receive(), NotFoundText(Numbered("C", static_cast<int>(i))));
  }
}

TEST_F(SharingTest, AHandleMayBeClosedWhileItIsReadAndWritten) {
  for (int round = 0; round < 50; ++round) {
    const std::uint32_t handle = PRN_Open(1, 0, 0);
    std::atomic<bool> closed{false};
    std::atomic<int> written{0};
    {
      TestThread writer([&] {
        const std::string frame = FrameOf(GetText(kOwnComponent));
        const auto size = static_cast<std::uint32_t>(frame.size());
        for (;;) {
          const std::int32_t count = PRN_Write(handle, frame.data(), size);
          ++written;
          if (count < 0) break;
          EXPECT_EQ(count, static_cast<std::int32_t>(size));
        }
      });
      std::vector<TestThread> readers;
      for (int i = 0; i < 2; ++i)
        readers.emplace_back([&] {
          char bytes[50];
          while (!closed)
            EXPECT_EQ(PRN_Read(handle, bytes, sizeof bytes), sizeof bytes);
        });
      EXPECT_TRUE(Eventually([&] { return written >= round; }));
      EXPECT_EQ(PRN_Close(handle), 1u);
      closed = true;
    }
  }
  EXPECT_EQ(Client().Ask(GetText(kOwnComponent)), OwnComponentText());
}

TEST_F(SharingTest, OfManyClosersOneSucceeds) {
  for (int round = 0; round < 50; ++round) {
    const std::uint32_t handle = PRN_Open(1, 0, 0);
    std::atomic<int> succeeded{0};
    {
      std::vector<TestThread> closers;
      for (int i = 0; i < 4; ++i)
        closers.emplace_back([&] { succeeded += static_cast<int>(PRN_Close(handle)); });
    }
    ASSERT_EQ(succeeded, 1);
  }
}

TEST_F(SharingTest, SessionsComeAndGoOnManyThreads) {
  std::atomic<int> answered{0};
  {
    std::vector<TestThread> threads;
    for (int t = 0; t < 4; ++t)
      threads.emplace_back([&, t] {
        const std::string name = "client " + std::to_string(t);
        for (int i = 0; i < 100; ++i) {
          const Address address = Numbered(name, i);
          Client client;
          client.Send(PublishedText(address, "value"));
          if (client.Ask(GetText(address)) == PublishedText(address, "value")) ++answered;
        }
      });
  }
  EXPECT_EQ(answered, 400);
}

// Sets from several clients and replies to the owner's own requests all go to one stream: each
// arrives whole, and those of one sender in its order.
TEST_F(SharingTest, WritesToOneClientDoNotMix) {
  constexpr int kSets = 500;
  constexpr int kSetters = 3;
  const Address address = {"C", "G:P"};
  Client owner;
  owner.Send(PublishedText(address, "v"));
  ASSERT_EQ(owner.Ask(GetText(address)), PublishedText(address, "v"));
  const auto value = [](int setter, int i) {
    return std::to_string(setter) + " sets " + std::to_string(i);
  };
  std::vector<TestThread> senders;
  for (int s = 0; s < kSetters; ++s)
    senders.emplace_back([&, s] {
      Client setter;
      for (int i = 0; i < kSets; ++i)
        setter.Send(SetText(address, value(s, i)));
      // Kept open until its last request has been handled.
      EXPECT_EQ(setter.Ask(GetText(kOwnComponent)), OwnComponentText());
    });
  senders.emplace_back([&] {
    for (int i = 0; i < kSets; ++i)
      owner.Send(GetText(kOwnComponent));
  });
  std::array<int, kSetters> next{};
  int replies = 0;
  for (int i = 0; i < kSets * (kSetters + 1); ++i) {
    const std::string text = owner.Receive().value_or("the end");
    bool known = text == OwnComponentText();
    if (known) ++replies;
    for (int s = 0; s < kSetters && !known; ++s) {
      int& number = next[static_cast<std::size_t>(s)];
      known = text == SetText(address, value(s, number));
      if (known) ++number;
    }
    ASSERT_TRUE(known) << text;
  }
  EXPECT_EQ(replies, kSets);
}

}  // namespace
}  // namespace valmere::test
