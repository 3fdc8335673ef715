// The end of the service, and what is left of it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/kernel.h"
#include "tests/driver/entry_fixture.h"
#include "tests/driver/process_state.h"
#include "tests/persist/file/property_file_samples.h"
#include "tests/support/test_thread.h"

namespace valmere::test {
namespace {

constexpr const char* kInfoZoneOn =
    "E96B0063-C2EF-4545-92E1-AC4990BA1B37:8D6BC3E1-3943-4E0D-97E7-601690F93C1E|"
    "Debug Zones:Enable Info Debug Zone=True\n";
constexpr platform::Ticks kGrace = 3000 * platform::kTicksPerMillisecond;

// A thread that waits in PRN_Read.
class BlockedReader {
 public:
  explicit BlockedReader(std::uint32_t handle)
      : thread_([this, handle] {
          id_ = platform::CurrentThreadId();
          char byte = 'x';
          EXPECT_EQ(PRN_Read(handle, &byte, 1), 1u);
          EXPECT_EQ(byte, 'x');
        }) {
    // Asleep several times over: not in some lock that it passes on its way.
    for (int i = 0; i < 5; ++i)
      EXPECT_TRUE(Eventually([&] { return id_ != 0 && Sleeps(id_); }));
    // Takes the lock that the reader's look-up took. The start and the end of a service are called
    // alone, so they take nothing that would order them after that look-up.
    PRN_Close(0);
  }

 private:
  std::atomic<std::uint32_t> id_{0};
  TestThread thread_;
};

std::vector<std::unique_ptr<Client>> OpenClients(int count) {
  std::vector<std::unique_ptr<Client>> clients;
  for (int i = 0; i < count; ++i)
    clients.push_back(std::make_unique<Client>());
  return clients;
}

// Leaves sessions in every state behind.
void UseService(std::vector<std::unique_ptr<Client>>& clients) {
  clients.at(9)->Close();
  for (int i = 0; i < 100; ++i)
    clients[1]->Send(PublishedText({"C", "G:" + std::to_string(i)}, "value"));
  EXPECT_EQ(clients[1]->Ask(GetText({"C", "G:99"})), PublishedText({"C", "G:99"}, "value"));
  clients[2]->Send(R"({"SubscribeAllCurrentAndNewProperties": true})");
  clients[2]->Send(SetText({"C", "G:1"}, "never read"));
  // What it subscribed to may be told of before its reply.
  clients[2]->Send(GetText(kOwnComponent));
  std::optional<std::string> text;
  do {
    text = clients[2]->Receive();
  } while (text && text != OwnComponentText());
  EXPECT_TRUE(text);
  clients[3]->SendBytes(IdentifierBytes() + LengthBytes(1000) + "x");
  clients[4]->SendBytes("no identifier");
  clients[5]->SendBytes(FrameOf(GetText(kOwnComponent)).substr(0, 16));
  for (int i = 0; i < 100; ++i)
    clients[6]->Send(GetText(kOwnComponent));
  EXPECT_EQ(clients[7]->Ask(R"({"Disconnect": true})"), std::nullopt);
}

TEST(UnloadTest, IsCleanWithSessionsInEveryState) {
  DeviceRoot device;
  ASSERT_EQ(PRN_Init(0), 1u);
  auto clients = OpenClients(14);
  UseService(clients);
  EXPECT_EQ(clients[10]->Ask(GetText(kOwnComponent)), OwnComponentText());
  {
    const BlockedReader never_written(clients[11]->handle());
    const BlockedReader second_reader(clients[11]->handle());
    const BlockedReader answered_before(clients[10]->handle());
    const platform::Ticks start = platform::MonotonicNow();
    EXPECT_EQ(PRN_Deinit(1), 1u);
    EXPECT_GE(platform::MonotonicNow() - start, kGrace);
  }
  EXPECT_EQ(Marker(device), kMarkerBytes);
  EXPECT_FALSE(clients[1]->Close());
  EXPECT_FALSE(clients[2]->Send(GetText(kOwnComponent)));
  EXPECT_EQ(PRN_Open(1, 0, 0), 0u);
  char byte = 'x';
  EXPECT_EQ(PRN_Read(1, &byte, 1), 1u);

  device.MakeFolder("root/Store");
  device.Put("root/Store/ValmereProperties.ini", WithTrailer(kInfoZoneOn));
  ASSERT_EQ(PRN_Init(0), 1u);
  EXPECT_EQ(PRN_Open(1, 0, 0), 1u);
  EXPECT_EQ(PRN_Deinit(1), 1u);
  EXPECT_EQ(Marker(device), kMarkerBytes + kMarkerBytes);
  EXPECT_THAT(device.Get("root/Store/ValmereLog.txt"),
              ::testing::HasSubstr(",All sessions are closed\r\n"))
      << "while the service was there";
}

TEST(UnloadTest, WritesItsMarkerIntoTheRootOfThatInit) {
  DeviceRoot device;
  device.MakeFolder("other");
  ASSERT_EQ(PRN_Init(0), 1u);
  device.Use("other");
  EXPECT_EQ(PRN_Deinit(1), 1u);
  EXPECT_EQ(Marker(device), kMarkerBytes);
  EXPECT_EQ(Marker(device, "other"), "");
}

TEST(LeftoverTest, NoThreadHandleOrMemoryIsLeft) {
  const DeviceRoot device;
  TestThread([] {}).Join();  // a sanitizer's own thread comes with the first other one
  const std::size_t threads = ThreadCount();
  const std::size_t handles = HandleCount();
  // A run may leave something for good, such as what the C library keeps at hand; a run that leaks
  // does so each time.
  constexpr int kMostRuns = 5;
  constexpr std::size_t kKeptAtHand = 8 * 1024;
  std::string marker;
  std::size_t in_use = 0;
  bool grows = true;
  for (int run = 0; run < kMostRuns && grows; ++run) {
    ASSERT_EQ(PRN_Init(0), 1u);
    {
      auto clients = OpenClients(30);
      UseService(clients);
      // Each has a thread that is at work; not for longer than a thread is given to end, though.
      for (std::size_t i = 10; i < clients.size(); ++i)
        clients[i]->Send(i % 10 == 0 ? R"({"GetAllProperties": true})" : GetText(kOwnComponent));
      EXPECT_GT(ThreadCount(), threads);
      EXPECT_EQ(PRN_Deinit(1), 1u);
    }
    EXPECT_EQ(ThreadCount(), threads);
    EXPECT_EQ(HandleCount(), handles);
    marker += kMarkerBytes;
    EXPECT_EQ(Marker(device), marker);
    const std::size_t before = std::exchange(in_use, HeapBytes());
    grows = run == 0 || in_use > before + kKeptAtHand;
  }
  EXPECT_FALSE(grows);
}

class ReplacedServiceTest : public EntryTest {};

TEST_F(ReplacedServiceTest, ReleasesItsReaders) {
  Client written;
  EXPECT_EQ(written.Ask(GetText(kOwnComponent)), OwnComponentText());
  Client never_written;
  {
    const BlockedReader first(written.handle());
    const BlockedReader second(never_written.handle());
    EXPECT_EQ(PRN_Init(0), 1u);
  }
  EXPECT_EQ(PRN_Open(1, 0, 0), 1u);
}

TEST_F(ReplacedServiceTest, TakesItsThreadsAlong) {
  const std::size_t threads = ThreadCount();
  for (int i = 0; i < 5; ++i) {
    auto clients = OpenClients(10);
    UseService(clients);
    ASSERT_EQ(PRN_Init(0), 1u);
  }
  // The thread that serves the service's own device ends by itself soon after a start, and may have
  // been counted in either number.
  EXPECT_TRUE(Eventually([&] { return ThreadCount() <= threads; })) << ThreadCount();
}

TEST_F(ReplacedServiceTest, ListensOnNoPort) {
  Client client;
  EXPECT_EQ(client.Ask(GetText(kOwnComponent)), OwnComponentText());
  EXPECT_EQ(ListeningSocketCount(), 0u);
}

// What a session is sent after it has ended must not be kept.
TEST_F(ReplacedServiceTest, DropsWhatIsWrittenToAnEndedSession) {
  Client client;
  ASSERT_TRUE(client.SendBytes(FrameOf("nonsense")));
  ASSERT_EQ(client.Receive(), std::nullopt);
  const std::string bytes(1 << 20, 'b');
  ASSERT_TRUE(client.SendBytes(bytes));
  const std::size_t before = ResidentBytes();
  for (int i = 0; i < 100; ++i)
    ASSERT_TRUE(client.SendBytes(bytes));
  EXPECT_LT(ResidentBytes(), before + (50u << 20));
}

}  // namespace
}  // namespace valmere::test
