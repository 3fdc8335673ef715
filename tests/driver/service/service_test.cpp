#include "driver/service/service.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "driver/sync/live_counters.h"
#include "protocol/message/parser_lock.h"
#include "tests/driver/messages.h"
#include "tests/driver/service/service_fixture.h"
#include "tests/persist/file/hanging_files.h"
#include "tests/support/hex_example.h"
#include "tests/support/memory_file_system.h"
#include "tests/support/test_thread.h"

namespace valmere::test {
namespace {

TEST(ValmereService, AnswersForItsOwnComponentAsSoonAsItExists) {
  const auto service = MakeService();
  const auto session = service->sessions().Find(service->sessions().Open());
  SendFrame(*session, GetText(kOwnComponent));
  const std::string expected = FrameOf(OwnComponentText());
  EXPECT_EQ(ReadBytes(*session, expected.size()), expected);
}

// The examples of the format descriptions are a request and its answer.
TEST(ValmereService, AnswersTheExampleFrameWithTheExampleText) {
  const auto service = MakeService();
  const auto session = service->sessions().Find(service->sessions().Open());
  const std::string request = HexExample(VALMERE_FORMATS "/frame.md");
  EXPECT_EQ(request, FrameOf(GetText({"C", "G:P"})));
  session->Write(request.data(), static_cast<int>(request.size()));
  const std::string expected = FrameOf(HexExample(VALMERE_FORMATS "/message-text.md"));
  EXPECT_EQ(ReadBytes(*session, expected.size()), expected);
}

TEST(ValmereService, ItsComponentPropertyIsTheOnlyOneOfItsGroup) {
  const auto service = MakeService();
  const auto session = service->sessions().Find(service->sessions().Open());
  SendFrame(*session, GetText({"", "ADC1E631-2C12-4267-B128-95830EC9857D:"}));
  const std::string expected = FrameOf(OwnComponentText());
  EXPECT_EQ(ReadBytes(*session, expected.size()), expected);
}

TEST(ValmereService, LeavesNothingAlive) {
  ASSERT_EQ(LeftAlive(), 0u);
  {
    const auto service = MakeService();
    EXPECT_GT(LiveWorkerThreads::Live(), 0u);
    EXPECT_GT(LiveProperties::Live(), 0u);
  }
  EXPECT_EQ(LeftAlive(), 0u);
}

TEST(ValmereService, GoesWithItsSessionsOpenAndInUse) {
  auto service = MakeService();
  std::vector<std::shared_ptr<DriverSession>> sessions;
  for (int i = 0; i < 8; ++i)
    sessions.push_back(service->sessions().Find(service->sessions().Open()));
  SendFrame(*sessions[1], GetText(kOwnComponent));
  SendFrame(*sessions[2], PublishedText({"component", "group:guid"}, "value"));
  sessions[3]->Write("half a frame", 12);
  SendFrame(*sessions[4], R"({"SubscribeAllCurrentAndNewProperties": true})");
  std::vector<TestThread> readers;
  for (int i = 5; i < 8; ++i)
    readers.emplace_back([session = sessions[static_cast<std::size_t>(i)]] {
      char byte;
      EXPECT_EQ(session->Read(&byte, 1), Connection::kDrained);
    });
  service.reset();
  readers.clear();
  sessions.clear();
  EXPECT_EQ(LeftAlive(), 0u);
}

// What a client has queued, even if it would take seconds, is not served any more when the service
// ends: its thread would have to be ended by force, with all that it holds.
TEST(ValmereService, AClientsLongQueueDoesNotHoldUpItsEnd) {
  std::string text = R"({"PropertySetRequests": [{})";
  for (int i = 0; i < 1000; ++i)
    text += ",{}";
  const std::string frame = FrameOf(text + "]}");
  auto service = MakeService();
  auto session = service->sessions().Find(service->sessions().Open());
  for (int i = 0; i < 10'000; ++i)
    session->Write(frame.data(), static_cast<int>(frame.size()));
  service.reset();
  session.reset();
  EXPECT_EQ(LeftAlive(), 0u);
}

TEST(ValmereService, TwoLiveSideBySide) {
  auto older = MakeService();
  const auto session = older->sessions().Find(older->sessions().Open());
  const auto newer = MakeService();
  SendFrame(*session, GetText(kOwnComponent));
  const std::string expected = FrameOf(OwnComponentText());
  EXPECT_EQ(ReadBytes(*session, expected.size()), expected);
  older.reset();
  const auto other = newer->sessions().Find(newer->sessions().Open());
  SendFrame(*other, GetText(kOwnComponent));
  EXPECT_EQ(ReadBytes(*other, expected.size()), expected);
}

// Nothing tells that a load waits for another; it gets a moment to.
TEST(ValmereService, NoLoadThatWaitsBeginsOnceItEnds) {
  const auto disk = std::make_shared<MemoryFileSystem>();
  const auto files = std::make_shared<HangingFiles>(disk);
  auto service = std::make_unique<ValmereService>(files, kPaths, "8.3", "6250");
  const std::string load = SetText(Own(kGeneral, "0D9B0F83-2282-4728-A78E-FE2FF4E3A13C"), "True");
  const auto first = service->sessions().Find(service->sessions().Open());
  const auto second = service->sessions().Find(service->sessions().Open());
  files->HangAtTheNextRead();
  SendFrame(*first, load);
  files->AwaitHanging();
  const std::uint64_t opens = disk->opens();
  SendFrame(*second, load);
  platform::Semaphore().WaitUntil(platform::MonotonicNow() + 20 * platform::kTicksPerMillisecond);
  TestThread ending([&] { service.reset(); });
  EXPECT_EQ(ReadBytes(*first, 1), "");  // returns when the session is closed
  files->GoOn();
  ending.Join();
  EXPECT_EQ(disk->opens(), opens + 1);
}

// The service that it replaces may be parsing one long message after the other.
TEST(ValmereService, StartsWhateverIsBeingParsed) {
  const auto files = std::make_shared<MemoryFileSystem>();
  files->PutUnopenable(u"PRN1:");
  std::unique_ptr<ValmereService> service;
  std::atomic<bool> started{false};
  ParserLock().Enter();
  TestThread starter([&] {
    service = MakeService(files);
    started = true;
  });
  EXPECT_TRUE(Eventually([&] { return started.load(); }));
  ParserLock().Leave();
}

}  // namespace
}  // namespace valmere::test
