// Restoring, keeping, the five properties of the component's own.
#include "persist/persistence.h"

#include "tests/persist/persistence_fixture.h"

namespace valmere::testing {
namespace {

TEST_F(PersistenceTest, RestoresAPropertySilentlyWhenItIsRegistered) {
  PutFile("G:P|Group:Number=700\n");
  StartWriting();
  const auto number = MakeNumber(5);
  int announced = 0;
  number->AddListener([&](const std::shared_ptr<Property>&) { ++announced; });
  const std::uint64_t opens = files_->opens();
  persistence_->RegisterProperty(number);
  EXPECT_EQ(number->GetValue(), 700u);
  EXPECT_EQ(announced, 0);
  EXPECT_EQ(files_->opens(), opens);
}

TEST_F(PersistenceTest, FindsTheLineByItsKeyWhateverTheNames) {
  PutFile("G:P|Old Group:Old Name=700\nG:PX|Group:Number=1\n");
  Start();
  EXPECT_EQ(RegisterNumber(5)->GetValue(), 700u);
}

TEST_F(PersistenceTest, APropertyWithoutALineKeepsItsValue) {
  PutFile("G:PX|Group:Number=700\n");
  Start();
  EXPECT_EQ(RegisterNumber(5)->GetValue(), 5u);
}

TEST_F(PersistenceTest, APropertyThatIsNotRestoredKeepsItsValue) {
  PutFile("G:P|Group:Number=700\n");
  Start();
  const auto number = MakeNumber(5);
  number->set_attribute(Property::kSettable);
  persistence_->RegisterProperty(number);
  persistence_->Load();
  EXPECT_EQ(number->GetValue(), 5u);
}

TEST_F(PersistenceTest, AValueThatIsNoneLeavesThePropertyAsItIsAndIsLogged) {
  PutFile("G:P|Group:Number=many\r\n");
  Start();
  EXPECT_EQ(RegisterNumber(5)->GetValue(), 5u);
  EXPECT_EQ(log_->lines(), std::vector<std::string>{
                               R"(Property "Number" can't take the value "many\r" of the property )"
                               "file"});
}

TEST_F(PersistenceTest, AChangeReachesTheFile) {
  PutFile("A:B|C:D=1\nG:P|Group:Number=700\n");
  StartWriting();
  RegisterNumber(5)->SetValue(701);
  EXPECT_TRUE(FileBecomes("A:B|C:D=1\nG:P|Group:Number=701\n"));
}

TEST_F(PersistenceTest, AChangeMakesAFileWhereThereIsNone) {
  StartWriting();
  RegisterNumber(5)->SetValue(6);
  EXPECT_TRUE(FileBecomes("G:P|Group:Number=6\n"));
}

TEST_F(PersistenceTest, AChangeBeforeTheWorkerStartsIsWrittenLater) {
  Start();
  RegisterNumber(5)->SetValue(6);
  EXPECT_EQ(files_->Get(kMain), std::nullopt);
  persistence_->StartWorker(251);
  EXPECT_TRUE(FileBecomes("G:P|Group:Number=6\n"));
}

TEST_F(PersistenceTest, TheLastOfManyChangesStays) {
  StartWriting();
  const auto number = RegisterNumber(0);
  {
    std::vector<TestThread> threads;
    for (std::uint32_t i = 0; i < 4; ++i)
      threads.emplace_back([&number, i] {
        for (std::uint32_t n = 1; n <= 20; ++n)
          number->SetValue(n * 10 + i);
      });
  }
  EXPECT_TRUE(FileBecomes("G:P|Group:Number=" + number->ToString() + "\n"));
}

TEST_F(PersistenceTest, AValueWithALineFeedIsNotWrittenAndCantForgeALine) {
  StartWriting();
  const auto text = StringProperty::Make("", "T", "Text", "G", "Group");
  persistence_->RegisterProperty(text);
  text->SetValue("x\nG:P|Group:Number=9");
  RegisterNumber(5)->SetValue(6);
  EXPECT_TRUE(FileBecomes("G:P|Group:Number=6\n"));
  EXPECT_EQ(log_->CountOf(R"("Text" can't be stored: its value is "x\nG:P|Group:Number=9")"), 1u);
}

TEST_F(PersistenceTest, PublishesItsOwnFiveFirst) {
  Start();
  RegisterNumber(5);
  EXPECT_EQ(engine_->names(),
            (std::vector<std::string>{"Name of Property File", "Name of Property Override File",
                                      "Property Loading Error", "Load Properties",
                                      "Store Properties", "Number"}));
}

TEST_F(PersistenceTest, NoneOfItsOwnIsRestoredAndAllButTheErrorMayBeSet) {
  PutFile(
      "99A61D40-20CE-41EA-A579-EB92C6ED94C6:CD31503F-4949-40E1-BA2C-B2A88CF420F0|General:"
      "Name of Property File=/Store/Other.ini\n");
  Start();
  EXPECT_EQ(Own("Name of Property File")->ToString(), "/Store/Properties.ini");
  EXPECT_EQ(Own("Name of Property File")->attribute(), Property::kSettable);
  EXPECT_EQ(Own("Name of Property Override File")->attribute(), Property::kSettable);
  EXPECT_EQ(Own("Property Loading Error")->attribute(), 0u);
  EXPECT_EQ(Own("Load Properties")->attribute(), Property::kSettable);
  EXPECT_EQ(Own("Store Properties")->attribute(), Property::kSettable);
}

TEST_F(PersistenceTest, ItsOwnFiveHaveTheirPlacesInTheCatalogue) {
  Start();
  const std::string general = "99A61D40-20CE-41EA-A579-EB92C6ED94C6:";
  EXPECT_EQ(Own("Name of Property File")->key(), general + "CD31503F-4949-40E1-BA2C-B2A88CF420F0");
  EXPECT_EQ(Own("Name of Property Override File")->key(),
            general + "C8B8886D-A101-47A9-BC60-477938C53648");
  EXPECT_EQ(Own("Load Properties")->key(), general + "0D9B0F83-2282-4728-A78E-FE2FF4E3A13C");
  EXPECT_EQ(Own("Store Properties")->key(), general + "DDF2926A-0A65-4196-88FE-5858BC957E0B");
  EXPECT_EQ(Own("Store Properties")->group_name(), "General");
  EXPECT_EQ(Own("Property Loading Error")->key(),
            "2EBF9DEF-D51C-47FE-935E-5EDCC530B867:A32AFFED-7C37-47FE-80DB-B21875E226BD");
  EXPECT_EQ(Own("Property Loading Error")->group_name(), "Error");
}

TEST_F(PersistenceTest, StorePropertiesWritesTheRegisteredOnesAndNotItsOwnFive) {
  StartWriting();
  RegisterNumber(5);
  const auto text = StringProperty::Make("one", "A", "Text", "Z", "Last");
  persistence_->RegisterProperty(text);
  Own("Store Properties")->SetFromString("true");
  EXPECT_TRUE(FileBecomes("G:P|Group:Number=5\nZ:A|Last:Text=one\n"));
}

TEST_F(PersistenceTest, AFailedLoadAloneWritesNothing) {
  files_->Put(kMain, "broken");
  StartWriting();
  RegisterNumber(5);
  Own("Load Properties")->SetFromString("true");
  EXPECT_EQ(Own("Property Loading Error")->ToString(), "True");
  persistence_.reset();
  EXPECT_EQ(files_->Get(kMain), "broken");
}

TEST_F(PersistenceTest, LoadPropertiesAnnouncesReloadedValuesAndWritesNoneBack) {
  PutFile("G:P|Group:Number=700\n");
  StartWriting();
  const auto number = RegisterNumber(5);
  std::vector<std::string> announced;
  number->AddListener(
      [&](const std::shared_ptr<Property>& changed) { announced.push_back(changed->ToString()); });
  PutFile("G:P|Other Name:x=+800\n");
  Own("Load Properties")->SetFromString("true");
  EXPECT_EQ(announced, std::vector<std::string>{"800"});
  // Lines come in order: one written back would stand before that of a later change.
  const auto other = UIntProperty::Make(0, "Q", "Other", "G", "Group");
  persistence_->RegisterProperty(other);
  other->SetValue(1);
  EXPECT_TRUE(FileBecomes("G:P|Other Name:x=+800\nG:Q|Group:Other=1\n"));
}

TEST_F(PersistenceTest, AReloadThatFailsLeavesChangedValuesAlone) {
  PutFile("G:P|Group:Number=700\n");
  Start();
  const auto number = RegisterNumber(5);
  number->SetValue(900);
  files_->Put(kMain, "broken");
  EXPECT_FALSE(persistence_->Load());
  EXPECT_EQ(number->GetValue(), 900u);
}

TEST_F(PersistenceTest, AMalformedLineIsAnErrorButTheOthersAreTaken) {
  PutFile("nonsense\nG:P|Group:Number=700\n");
  Start();
  EXPECT_EQ(Own("Property Loading Error")->ToString(), "True");
  EXPECT_EQ(RegisterNumber(5)->GetValue(), 700u);
  PutFile("|x=1\nG:P|Group:Number=701\n");
  EXPECT_FALSE(persistence_->Load());
  EXPECT_EQ(std::static_pointer_cast<UIntProperty>(Own("Number"))->GetValue(), 701u);
}

TEST_F(PersistenceTest, TheLoadingErrorGoesWithTheNextGoodLoad) {
  Start();
  EXPECT_EQ(Own("Property Loading Error")->ToString(), "True");
  PutFile("G:P|Group:Number=700\n");
  EXPECT_TRUE(persistence_->Load());
  EXPECT_EQ(Own("Property Loading Error")->ToString(), "False");
}

TEST_F(PersistenceTest, AnOverrideIsAppliedOnceAndGone) {
  PutFile("A:B|C:D=1\nG:P|Group:Number=700\n");
  files_->Put(kOverride, WithTrailer("G:P|Group:Number=42\nX:Y|unknown:one=1\n"));
  StartWriting();
  EXPECT_EQ(RegisterNumber(5)->GetValue(), 42u);
  EXPECT_EQ(files_->Get(kOverride), std::nullopt);
  EXPECT_TRUE(FileBecomes("A:B|C:D=1\nG:P|Group:Number=42\n"));
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

TEST_F(PersistenceTest, LoadsAndStoresUseTheNamesThatWereSet) {
  PutFile("G:P|Group:Number=700\n");
  files_->Put(u"/Store/Second.ini", WithTrailer("G:P|Group:Number=20\n"));
  files_->Put(u"/Store/SecondOverride.ini", WithTrailer("G:P|Group:Number=21\n"));
  StartWriting();
  const auto number = RegisterNumber(5);
  Own("Name of Property File")->SetFromString("/Store/Second.ini");
  Own("Name of Property Override File")->SetFromString("/Store/SecondOverride.ini");
  EXPECT_EQ(number->GetValue(), 700u);
  Own("Load Properties")->SetFromString("true");
  EXPECT_EQ(number->GetValue(), 21u);
  number->SetValue(22);
  const std::string expected = WithTrailer("G:P|Group:Number=22\n");
  EXPECT_TRUE(Eventually([&] { return files_->Get(u"/Store/Second.ini") == expected; }));
  EXPECT_EQ(files_->Get(kMain), WithTrailer("G:P|Group:Number=700\n"));
}

TEST_F(PersistenceTest, WhatHappenedBeforeThereWasALogIsLoggedOnce) {
  Start();
  const std::vector<std::string> expected = {
      R"(Property file "/Store/Properties.ini" was not loaded: it is missing or can't be opened)"};
  EXPECT_EQ(log_->lines(), expected);
  persistence_->AttachLog(log_);
  EXPECT_EQ(log_->lines(), expected);
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

TEST_F(PersistenceTest, LogsChangesWhileTheirZoneIsOn) {
  PutFile("G:P|Group:Number=700\n");
  Start();
  const auto number = RegisterNumber(5);
  number->SetValue(1);
  SwitchOf(DebugZone::kProperty) = true;
  number->SetValue(2);
  Own("Name of Property File")->SetFromString("a\nb");
  SwitchOf(DebugZone::kProperty) = false;
  EXPECT_EQ(log_->lines(),
            (std::vector<std::string>{R"(Property "Number" is now "2")",
                                      R"(Property "Name of Property File" is now "a\nb")"}));
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
            "written");
  files_->EndFaults();
  number->SetValue(30);
  EXPECT_TRUE(FileBecomes("G:P|Group:Number=30\n"));
  EXPECT_EQ(log_->CountOf("was not written"), 1u);
}

TEST_F(PersistenceTest, GoesWithLinesQueuedAndLeavesNoPropertyAlive) {
  const std::uint32_t before = LiveProperties::Live();
  {
    auto files = std::make_shared<MemoryFileSystem>();
    auto persistence = Persistence::Make(files, kMain, kOverride);
    auto engine = std::make_shared<KeptProperties>();
    persistence->AttachEngine(engine);
    persistence->StartWorker(251);
    auto number = MakeNumber(0);
    persistence->RegisterProperty(number);
    for (std::uint32_t n = 1; n <= 200; ++n)
      number->SetValue(n);
    persistence.reset();
    number->SetValue(7);  // its listener finds nobody any more
  }
  EXPECT_EQ(LiveProperties::Live(), before);
}

}  // namespace
}  // namespace valmere::testing
