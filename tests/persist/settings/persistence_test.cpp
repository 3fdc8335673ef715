// Restoring, keeping, the five properties of the component's own.
#include "persist/settings/persistence.h"

#include <algorithm>
#include <atomic>
#include <functional>

#include "persist/log/debug_switches.h"
#include "tests/persist/file/watched_file_system.h"
#include "tests/persist/settings/persistence_fixture.h"

namespace valmere::test {
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
  persistence_->StartWorkers(251, 253);
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

// Reading its text for the file takes as long as `while_read` does.
class SlowlyReadNumber final : public UIntProperty {
 public:
  static std::shared_ptr<SlowlyReadNumber> Make(std::function<void()> while_read) {
    return std::make_shared<SlowlyReadNumber>(MakeToken(), std::move(while_read));
  }
  SlowlyReadNumber(MakeToken token, std::function<void()> while_read)
      : UIntProperty(token, 0, PropertyIdentity("P", "Number", "G", "Group")),
        while_read_(std::move(while_read)) {}
  std::string GetValueString() const override {
    std::string text = UIntProperty::GetValueString();
    while_read_();
    return text;
  }

 private:
  const std::function<void()> while_read_;
};

// A change that finds the value of another one being read must wait for its turn; as nothing tells
// that it waits, the reading gives it a moment to come in between.
TEST_F(PersistenceTest, TheLineOfALaterChangeIsTheLaterOne) {
  StartWriting();
  platform::Semaphore reading;
  platform::Semaphore changed;
  std::atomic<bool> first{true};
  const auto number = SlowlyReadNumber::Make([&] {
    if (!first.exchange(false)) return;
    reading.Release();
    changed.WaitUntil(platform::MonotonicNow() + 20 * platform::kTicksPerMillisecond);
  });
  persistence_->RegisterProperty(number);
  {
    TestThread earlier([&] { number->SetValue(1); });
    reading.Wait();
    number->SetValue(2);
    changed.Release();
  }
  const auto other = UIntProperty::Make(0, "Q", "Other", "G", "Group");
  persistence_->RegisterProperty(other);
  other->SetValue(1);
  EXPECT_TRUE(FileBecomes("G:P|Group:Number=2\nG:Q|Group:Other=1\n"));
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

TEST_F(PersistenceTest, PublishesWhatIsRegisteredWhileTheEngineIsAttached) {
  class RegisteringProperties final : public PropertySink {
   public:
    explicit RegisteringProperties(Persistence& persistence) : persistence_(persistence) {}
    bool AddProperty(std::shared_ptr<Property> property) override {
      names.emplace_back(property->name());
      if (names.size() == 1) RegisterElsewhere(MakeNumber(5));
      if (property->name() == "Number")
        RegisterElsewhere(UIntProperty::Make(0, "Q", "Other", "G", "Group"));
      return true;
    }
    std::vector<std::string> names;

   private:
    void RegisterElsewhere(const std::shared_ptr<Property>& property) {
      TestThread([&] { persistence_.RegisterProperty(property); }).Join();
    }

    Persistence& persistence_;
  };
  persistence_ = Persistence::Make(files_, kMain, kOverride);
  const auto engine = std::make_shared<RegisteringProperties>(*persistence_);
  persistence_->AttachEngine(engine);
  EXPECT_EQ(engine->names.size(), 7u);
  EXPECT_EQ(std::count(engine->names.begin(), engine->names.end(), "Number"), 1);
  EXPECT_EQ(std::count(engine->names.begin(), engine->names.end(), "Other"), 1);
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

TEST_F(PersistenceTest, StorePropertiesWritesThoseTooThatAreNotRestored) {
  StartWriting();
  const auto number = MakeNumber(5);
  number->set_attribute(Property::kSettable);
  persistence_->RegisterProperty(number);
  Own("Store Properties")->SetFromString("true");
  EXPECT_TRUE(FileBecomes("G:P|Group:Number=5\n"));
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

TEST_F(PersistenceTest, LoadPropertiesAnnouncesReloadedValuesAndStoresThemAsAnyChange) {
  PutFile("G:P|Group:Number=700\n");
  StartWriting();
  const auto number = RegisterNumber(5);
  std::vector<std::string> announced;
  number->AddListener(
      [&](const std::shared_ptr<Property>& changed) { announced.push_back(changed->ToString()); });
  PutFile("G:P|Other Name:x=+800\n");
  Own("Load Properties")->SetFromString("true");
  EXPECT_EQ(announced, std::vector<std::string>{"800"});
  EXPECT_TRUE(FileBecomes("G:P|Other Name:x=+800\nG:P|Group:Number=800\n"));
}

TEST_F(PersistenceTest, AReloadCountsMoreThanTheLineOfAnEarlierChangeThatIsStillQueued) {
  PutFile("G:P|Group:Number=700\n");
  Start();
  const auto number = RegisterNumber(5);
  number->SetValue(701);
  persistence_->Load();
  EXPECT_EQ(number->GetValue(), 700u);
  const auto last = UIntProperty::Make(0, "Q", "Other", "G", "Group");
  persistence_->RegisterProperty(last);
  last->SetValue(1);
  persistence_->StartWorkers(251, 253);
  EXPECT_TRUE(FileBecomes("G:P|Group:Number=700\nG:Q|Group:Other=1\n"));
}

TEST_F(PersistenceTest, AReloadedValueThatAListenerCorrectsIsStoredAsCorrected) {
  PutFile("G:P|Group:Number=700\n");
  StartWriting();
  const auto number = RegisterNumber(5);
  number->AddListener([&](const std::shared_ptr<Property>&) {
    if (number->GetValue() == 800) number->SetValue(750);
  });
  PutFile("G:P|Group:Number=800\n");
  persistence_->Load();
  EXPECT_TRUE(FileBecomes("G:P|Group:Number=750\n"));
}

TEST_F(PersistenceTest, AListenerOfAReloadedPropertyMayAskForALoad) {
  PutFile("G:P|Group:Number=700\n");
  StartWriting();
  const auto number = MakeNumber(5);
  const auto other = UIntProperty::Make(0, "Q", "Other", "G", "Group");
  // The first to hear of the change: no line is being written yet.
  number->AddListener([&](const std::shared_ptr<Property>&) {
    PutFile("G:P|Group:Number=800\nG:Q|Group:Other=1\n");
    persistence_->Load();
  });
  persistence_->RegisterProperty(number);
  persistence_->RegisterProperty(other);
  PutFile("G:P|Group:Number=800\n");
  persistence_->Load();
  EXPECT_EQ(number->GetValue(), 800u);
  EXPECT_EQ(other->GetValue(), 1u);
  other->SetValue(2);
  EXPECT_TRUE(FileBecomes("G:P|Group:Number=800\nG:Q|Group:Other=2\n"));
}

TEST_F(PersistenceTest, AReloadThatFailsLeavesChangedValuesAlone) {
  PutFile("G:P|Group:Number=700\n");
  Start();
  const auto number = RegisterNumber(5);
  number->SetValue(900);
  files_->Put(kMain, "broken");
  EXPECT_FALSE(persistence_->Load());
  EXPECT_EQ(number->GetValue(), 900u);
  EXPECT_EQ(RegisterNumber(5)->GetValue(), 700u) << "of the file that was read before";
}

TEST_F(PersistenceTest, AReloadedValueThatIsNoneLeavesThePropertyAsItIsAndIsLogged) {
  PutFile("G:P|Group:Number=700\n");
  StartWriting();
  const auto number = RegisterNumber(5);
  PutFile("G:P|Group:Number=many\n");
  EXPECT_TRUE(persistence_->Load());
  EXPECT_EQ(number->GetValue(), 700u);
  EXPECT_EQ(log_->CountOf(R"("Number" can't take the value "many" of the property file)"), 1u);
  number->SetValue(701);
  EXPECT_TRUE(FileBecomes("G:P|Group:Number=701\n"));
}

TEST_F(PersistenceTest, WhatAListenerOfAReloadedPropertyChangesIsWritten) {
  PutFile("G:P|Group:Number=700\n");
  StartWriting();
  const auto number = RegisterNumber(5);
  const auto other = UIntProperty::Make(0, "Q", "Other", "G", "Group");
  persistence_->RegisterProperty(other);
  number->AddListener([&](const std::shared_ptr<Property>&) { other->SetValue(1); });
  PutFile("G:P|Group:Number=800\n");
  persistence_->Load();
  EXPECT_TRUE(FileBecomes("G:P|Group:Number=800\nG:Q|Group:Other=1\n"));
}

TEST_F(PersistenceTest, AChangeOnAnotherThreadWhileThePropertyIsReloadedIsWritten) {
  PutFile("G:P|Group:Number=700\n");
  StartWriting();
  const auto number = RegisterNumber(5);
  number->AddListener([&](const std::shared_ptr<Property>&) {
    if (number->GetValue() == 800) TestThread([&] { number->SetValue(801); }).Join();
  });
  PutFile("G:P|Group:Number=800\n");
  persistence_->Load();
  EXPECT_TRUE(FileBecomes("G:P|Group:Number=801\n"));
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

// Nothing tells that a load waits for another; it gets a moment in which it mustn't begin.
TEST_F(PersistenceTest, OneLoadEndsBeforeTheNextBegins) {
  PutFile("G:P|Group:Number=700\n");
  Start();
  const auto number = RegisterNumber(5);
  std::unique_ptr<TestThread> second;
  platform::Semaphore second_runs;
  platform::Semaphore second_ended;
  bool ended_too_soon = false;
  number->AddListener([&](const std::shared_ptr<Property>&) {
    if (second) return;
    second = std::make_unique<TestThread>([&] {
      second_runs.Release();
      persistence_->Load();
      second_ended.Release();
    });
    second_runs.Wait();
    ended_too_soon =
        second_ended.WaitUntil(platform::MonotonicNow() + 20 * platform::kTicksPerMillisecond);
  });
  PutFile("G:P|Group:Number=800\n");
  const std::uint64_t opens = files_->opens();
  persistence_->Load();
  ASSERT_TRUE(second);
  second->Join();
  EXPECT_FALSE(ended_too_soon);
  EXPECT_EQ(files_->opens(), opens + 2);
}

TEST_F(PersistenceTest, NoLoadBeginsOnceLoadsAreStoppedButLinesAreWritten) {
  StartWriting();
  const auto number = RegisterNumber(5);
  persistence_->EndLoads();
  const std::uint64_t opens = files_->opens();
  EXPECT_FALSE(persistence_->Load());
  Own("Load Properties")->SetFromString("True");
  EXPECT_EQ(files_->opens(), opens);
  number->SetValue(6);
  EXPECT_TRUE(FileBecomes("G:P|Group:Number=6\n"));
}

// Here too: the load gets a moment in which it mustn't read.
TEST_F(PersistenceTest, ALoadDoesNotMeetALineThatIsBeingWritten) {
  std::unique_ptr<TestThread> loading;
  std::atomic<bool> loaded{false};
  platform::Semaphore load_ended;
  const auto disk = std::make_shared<WatchedFileSystem>([&] {
    if (loading) return;
    loading = std::make_unique<TestThread>([&] {
      loaded = persistence_->Load();
      load_ended.Release();
    });
    load_ended.WaitUntil(platform::MonotonicNow() + 20 * platform::kTicksPerMillisecond);
  });
  disk->disk.Put(kMain, WithTrailer("G:P|Group:Number=700\n"));
  persistence_ = Persistence::Make(disk, kMain, kOverride);
  persistence_->StartWorkers(251, 253);
  const auto number = RegisterNumber(5);
  number->SetValue(701);
  EXPECT_TRUE(Eventually([&] { return loaded.load(); }));
  loading->Join();
  EXPECT_EQ(number->GetValue(), 701u);
}

TEST_F(PersistenceTest, APropertyIsRegisteredBeforeOrAfterALoad) {
  PutFile("G:P|Group:Number=700\nG:Q|Group:Other=1\n");
  Start();
  const auto number = RegisterNumber(5);
  const auto other = UIntProperty::Make(0, "Q", "Other", "G", "Group");
  std::unique_ptr<TestThread> second;
  platform::Semaphore registered;
  bool registered_too_soon = false;
  number->AddListener([&](const std::shared_ptr<Property>&) {
    second = std::make_unique<TestThread>([&] {
      persistence_->RegisterProperty(other);
      registered.Release();
    });
    registered_too_soon =
        registered.WaitUntil(platform::MonotonicNow() + 20 * platform::kTicksPerMillisecond);
  });
  PutFile("G:P|Group:Number=800\nG:Q|Group:Other=2\n");
  persistence_->Load();
  ASSERT_TRUE(second);
  second->Join();
  EXPECT_FALSE(registered_too_soon);
  EXPECT_EQ(other->GetValue(), 2u);
}

TEST_F(PersistenceTest, TheLoadingErrorGoesWithTheNextGoodLoad) {
  Start();
  EXPECT_EQ(Own("Property Loading Error")->ToString(), "True");
  int announced = 0;
  Own("Property Loading Error")->AddListener([&](const std::shared_ptr<Property>&) {
    ++announced;
  });
  PutFile("G:P|Group:Number=700\n");
  EXPECT_TRUE(persistence_->Load());
  EXPECT_EQ(Own("Property Loading Error")->ToString(), "False");
  EXPECT_EQ(announced, 1);
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

TEST_F(PersistenceTest, StandsALogAndAnEngineThatHaveGone) {
  PutFile("G:P|Group:Number=700\n");
  persistence_ = Persistence::Make(files_, kMain, kOverride);
  persistence_->AttachLog(std::make_shared<KeptLog>());
  persistence_->AttachEngine(std::make_shared<KeptProperties>());
  EXPECT_EQ(RegisterNumber(5)->GetValue(), 700u);
  files_->Put(kMain, "broken");
  EXPECT_FALSE(persistence_->Load());
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

TEST_F(PersistenceTest, GoesWithLinesQueuedAndLeavesNoPropertyAlive) {
  const std::uint32_t before = LiveProperties::Live();
  {
    auto files = std::make_shared<MemoryFileSystem>();
    auto persistence = Persistence::Make(files, kMain, kOverride);
    auto engine = std::make_shared<KeptProperties>();
    persistence->AttachEngine(engine);
    persistence->StartWorkers(251, 253);
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
}  // namespace valmere::test
