// A service and the files that it starts from and writes.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "persist/log/debug_switches.h"
#include "tests/driver/messages.h"
#include "tests/driver/service/service_fixture.h"
#include "tests/persist/file/property_file_samples.h"
#include "tests/support/frames.h"

namespace valmere::test {
namespace {

TEST_F(ServiceOnFilesTest, RestoresAndKeepsThePublishingPeriod) {
  files_->Put(kPaths.property_file, WithTrailer(kPeriodLine + "1250\n"));
  Start();
  EXPECT_EQ(Get(kGeneral, kPeriod), "1250");
  Send(SetText(Own(kGeneral, kPeriod), "750"));
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
  Send(SetText(Own(kGeneral, "DDF2926A-0A65-4196-88FE-5858BC957E0B"), "True"));
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
            FrameOf(R"({"SubscribeAllCurrentAndNewProperties": true})"));
}

TEST_F(ServiceOnFilesTest, TellsASubscriberOfAChangeByItself) {
  Start();
  const Address period = Own(kGeneral, kPeriod);
  Send(R"({"SubscribeAllCurrentAndNewProperties": true})");
  Send(SetText(period, "750"));
  const std::string expected = FrameOf(Responses(Entry(
      period, "Valmere", "General", "Property Publishing Period in ms", "Successful", "750")));
  EXPECT_EQ(ReadBytes(*session_, expected.size()), expected);
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

TEST_F(ServiceOnFilesTest, AnswersWhateverItsFilesAre) {
  const auto make_bad = {&MemoryFileSystem::PutDirectory, &MemoryFileSystem::PutUnopenable};
  for (const auto bad : make_bad) {
    for (const platform::WidePathView path :
         {kPaths.property_file, kPaths.override_file, kPaths.log_file_name_file, kLog})
      (*files_.*bad)(path);
    Start();
    Send(SetText(Own(kGeneral, kPeriod), "750"));
    EXPECT_EQ(Get(kGeneral, kPeriod), "750");
    EXPECT_EQ(Get("2EBF9DEF-D51C-47FE-935E-5EDCC530B867", "A32AFFED-7C37-47FE-80DB-B21875E226BD"),
              "True");
    service_.reset();
    session_.reset();
  }
}

}  // namespace
}  // namespace valmere::test
