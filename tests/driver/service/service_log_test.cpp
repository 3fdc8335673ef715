// What a service on files writes into its log, and its debug zones.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "persist/log/debug_switches.h"
#include "tests/driver/messages.h"
#include "tests/driver/service/service_fixture.h"
#include "tests/persist/file/property_file_samples.h"

namespace valmere::test {
namespace {

TEST_F(ServiceOnFilesTest, TellsWhereTheLogIsAndTakesNoOtherNameForIt) {
  files_->Put(kPaths.log_file_name_file, "/Store/Errors.txt \r\n");
  files_->Put(kPaths.property_file,
              WithTrailer(std::string(kGeneral) +
                          ":32244D1F-E72E-4F42-A4DE-CAB2C6AF88A9|General:Error Log File Name=x\n"));
  Start();
  const Address name = Own(kGeneral, "32244D1F-E72E-4F42-A4DE-CAB2C6AF88A9");
  Send(SetText(name, "/Store/Elsewhere.txt"));
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
  Send(SetText(Own(kGeneral, kPeriod), "no number"));
  EXPECT_EQ(Get(kGeneral, kPeriod), "500");
  service_.reset();
  EXPECT_EQ(CountInLog("unknown stream format"), 2u);
  EXPECT_EQ(CountInLog("\n"), 2u);
}

TEST_F(ServiceOnFilesTest, LogsARefusedSetInOneLineWhateverTheClientWrote) {
  Start();
  Send(SetText(Own(kGeneral, kPeriod), R"(x\r\nMon Nov 16 09:30:00 2026,forged)"));
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
  Send(SetText(Own(kZones, guid), "True"));
  EXPECT_EQ(Get(kZones, guid), "True");
  EXPECT_TRUE(IsOn(DebugZone::kInfo));
  EXPECT_TRUE(FileBecomes(ZoneLine(guid, "Enable Info Debug Zone", "True")));
}

TEST_F(ServiceOnFilesTest, AFileOutOfReachIsLoggedOnceAndAnswersGoOn) {
  Start();
  ASSERT_TRUE(Eventually([&] { return CountInLog("\n") >= 2; }));
  files_->PutUnopenable(kPaths.property_file);
  for (int i = 1; i <= 50; ++i) {
    Send(SetText(Own(kGeneral, kPeriod), std::to_string(1000 + i)));
    EXPECT_EQ(Get(kGeneral, kPeriod), std::to_string(1000 + i));
  }
  EXPECT_TRUE(Eventually([&] { return CountInLog("was not written: it can't be opened") == 1; }));
  files_->Put(kPaths.property_file, "");
  Send(SetText(Own(kGeneral, kPeriod), "2000"));
  EXPECT_TRUE(FileBecomes(kPeriodLine + "2000\n"));
  EXPECT_EQ(CountInLog("was not written"), 1u);
}

}  // namespace
}  // namespace valmere::test
