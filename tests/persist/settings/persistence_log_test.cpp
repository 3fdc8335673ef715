// What the log is told of loads and of lines.
#include <cstdint>
#include <string>
#include <vector>

#include "persist/log/debug_switches.h"
#include "persist/settings/persistence.h"
#include "tests/persist/settings/persistence_fixture.h"

namespace valmere::test {
namespace {

TEST_F(PersistenceTest, AnUnfitValueLeavesThePropertyAsItIsAndIsLogged) {
  PutFile("G:P|Group:Number=many\r\n");
  Start();
  EXPECT_EQ(RegisterNumber(5)->GetValue(), 5u);
  EXPECT_EQ(log_->lines(), std::vector<std::string>{
                               R"(Property "Number" can't take the value "many\r" of the property )"
                               "file"});
}

TEST_F(PersistenceTest, ABadOverrideIsLeftInPlaceAndLogged) {
  PutFile("G:P|Group:Number=700\n");
  files_->Put(kOverride, "bad override");
  Start();
  EXPECT_EQ(RegisterNumber(5)->GetValue(), 700u);
  EXPECT_EQ(files_->Get(kOverride), "bad override");
  EXPECT_EQ(Own("Property Loading Error")->ToString(), "False");
  EXPECT_EQ(log_->lines(),
            std::vector<std::string>{
                R"(Override file "/Store/Override.ini" was not applied: its checksum is wrong)"});
}

TEST_F(PersistenceTest, AnOverrideThatCantBeRemovedIsLogged) {
  PutFile("G:P|Group:Number=700\n");
  files_->Put(kOverride, WithTrailer("G:P|Group:Number=42\n"));
  files_->FailRemovals(true);
  Start();
  EXPECT_EQ(log_->CountOf(R"("/Store/Override.ini" was applied but can't be removed)"), 1u);
}

TEST_F(PersistenceTest, WhatHappenedBeforeThereWasALogIsLoggedOnce) {
  Start();
  const std::vector<std::string> expected = {
      R"(Property file "/Store/Properties.ini" was not loaded: it is missing or can't be opened)"};
  EXPECT_EQ(log_->lines(), expected);
  persistence_->AttachLog(log_);
  EXPECT_EQ(log_->lines(), expected);
}

TEST_F(PersistenceTest, WhatHappenedBeforeThereWasALogIsLoggedInItsOrder) {
  persistence_ = Persistence::Make(files_, kMain, kOverride);
  files_->Put(kMain, "ab");
  persistence_->Load();
  persistence_->AttachLog(log_);
  EXPECT_EQ(
      log_->lines(),
      (std::vector<std::string>{
          R"(Property file "/Store/Properties.ini" was not loaded: it is missing or can't be )"
          "opened",
          R"(Property file "/Store/Properties.ini" was not loaded: it is too short)"}));
}

TEST_F(PersistenceTest, EveryCauseOfAFailedLoadIsTold) {
  PutFile("G:P|Group:Number=700\n");
  Start();
  const auto cause = [&] {
    EXPECT_FALSE(persistence_->Load());
    const std::string line = log_->lines().back();
    return line.substr(line.rfind(": ") + 2);
  };
  files_->Put(kMain, "ab");
  EXPECT_EQ(cause(), "it is too short");
  files_->Put(kMain, "abc");
  EXPECT_EQ(cause(), "its checksum is wrong");
  PutFile("no bar\n");
  EXPECT_EQ(cause(), "it holds a malformed line");
  files_->PutDirectory(kMain);
  EXPECT_EQ(cause(), "it can't be read to its end");
  files_->PutUnopenable(kMain);
  EXPECT_EQ(cause(), "it is missing or can't be opened");
}

TEST_F(PersistenceTest, APathThatAClientSetCantForgeALogLine) {
  Start();
  Own("Name of Property File")->SetFromString("/Store/\r\nMon Nov 16 09:30:00 2026,forged");
  EXPECT_FALSE(persistence_->Load());
  EXPECT_EQ(log_->lines().back(),
            R"(Property file "/Store/\r\nMon Nov 16 09:30:00 2026,forged" was not loaded: it is )"
            "missing or can't be opened");
}

TEST_F(PersistenceTest, LogsErrorsOnlyWhileTheirZoneIsOn) {
  Start();
  SwitchOf(DebugZone::kError) = false;
  persistence_->Load();
  SwitchOf(DebugZone::kError) = true;
  EXPECT_EQ(log_->CountOf("was not loaded"), 1u);
  persistence_->Load();
  EXPECT_EQ(log_->CountOf("was not loaded"), 2u);
}

TEST_F(PersistenceTest, WithoutWarningsTheErrorsAreLoggedAlone) {
  PutFile("G:P|Group:Number=many\n");
  files_->Put(kOverride, "bad override");
  SwitchOf(DebugZone::kWarning) = false;
  StartWriting();
  const auto number = RegisterNumber(5);
  files_->FailRemovals(true);
  files_->Put(kOverride, WithTrailer("G:P|Group:Number=many\n"));
  persistence_->Load();
  files_->PutUnopenable(kMain);
  number->SetValue(6);
  EXPECT_TRUE(Eventually([&] { return !log_->lines().empty(); }));
  SwitchOf(DebugZone::kWarning) = true;
  EXPECT_EQ(log_->lines(),
            std::vector<std::string>{
                R"(Property file "/Store/Properties.ini" was not written: it can't be opened; )"
                "it is tried again"});
}

TEST_F(PersistenceTest, AFullDiskIsLoggedOnceAndChangesGoOn) {
  PutFile("G:P|Group:Number=700\n");
  StartWriting();
  const auto number = RegisterNumber(5);
  files_->FillDiskAfter(0);
  for (std::uint32_t n = 1; n <= 20; ++n)
    number->SetValue(n);
  EXPECT_TRUE(Eventually([&] { return log_->CountOf("was not written") == 1; }));
  EXPECT_EQ(log_->lines().back(),
            R"(Property file "/Store/Properties.ini" was not written: its lines can't all be )"
            "written; it is tried again");
  files_->EndFaults();
  number->SetValue(30);
  EXPECT_TRUE(FileBecomes("G:P|Group:Number=30\n"));
  EXPECT_TRUE(Eventually([&] { return log_->CountOf("is written again, with the ") == 1; }));
  EXPECT_EQ(log_->CountOf("was not written"), 1u);
}

TEST_F(PersistenceTest, WhatIsLostAtTheEndIsNamedInTheLogOnceForEachProperty) {
  PutFile("G:P|Group:Number=700\n");
  StartWriting();
  const auto number = RegisterNumber(5);
  files_->PutUnopenable(kMain);
  number->SetValue(6);
  ASSERT_TRUE(Eventually([&] { return log_->CountOf("was not written") == 1; }));
  number->SetValue(7);
  persistence_->StopWriting();
  EXPECT_EQ(log_->lines().back(), R"(The service ends, not stored: "Group:Number")");
}

}  // namespace
}  // namespace valmere::test
