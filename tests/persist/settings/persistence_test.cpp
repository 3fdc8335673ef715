// Restoring, keeping, the five properties of the component's own.
#include "persist/settings/persistence.h"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

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

TEST_F(PersistenceTest, ItsOwnAreNotRestoredAndAllButTheErrorMayBeSet) {
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
  EXPECT_EQ(Own("Name of Property File")->key().Text(),
            general + "CD31503F-4949-40E1-BA2C-B2A88CF420F0");
  EXPECT_EQ(Own("Name of Property Override File")->key().Text(),
            general + "C8B8886D-A101-47A9-BC60-477938C53648");
  EXPECT_EQ(Own("Load Properties")->key().Text(), general + "0D9B0F83-2282-4728-A78E-FE2FF4E3A13C");
  EXPECT_EQ(Own("Store Properties")->key().Text(),
            general + "DDF2926A-0A65-4196-88FE-5858BC957E0B");
  EXPECT_EQ(Own("Store Properties")->group_name(), "General");
  EXPECT_EQ(Own("Property Loading Error")->key().Text(),
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

TEST_F(PersistenceTest, OutlivesItsLogAndItsEngine) {
  PutFile("G:P|Group:Number=700\n");
  persistence_ = Persistence::Make(files_, kMain, kOverride);
  persistence_->AttachLog(std::make_shared<KeptLog>());
  persistence_->AttachEngine(std::make_shared<KeptProperties>());
  EXPECT_EQ(RegisterNumber(5)->GetValue(), 700u);
  files_->Put(kMain, "broken");
  EXPECT_FALSE(persistence_->Load());
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
    number->SetValue(7);  // its listener finds no component any more
  }
  EXPECT_EQ(LiveProperties::Live(), before);
}

}  // namespace
}  // namespace valmere::test
