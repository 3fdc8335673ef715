// What lasts from one start of the service to the next: values, versions, the log.
#include <algorithm>
#include <string>

#include "tests/driver/entry_fixture.h"
#include "tests/persist/file/property_file_samples.h"
#include "tests/support/test_thread.h"

namespace valmere::test {
namespace {

const std::string kMain = "root/Store/ValmereProperties.ini";
const std::string kOverride = "root/Store/ValmerePropertiesOverride.ini";
const std::string kLog = "root/Store/ValmereLog.txt";
const std::string kGeneral = "99A61D40-20CE-41EA-A579-EB92C6ED94C6:";
const std::string kZones = "E96B0063-C2EF-4545-92E1-AC4990BA1B37:";

const std::string kPeriod = kGeneral + "DA821DC5-948D-4659-9B52-177E4C102129";
const std::string kPeriodLine = kPeriod + "|General:Property Publishing Period in ms=";
const std::string kInfoZone = kZones + "8D6BC3E1-3943-4E0D-97E7-601690F93C1E";
const std::string kLoad = kGeneral + "0D9B0F83-2282-4728-A78E-FE2FF4E3A13C";
const std::string kStore = kGeneral + "DDF2926A-0A65-4196-88FE-5858BC957E0B";
const std::string kMainName = kGeneral + "CD31503F-4949-40E1-BA2C-B2A88CF420F0";
const std::string kLoadingError =
    "2EBF9DEF-D51C-47FE-935E-5EDCC530B867:A32AFFED-7C37-47FE-80DB-B21875E226BD";

Address Own(const std::string& guids) {
  return {kOwnComponent.component, guids};
}

// Each test prepares the device before it starts its service.
class StoredTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() { device(); }
  static void TearDownTestSuite() {
    EXPECT_EQ(PRN_Deinit(1), 1u);
    EXPECT_EQ(Marker(device()), kMarkerBytes);
  }
  void SetUp() override {
    // The service of the test before may still be writing its lines: it ends here, and the one in
    // its place finds no folder for any file.
    device().Use("nowhere");
    ASSERT_EQ(PRN_Init(0), 1u);
    device().Use("root");
    for (const char* path : {"Store/ValmereProperties.ini", "Store/ValmerePropertiesOverride.ini",
                             "Store/ValmereLog.txt", "Store/ValmereLogFileName.txt",
                             "windows/version.ini", "boot/qtlibs_version.ini"})
      device().Remove(std::string("root/") + path);
  }

  static DeviceRoot& device() {
    static DeviceRoot& device = MakeDevice();
    return device;
  }
  static void Start() { ASSERT_EQ(PRN_Init(0), 1u); }
  static void PutMain(const std::string& body) { device().Put(kMain, WithTrailer(body)); }
  static bool MainBecomes(const std::string& body) {
    return Eventually([&] { return device().Get(kMain) == WithTrailer(body); });
  }
  static bool LogHolds(const std::string& text) {
    return Eventually([&] { return device().Get(kLog).find(text) != std::string::npos; });
  }
  // The value of one of the service's own properties; what the client sent before is handled then.
  static std::string Get(FrameClient& client, const std::string& guids) {
    const std::string reply = client.Ask(GetText(Own(guids))).value_or("");
    const std::string before = R"("Value": ")";
    const std::size_t value = reply.rfind(before);
    if (value == std::string::npos) return "(no reply)";
    return reply.substr(value + before.size(), reply.rfind('"') - value - before.size());
  }
  static std::string Get(const std::string& guids) {
    Client client;
    return Get(client, guids);
  }
  static void Set(FrameClient& client, const std::string& guids, const std::string& value) {
    ASSERT_TRUE(client.Send(SetText(Own(guids), value)));
  }

 private:
  static DeviceRoot& MakeDevice() {
    static DeviceRoot made;
    for (const char* folder : {"root/Store", "root/windows", "root/boot"})
      made.MakeFolder(folder);
    return made;
  }
};

TEST_F(StoredTest, AValueOfTheFileIsRestoredAtTheStart) {
  PutMain(kPeriodLine + "1250\n");
  Start();
  EXPECT_EQ(Get(kPeriod), "1250");
  EXPECT_EQ(Get(kLoadingError), "False");
  EXPECT_EQ(device().Get(kMain), WithTrailer(kPeriodLine + "1250\n"));
}

TEST_F(StoredTest, AChangeReachesTheFileAndTheNextStart) {
  Start();
  Client client;
  Set(client, kPeriod, "750");
  EXPECT_TRUE(MainBecomes(kPeriodLine + "750\n"));
  Set(client, kInfoZone, "True");
  EXPECT_TRUE(
      MainBecomes(kPeriodLine + "750\n" + kInfoZone + "|Debug Zone:Enable Info Debug Zone=True\n"));
  Start();
  EXPECT_EQ(Get(kPeriod), "750");
  EXPECT_EQ(Get(kInfoZone), "True");
  EXPECT_TRUE(LogHolds(",Session 1 is open\r\n"));
  Client other;
  Set(other, kInfoZone, "False");
  EXPECT_EQ(Get(other, kInfoZone), "False");
}

TEST_F(StoredTest, TheOverrideIsMergedOnceAndGone) {
  PutMain(kPeriodLine + "1250\n");
  device().Put(kOverride, WithTrailer(kPeriodLine + "2000\nunknown:x|y=z\n"));
  Start();
  EXPECT_EQ(Get(kPeriod), "2000");
  EXPECT_FALSE(device().Has(kOverride));
  EXPECT_TRUE(MainBecomes(kPeriodLine + "2000\n"));
}

TEST_F(StoredTest, LoadPropertiesTellsSubscribersOfWhatIsNew) {
  PutMain(kPeriodLine + "500\n");
  Start();
  Client subscriber;
  ASSERT_TRUE(subscriber.Send(R"({"PropertySubscribeRequests": [{"Component": ")" +
                              kOwnComponent.component + R"(","GUID": ")" + kPeriod + R"("}]})"));
  EXPECT_EQ(Get(subscriber, kPeriod), "500");
  PutMain(kPeriodLine + "250\n");
  Client client;
  Set(client, kLoad, "true");
  EXPECT_EQ(subscriber.Receive(),
            Responses(Entry(Own(kPeriod), "Valmere", "General", "Property Publishing Period in ms",
                            "Successful", "250")));
  EXPECT_EQ(Get(client, kLoadingError), "False");
  EXPECT_TRUE(MainBecomes(kPeriodLine + "250\n"));
}

TEST_F(StoredTest, ALoadThatFailsIsAnErrorAndLoggedWithItsCause) {
  PutMain(kPeriodLine + "1250\n");
  Start();
  Client client;
  Set(client, kPeriod, "750");
  EXPECT_TRUE(MainBecomes(kPeriodLine + "750\n"));
  device().Put(kMain, "not a property file");
  Set(client, kLoad, "true");
  EXPECT_EQ(Get(client, kLoadingError), "True");
  EXPECT_EQ(Get(client, kPeriod), "750");
  EXPECT_TRUE(
      LogHolds(",Property file \"/Store/ValmereProperties.ini\" was not loaded: its "
               "checksum is wrong\r\n"));
  EXPECT_EQ(device().Get(kMain), "not a property file");
}

TEST_F(StoredTest, StorePropertiesWritesAllThatIsRegistered) {
  Start();
  Client client;
  Set(client, kStore, "true");
  // The service's component, the log's name, the period, ten versions, thirteen switches.
  EXPECT_TRUE(Eventually([&] {
    const std::string text = device().Get(kMain);
    return std::count(text.begin(), text.end(), '\n') == 26 &&
           text == WithTrailer(text.substr(0, text.size() - 2));
  }));
  const std::string text = device().Get(kMain);
  EXPECT_NE(text.find("|Components:Valmere=Valmere\n"), std::string::npos);
  EXPECT_NE(text.find("|General:Error Log File Name=/Store/ValmereLog.txt\n"), std::string::npos);
  EXPECT_NE(text.find("|General:Qt Common Modules Build Number=Error\n"), std::string::npos);
  EXPECT_NE(text.find("|Debug Zone:DebugZoneBpl=False\n"), std::string::npos);
  EXPECT_EQ(text.find("Name of Property"), std::string::npos);
  EXPECT_EQ(text.find("Property Loading Error"), std::string::npos);
}

TEST_F(StoredTest, ANameThatWasSetIsUsedWithinTheRoot) {
  device().Put("root/Store/Other.ini", WithTrailer(kPeriodLine + "1500\n"));
  Start();
  Client client;
  Set(client, kMainName, "/../Store/../../Store/Other.ini");
  Set(client, kLoad, "true");
  EXPECT_EQ(Get(client, kPeriod), "1500");
}

TEST_F(StoredTest, VersionsComeFromTheirFiles) {
  device().Put("root/windows/version.ini",
               "OSVersion=\"8.3.6250.0\"\r\nOSBuildNumber=\"6250\"\r\n");
  device().Put("root/boot/qtlibs_version.ini", "QtVersion=\"4.8\"\nQtBuildNumber=none\n");
  Start();
  EXPECT_EQ(Get(kGeneral + "4D682060-3227-4837-909E-6C71F00FA986"), "8.3.6250.0");
  EXPECT_EQ(Get(kGeneral + "774DBE74-CAB4-4894-9E02-D58D3BEB45E4"), "6250");
  EXPECT_EQ(Get(kGeneral + "935E7332-AF38-406E-B881-9F4BC8478788"), "4.8");
  EXPECT_EQ(Get(kGeneral + "B55FF9F9-8C7D-4B26-8DF5-704C8EBFF2F1"), "Error");
  EXPECT_EQ(Get(kGeneral + "F144C4E0-D411-421F-9F87-DA8C9D585361"), "Error");
  EXPECT_EQ(Get(kGeneral + "696F8B22-BB63-4B71-8A22-0FE31EAD4639"), "Error");
}

TEST_F(StoredTest, AVersionCantBeSet) {
  Start();
  Client client;
  const std::string firmware = kGeneral + "ACEB1224-1DAF-42A2-BBAA-4678D5D3C8DA";
  Set(client, firmware, "2.0");
  EXPECT_EQ(Get(client, firmware), "1.1.91188");
  EXPECT_TRUE(LogHolds(R"(,Property "Firmware Version" was not set to "2.0": it can't be set)"
                       "\r\n"));
}

TEST_F(StoredTest, TheNameFileNamesTheLog) {
  device().Put("root/Store/ValmereLogFileName.txt", "/Store/Errors.txt\r\n/Store/No.txt\r\n");
  Start();
  EXPECT_EQ(Get(kGeneral + "32244D1F-E72E-4F42-A4DE-CAB2C6AF88A9"), "/Store/Errors.txt");
  EXPECT_TRUE(Eventually([&] { return device().Has("root/Store/Errors.txt"); }));
  EXPECT_FALSE(device().Has(kLog));
}

TEST_F(StoredTest, AClientCantForgeALogLine) {
  Start();
  Client client;
  Set(client, kPeriod, R"(1x\r\n2)");
  Set(client, kPeriod, R"(\r\nMon Nov 16 09:30:00 2026,forged)");
  ASSERT_TRUE(client.Send(SetText({R"(a\nb)", R"(c\r:d\")"}, "v")));
  EXPECT_EQ(Get(client, kPeriod), "1");
  EXPECT_TRUE(LogHolds(R"(,A set request names no property: "a\nb" "c\r" "d\"")"
                       "\r\n"));
  EXPECT_TRUE(LogHolds(R"(not set to "\r\nMon Nov 16 09:30:00 2026,forged": invalid)"));
  EXPECT_EQ(device().Get(kLog).find("\nMon Nov 16 09:30:00 2026,forged"), std::string::npos);
}

TEST_F(StoredTest, AnUnknownFormatIsLogged) {
  Start();
  Client client;
  ASSERT_TRUE(client.SendBytes(std::string(40, 'x')));
  EXPECT_TRUE(client.Close());
  EXPECT_TRUE(LogHolds(",DataHandlerManager encountered an unknown stream format\r\n"));
}

TEST_F(StoredTest, AFolderInPlaceOfEachFileLeavesTheServiceAnswering) {
  device().MakeFolder(kMain);
  device().MakeFolder(kOverride);
  device().MakeFolder(kLog);
  Start();
  Client client;
  Set(client, kPeriod, "750");
  EXPECT_EQ(Get(client, kPeriod), "750");
  EXPECT_EQ(Get(client, kLoadingError), "True");
}

// The file is long, so that the service is at work on it for most of the time.
TEST_F(StoredTest, ASecondStartAmidQueuedLinesReadsAWholeFile) {
  PutMain(ManyLines(20'000) + kPeriodLine + "1250\n");
  Start();
  for (int round = 0; round < 15; ++round) {
    {
      Client client;
      Set(client, kStore, "true");
      Set(client, kStore, "true");
      EXPECT_EQ(Get(client, kPeriod), "1250");
    }
    Start();
    EXPECT_EQ(Get(kLoadingError), "False") << round;
    EXPECT_EQ(Get(kPeriod), "1250") << round;
  }
}

TEST_F(StoredTest, ASecondStartReplacesTheFirstAndReadsTheFilesAnew) {
  PutMain(kPeriodLine + "1250\n");
  Start();
  EXPECT_EQ(Get(kPeriod), "1250");
  PutMain(kPeriodLine + "1500\n");
  Start();
  EXPECT_EQ(Get(kPeriod), "1500");
  Client client;
  EXPECT_EQ(client.handle(), 2u);
}

}  // namespace
}  // namespace valmere::test
