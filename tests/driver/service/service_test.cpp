#include "driver/service/service.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "driver/sync/live_counters.h"
#include "persist/log/debug_switches.h"
#include "protocol/message/parser_lock.h"
#include "tests/driver/messages.h"
#include "tests/persist/file/hanging_files.h"
#include "tests/persist/file/property_file_samples.h"
#include "tests/support/frame_client.h"
#include "tests/support/hex_example.h"
#include "tests/support/memory_file_system.h"
#include "tests/support/test_thread.h"

namespace valmere {
namespace {

using test::Eventually;
using test::MemoryFileSystem;
using test::TestThread;
using test::WithTrailer;

constexpr StorePaths kPaths = {u"/Store/Properties.ini", u"/Store/Override.ini",
                               u"/Store/LogFileName.txt"};
constexpr platform::WidePathView kLog = u"/Store/ValmereLog.txt";
constexpr std::string_view kGeneral = "99A61D40-20CE-41EA-A579-EB92C6ED94C6";
constexpr std::string_view kPeriod = "DA821DC5-948D-4659-9B52-177E4C102129";
constexpr std::string_view kZones = "E96B0063-C2EF-4545-92E1-AC4990BA1B37";

std::unique_ptr<ValmereService> MakeService(
    std::shared_ptr<MemoryFileSystem> files = std::make_shared<MemoryFileSystem>()) {
  return std::make_unique<ValmereService>(std::move(files), kPaths, "8.3", "6250");
}

test::Address Own(std::string_view group, std::string_view guid) {
  return {test::kOwnComponent.component, std::string(group) + ":" + std::string(guid)};
}

std::string ZoneLine(std::string_view guid, std::string_view name, std::string_view value) {
  return std::string(kZones)
             .append(":")
             .append(guid)
             .append("|Debug Zone:")
             .append(name)
             .append("=")
             .append(value) +
         "\n";
}

// What one read of exactly `length` bytes gives; shorter when less came.
std::string ReadBytes(DriverSession& session, std::size_t length) {
  std::string text(length, '\0');
  const int count = session.Read(text.data(), static_cast<int>(length));
  text.resize(static_cast<std::size_t>(count > 0 ? count : 0));
  return text;
}

void SendFrame(DriverSession& session, std::string_view text) {
  const std::string frame = test::FrameOf(text);
  EXPECT_EQ(session.Write(frame.data(), static_cast<int>(frame.size())),
            static_cast<int>(frame.size()));
}

std::uint32_t LeftAlive() {
  return LiveWorkerThreads::Live() + LiveEventFlags::Live() + LiveProperties::Live();
}

TEST(ValmereService, AnswersForItsOwnComponentAsSoonAsItExists) {
  const auto service = MakeService();
  const auto session = service->sessions().Find(service->sessions().Open());
  SendFrame(*session, test::GetText(test::kOwnComponent));
  const std::string expected = test::FrameOf(test::OwnComponentText());
  EXPECT_EQ(ReadBytes(*session, expected.size()), expected);
}

// The examples of the format descriptions are a request and its answer.
TEST(ValmereService, AnswersTheExampleFrameWithTheExampleText) {
  const auto service = MakeService();
  const auto session = service->sessions().Find(service->sessions().Open());
  const std::string request = test::HexExample(VALMERE_FORMATS "/frame.md");
  EXPECT_EQ(request, test::FrameOf(test::GetText({"C", "G:P"})));
  session->Write(request.data(), static_cast<int>(request.size()));
  const std::string expected = test::FrameOf(test::HexExample(VALMERE_FORMATS "/message-text.md"));
  EXPECT_EQ(ReadBytes(*session, expected.size()), expected);
}

TEST(ValmereService, ItsComponentPropertyIsTheOnlyOneOfItsGroup) {
  const auto service = MakeService();
  const auto session = service->sessions().Find(service->sessions().Open());
  SendFrame(*session, test::GetText({"", "ADC1E631-2C12-4267-B128-95830EC9857D:"}));
  const std::string expected = test::FrameOf(test::OwnComponentText());
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
  SendFrame(*sessions[1], test::GetText(test::kOwnComponent));
  SendFrame(*sessions[2], test::PublishedText({"component", "group:guid"}, "value"));
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
  const std::string frame = test::FrameOf(text + "]}");
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
  SendFrame(*session, test::GetText(test::kOwnComponent));
  const std::string expected = test::FrameOf(test::OwnComponentText());
  EXPECT_EQ(ReadBytes(*session, expected.size()), expected);
  older.reset();
  const auto other = newer->sessions().Find(newer->sessions().Open());
  SendFrame(*other, test::GetText(test::kOwnComponent));
  EXPECT_EQ(ReadBytes(*other, expected.size()), expected);
}

// Nothing tells that a load waits for another; it gets a moment to.
TEST(ValmereService, NoLoadThatWaitsBeginsOnceItEnds) {
  const auto disk = std::make_shared<MemoryFileSystem>();
  const auto files = std::make_shared<test::HangingFiles>(disk);
  auto service = std::make_unique<ValmereService>(files, kPaths, "8.3", "6250");
  const std::string load =
      test::SetText(Own(kGeneral, "0D9B0F83-2282-4728-A78E-FE2FF4E3A13C"), "True");
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

// One client of a service on files in memory.
class ServiceOnFilesTest : public ::testing::Test {
 protected:
  void TearDown() override {
    service_.reset();
    session_.reset();
    ResetZones();
    EXPECT_EQ(LeftAlive(), 0u);
  }
  static void ResetZones() {
    for (std::size_t i = 0; i < static_cast<std::size_t>(DebugZone::kCount); ++i)
      SwitchOf(static_cast<DebugZone>(i)) = i < 2;
  }
  void Start() { service_ = MakeService(files_); }
  std::string Log() { return files_->Get(kLog).value_or(""); }
  std::size_t CountInLog(std::string_view text) {
    const std::string log = Log();
    std::size_t count = 0;
    for (std::size_t at = 0; (at = log.find(text, at)) != std::string::npos; ++at)
      ++count;
    return count;
  }
  // What the log holds once the service has gone.
  std::string LogAtEnd() {
    service_.reset();
    return Log();
  }
  // What a service whose file turns this zone on logs from its start to its end, line by line
  // without the numbers behind a colon.
  std::vector<std::string> LifeInZone(std::string_view guid, std::string_view name) {
    files_->Put(kLog, "");
    files_->Put(kPaths.property_file, WithTrailer(ZoneLine(guid, name, "True")));
    Start();
    EXPECT_TRUE(service_->CloseSession(service_->OpenSession()));
    service_->CloseAllSessions();
    const std::string log = LogAtEnd();
    ResetZones();
    std::vector<std::string> lines;
    for (std::size_t at = 0; at < log.size();) {
      const std::size_t end = log.find("\r\n", at);
      const std::string line = log.substr(at, end - at);
      const std::string message = line.substr(line.find(',') + 1);
      if (message.find("unknown stream format") == std::string::npos)
        lines.push_back(message.substr(0, message.find(": ")));
      at = end == std::string::npos ? log.size() : end + 2;
    }
    return lines;
  }
  // The names of the properties that the file has, in order.
  std::vector<std::string> NamesInFile() {
    const std::string file = files_->Get(kPaths.property_file).value_or("");
    std::vector<std::string> names;
    for (std::size_t at = 0; (at = file.find('|', at)) != std::string::npos;) {
      const std::size_t begin = file.find(':', at) + 1;
      at = file.find('=', begin);
      names.push_back(file.substr(begin, at - begin));
    }
    return names;
  }
  void Send(std::string_view text) {
    if (!session_) session_ = service_->sessions().Find(service_->sessions().Open());
    SendFrame(*session_, text);
  }
  // Asks for the property; what was sent before has been handled when the answer comes.
  std::string Get(std::string_view group, std::string_view guid) {
    Send(test::GetText(Own(group, guid)));
    const std::string head = ReadBytes(*session_, 16);
    const std::string length = ReadBytes(*session_, 4);
    std::size_t size = 0;
    for (int i = 3; i >= 0; --i)
      size = size * 256 + static_cast<unsigned char>(length.at(static_cast<std::size_t>(i)));
    const std::string text = ReadBytes(*session_, size);
    const std::size_t value = text.rfind("\"Value\": \"") + 10;
    return text.substr(value, text.rfind('"') - value);
  }
  bool FileBecomes(const std::string& body) {
    return Eventually([&] { return files_->Get(kPaths.property_file) == WithTrailer(body); });
  }

  const std::shared_ptr<MemoryFileSystem> files_ = std::make_shared<MemoryFileSystem>();
  std::unique_ptr<ValmereService> service_;
  std::shared_ptr<DriverSession> session_;
};

const std::string kPeriodLine = std::string(kGeneral).append(":").append(kPeriod) +
                                "|General:Property Publishing Period in ms=";

TEST_F(ServiceOnFilesTest, RestoresAndKeepsThePublishingPeriod) {
  files_->Put(kPaths.property_file, WithTrailer(kPeriodLine + "1250\n"));
  Start();
  EXPECT_EQ(Get(kGeneral, kPeriod), "1250");
  Send(test::SetText(Own(kGeneral, kPeriod), "750"));
  EXPECT_TRUE(FileBecomes(kPeriodLine + "750\n"));
}

TEST_F(ServiceOnFilesTest, PublishesTheVersionsItWasGiven) {
  Start();
  service_->PublishQtRuntimeVersion("4.8", "17");
  service_->PublishQtCommonVersion("Error", "18");
  EXPECT_EQ(Get(kGeneral, "4D682060-3227-4837-909E-6C71F00FA986"), "8.3");
  EXPECT_EQ(Get(kGeneral, "774DBE74-CAB4-4894-9E02-D58D3BEB45E4"), "6250");
  EXPECT_EQ(Get(kGeneral, "935E7332-AF38-406E-B881-9F4BC8478788"), "4.8");
  EXPECT_EQ(Get(kGeneral, "B55FF9F9-8C7D-4B26-8DF5-704C8EBFF2F1"), "17");
  EXPECT_EQ(Get(kGeneral, "F144C4E0-D411-421F-9F87-DA8C9D585361"), "Error");
  EXPECT_EQ(Get(kGeneral, "696F8B22-BB63-4B71-8A22-0FE31EAD4639"), "18");
}

TEST_F(ServiceOnFilesTest, RegistersItsPropertiesInTheOrderOfItsConstruction) {
  Start();
  service_->PublishQtRuntimeVersion("4.8", "17");
  service_->PublishQtCommonVersion("4.8", "18");
  Send(test::SetText(Own(kGeneral, "DDF2926A-0A65-4196-88FE-5858BC957E0B"), "True"));
  const std::vector<std::string> names = {"Valmere",
                                          "Error Log File Name",
                                          "Property Publishing Period in ms",
                                          "OS Version",
                                          "OS Build Number",
                                          "Firmware Version",
                                          "Firmware Build Number",
                                          "SDK Version",
                                          "SDK OS Version",
                                          "Enable Error Debug Zone",
                                          "Enable Warning Debug Zone",
                                          "Enable Info Debug Zone",
                                          "Debug Zone Property",
                                          "Debug Zone DeInit",
                                          "Debug Zone PICL",
                                          "Debug Zone SQA Monitor",
                                          "DebugZoneRamp",
                                          "DebugZoneInit",
                                          "Debug Zone Manufacturing",
                                          "LeakTracking",
                                          "ThreadIds",
                                          "DebugZoneBpl",
                                          "Qt Runtime Libs Version",
                                          "Qt Runtime Libs Build Number",
                                          "Qt Common Modules Version",
                                          "Qt Common Modules Build Number"};
  EXPECT_TRUE(Eventually([&] { return NamesInFile().size() >= names.size(); }));
  EXPECT_EQ(NamesInFile(), names);
}

TEST_F(ServiceOnFilesTest, SubscribesToAllOnItsOwnDevice) {
  Start();
  EXPECT_EQ(files_->Get(u"PRN1:").value_or(""),
            test::FrameOf(R"({"SubscribeAllCurrentAndNewProperties": true})"));
}

TEST_F(ServiceOnFilesTest, TellsASubscriberOfAChangeByItself) {
  Start();
  const test::Address period = Own(kGeneral, kPeriod);
  Send(R"({"SubscribeAllCurrentAndNewProperties": true})");
  Send(test::SetText(period, "750"));
  const std::string expected = test::FrameOf(test::Responses(test::Entry(
      period, "Valmere", "General", "Property Publishing Period in ms", "Successful", "750")));
  EXPECT_EQ(ReadBytes(*session_, expected.size()), expected);
}

TEST_F(ServiceOnFilesTest, TellsWhereTheLogIsAndTakesNoOtherNameForIt) {
  files_->Put(kPaths.log_file_name_file, "/Store/Errors.txt \r\n");
  files_->Put(kPaths.property_file,
              WithTrailer(std::string(kGeneral) +
                          ":32244D1F-E72E-4F42-A4DE-CAB2C6AF88A9|General:Error Log File Name=x\n"));
  Start();
  const test::Address name = Own(kGeneral, "32244D1F-E72E-4F42-A4DE-CAB2C6AF88A9");
  Send(test::SetText(name, "/Store/Elsewhere.txt"));
  EXPECT_EQ(Get(kGeneral, "32244D1F-E72E-4F42-A4DE-CAB2C6AF88A9"), "/Store/Errors.txt");
  service_.reset();
  EXPECT_NE(
      files_->Get(u"/Store/Errors.txt")
          .value_or("")
          .find(
              "Property \"Error Log File Name\" was not set to \"/Store/Elsewhere.txt\": it can't "
              "be set\r\n"),
      std::string::npos);
}

TEST_F(ServiceOnFilesTest, TheStreamOnItsOwnDeviceEndsWithItsLogLine) {
  Start();
  EXPECT_TRUE(Eventually([&] {
    return CountInLog(",DataHandlerManager encountered an unknown stream format\r\n") == 1;
  }));
}

TEST_F(ServiceOnFilesTest, LogsTheUnknownFormatWhateverTheZonesSay) {
  files_->Put(kPaths.property_file, WithTrailer(ZoneLine("7768EEBB-FFC6-400A-986E-9FBE409FCB86",
                                                         "Enable Error Debug Zone", "False") +
                                                ZoneLine("22EB0B47-601A-45AB-A506-E379E2C8833F",
                                                         "Enable Warning Debug Zone", "False")));
  Start();
  const auto session = service_->sessions().Find(service_->sessions().Open());
  const std::string noise(64, 'n');
  session->Write(noise.data(), static_cast<int>(noise.size()));
  session->Close();
  EXPECT_TRUE(Eventually([&] { return CountInLog("unknown stream format") == 2; }));
  Send(test::SetText(Own(kGeneral, kPeriod), "no number"));
  EXPECT_EQ(Get(kGeneral, kPeriod), "500");
  service_.reset();
  EXPECT_EQ(CountInLog("unknown stream format"), 2u);
  EXPECT_EQ(CountInLog("\n"), 2u);
}

TEST_F(ServiceOnFilesTest, LogsARefusedSetInOneLineWhateverTheClientWrote) {
  Start();
  Send(test::SetText(Own(kGeneral, kPeriod), R"(x\r\nMon Nov 16 09:30:00 2026,forged)"));
  EXPECT_EQ(Get(kGeneral, kPeriod), "500");
  const std::string log = LogAtEnd();
  EXPECT_NE(log.find("Property \"Property Publishing Period in ms\" was not set to "
                     "\"x\\r\\nMon Nov 16 09:30:00 2026,forged\": invalid stoul argument\r\n"),
            std::string::npos)
      << log;
  EXPECT_EQ(log.find("\nMon Nov 16 09:30:00 2026,forged"), std::string::npos);
}

TEST_F(ServiceOnFilesTest, LogsTheStepsOfItsConstructionWhenTheFileSaysSo) {
  files_->Put(kPaths.property_file, WithTrailer(ZoneLine("48EB170C-B730-4B60-851C-0ACF68AB5A59",
                                                         "DebugZoneInit", "True")));
  Start();
  const std::string log = LogAtEnd();
  EXPECT_NE(log.find(",Property file loaded: "), std::string::npos) << log;
  EXPECT_NE(log.find(",Versions and debug zones published: "), std::string::npos) << log;
  EXPECT_NE(log.find(" us\r\n"), std::string::npos);
  EXPECT_EQ(log.find("Sessions released"), std::string::npos);
}

TEST_F(ServiceOnFilesTest, IsSilentWithoutAZone) {
  files_->Put(kPaths.property_file, WithTrailer(kPeriodLine + "500\n"));
  Start();
  service_->CloseSession(service_->OpenSession());
  EXPECT_EQ(Get(kGeneral, kPeriod), "500");
  service_.reset();
  EXPECT_EQ(CountInLog("\n"), CountInLog("unknown stream format"));
}

TEST_F(ServiceOnFilesTest, TellsEachThingInItsOwnZone) {
  using Lines = std::vector<std::string>;
  EXPECT_EQ(
      LifeInZone("48EB170C-B730-4B60-851C-0ACF68AB5A59", "DebugZoneInit"),
      (Lines{"Task queue made", "Network started", "Property file loaded", "Log opened",
             "Property engine made", "Sessions possible", "Versions and debug zones published"}));
  EXPECT_EQ(LifeInZone("2C356A8C-215F-4AE5-9604-1198D7C563C9", "Debug Zone DeInit"),
            (Lines{"Sessions released", "Acceptor released", "Stream handlers released",
                   "Property engine released"}));
  EXPECT_EQ(LifeInZone("33DA4993-F121-42F3-A92F-A9B6CE41C45B", "LeakTracking"),
            (Lines{"Live", "Live"}));
  EXPECT_EQ(LifeInZone("8D6BC3E1-3943-4E0D-97E7-601690F93C1E", "Enable Info Debug Zone"),
            (Lines{"Session 1 is open", "Session 1 is closed", "All sessions are closed"}));
}

TEST_F(ServiceOnFilesTest, CountsWhatLivesWhenItsReleaseBegins) {
  Start();
  SwitchOf(DebugZone::kLeakTracking) = true;
  const std::string properties = std::to_string(LiveProperties::Live());
  const std::string log = LogAtEnd();
  const std::size_t line = log.find(",Live: ");
  ASSERT_NE(line, std::string::npos) << log;
  EXPECT_NE(log.find(" worker threads, ", line), std::string::npos);
  EXPECT_NE(log.find(" event flags, " + properties + " properties\r\n", line), std::string::npos)
      << log;
}

TEST_F(ServiceOnFilesTest, ClosesEverySessionWhenAsked) {
  Start();
  const auto first = service_->sessions().Find(service_->OpenSession());
  const auto second = service_->sessions().Find(service_->OpenSession());
  service_->CloseAllSessions();
  char byte;
  EXPECT_EQ(first->Read(&byte, 1), Connection::kDrained);
  EXPECT_EQ(second->Read(&byte, 1), Connection::kDrained);
  EXPECT_EQ(service_->sessions().Find(1), nullptr);
  EXPECT_EQ(service_->sessions().Find(2), nullptr);
}

TEST_F(ServiceOnFilesTest, LogsItsReleaseItsSessionsAndItsCountersWhenAsked) {
  Start();
  SwitchOf(DebugZone::kDeInit) = true;
  SwitchOf(DebugZone::kInfo) = true;
  SwitchOf(DebugZone::kLeakTracking) = true;
  EXPECT_EQ(service_->OpenSession(), 1u);
  EXPECT_TRUE(service_->CloseSession(1));
  EXPECT_FALSE(service_->CloseSession(1));
  EXPECT_FALSE(service_->CloseSession(7));
  service_->CloseAllSessions();
  service_.reset();
  EXPECT_EQ(CountInLog(",Session 1 is open\r\n"), 1u);
  EXPECT_EQ(CountInLog(",Session 1 is closed\r\n"), 1u);
  EXPECT_EQ(CountInLog("Session 7"), 0u);
  EXPECT_EQ(CountInLog(",All sessions are closed\r\n"), 1u);
  EXPECT_EQ(CountInLog(",Property engine released: "), 1u);
  EXPECT_EQ(CountInLog(",Live: "), 1u);
}

TEST_F(ServiceOnFilesTest, AZoneThatAClientSetsTakesEffectAndIsKept) {
  Start();
  const std::string_view guid = "8D6BC3E1-3943-4E0D-97E7-601690F93C1E";
  Send(test::SetText(Own(kZones, guid), "True"));
  EXPECT_EQ(Get(kZones, guid), "True");
  EXPECT_TRUE(IsOn(DebugZone::kInfo));
  EXPECT_TRUE(FileBecomes(ZoneLine(guid, "Enable Info Debug Zone", "True")));
}

TEST_F(ServiceOnFilesTest, AnswersWhateverItsFilesAre) {
  const auto make_bad = {&MemoryFileSystem::PutDirectory, &MemoryFileSystem::PutUnopenable};
  for (const auto bad : make_bad) {
    for (const platform::WidePathView path :
         {kPaths.property_file, kPaths.override_file, kPaths.log_file_name_file, kLog})
      (*files_.*bad)(path);
    Start();
    Send(test::SetText(Own(kGeneral, kPeriod), "750"));
    EXPECT_EQ(Get(kGeneral, kPeriod), "750");
    EXPECT_EQ(Get("2EBF9DEF-D51C-47FE-935E-5EDCC530B867", "A32AFFED-7C37-47FE-80DB-B21875E226BD"),
              "True");
    service_.reset();
    session_.reset();
  }
}

TEST_F(ServiceOnFilesTest, AFileOutOfReachIsLoggedOnceAndAnswersGoOn) {
  Start();
  ASSERT_TRUE(Eventually([&] { return CountInLog("\n") >= 2; }));
  files_->PutUnopenable(kPaths.property_file);
  for (int i = 1; i <= 50; ++i) {
    Send(test::SetText(Own(kGeneral, kPeriod), std::to_string(1000 + i)));
    EXPECT_EQ(Get(kGeneral, kPeriod), std::to_string(1000 + i));
  }
  EXPECT_TRUE(Eventually([&] { return CountInLog("was not written: it can't be opened") == 1; }));
  files_->Put(kPaths.property_file, "");
  Send(test::SetText(Own(kGeneral, kPeriod), "2000"));
  EXPECT_TRUE(FileBecomes(kPeriodLine + "2000\n"));
  EXPECT_EQ(CountInLog("was not written"), 1u);
}

}  // namespace
}  // namespace valmere
