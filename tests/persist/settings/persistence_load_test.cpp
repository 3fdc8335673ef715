// Files that are loaded again, and override files.
#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "persist/settings/persistence.h"
#include "tests/persist/file/watched_file_system.h"
#include "tests/persist/settings/persistence_fixture.h"

namespace valmere::test {
namespace {

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

TEST_F(PersistenceTest, AReloadOverridesAnEarlierChangeThatIsStillQueued) {
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

TEST_F(PersistenceTest, AnUnfitReloadedValueLeavesThePropertyAsItIsAndIsLogged) {
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

}  // namespace
}  // namespace valmere::test
