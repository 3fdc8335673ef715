#include "store/engine/debug_zones.h"

#include <memory>
#include <string>
#include <vector>

#include "persist/log/debug_switches.h"
#include "tests/persist/settings/persistence_fixture.h"

namespace valmere::test {
namespace {

constexpr std::string_view kGroup = "E96B0063-C2EF-4545-92E1-AC4990BA1B37:";

// Leaves the process-wide switches as they start.
class DebugZonesTest : public PersistenceTest {
 protected:
  void TearDown() override {
    for (std::size_t i = 0; i < static_cast<std::size_t>(DebugZone::kCount); ++i)
      SwitchOf(static_cast<DebugZone>(i)) = i < 2;
  }
  void Publish() {
    StartWriting();
    PublishDebugZones(*persistence_);
  }
};

TEST_F(DebugZonesTest, OnlyErrorsAndWarningsAreOnAtFirst) {
  for (std::size_t i = 0; i < static_cast<std::size_t>(DebugZone::kCount); ++i)
    EXPECT_EQ(IsOn(static_cast<DebugZone>(i)), i < 2) << i;
}

TEST_F(DebugZonesTest, ThirteenPropertiesComeInOrder) {
  Publish();
  auto names = engine_->names();
  names.erase(names.begin(), names.begin() + 5);
  EXPECT_EQ(names,
            (std::vector<std::string>{
                "Enable Error Debug Zone", "Enable Warning Debug Zone", "Enable Info Debug Zone",
                "Debug Zone Property", "Debug Zone DeInit", "Debug Zone PICL",
                "Debug Zone SQA Monitor", "DebugZoneRamp", "DebugZoneInit",
                "Debug Zone Manufacturing", "LeakTracking", "ThreadIds", "DebugZoneBpl"}));
  for (const std::string& name : names) {
    const bool on = name == names[0] || name == names[1];
    EXPECT_EQ(Own(name)->ToString(), on ? "True" : "False");
    EXPECT_EQ(Own(name)->group_name(), "Debug Zone");
    EXPECT_EQ(Own(name)->attribute(), Property::kRestored | Property::kSettable);
  }
}

TEST_F(DebugZonesTest, EachHasItsPlaceInTheCatalogue) {
  Publish();
  const std::vector<std::pair<std::string, std::string>> guids = {
      {"Enable Error Debug Zone", "7768EEBB-FFC6-400A-986E-9FBE409FCB86"},
      {"Enable Warning Debug Zone", "22EB0B47-601A-45AB-A506-E379E2C8833F"},
      {"Enable Info Debug Zone", "8D6BC3E1-3943-4E0D-97E7-601690F93C1E"},
      {"Debug Zone Property", "B1D20790-2816-438F-ABFA-A72D9FEA1964"},
      {"Debug Zone DeInit", "2C356A8C-215F-4AE5-9604-1198D7C563C9"},
      {"Debug Zone PICL", "E61A6BE6-42F5-4EF9-84F0-3030263CCE3F"},
      {"Debug Zone SQA Monitor", "6A7D44F9-B3BD-4029-A6DF-1240647D2758"},
      {"DebugZoneRamp", "1ACE8409-C525-41D7-89F7-023AD44BBA72"},
      {"DebugZoneInit", "48EB170C-B730-4B60-851C-0ACF68AB5A59"},
      {"Debug Zone Manufacturing", "3CB08E5C-CCE4-4019-AD59-64C4975E7B0D"},
      {"LeakTracking", "33DA4993-F121-42F3-A92F-A9B6CE41C45B"},
      {"ThreadIds", "93840CDA-7763-4E68-A89B-9FE743520DA2"},
      {"DebugZoneBpl", "187820B9-D046-4CC0-8E5C-00A0FA5CB411"}};
  for (const auto& [name, guid] : guids)
    EXPECT_EQ(Own(name)->key().Text(), std::string(kGroup) + guid);
}

TEST_F(DebugZonesTest, EverySwitchFollowsItsProperty) {
  Publish();
  const auto names = engine_->names();
  for (std::size_t i = 0; i < static_cast<std::size_t>(DebugZone::kCount); ++i) {
    const auto property = Own(names[5 + i]);
    for (const bool on : {false, true, false}) {
      property->SetFromString(on ? "True" : "False");
      EXPECT_EQ(IsOn(static_cast<DebugZone>(i)), on) << names[5 + i];
    }
  }
}

TEST_F(DebugZonesTest, TakesWhatTheFileHas) {
  PutFile(std::string(kGroup) +
          "7768EEBB-FFC6-400A-986E-9FBE409FCB86|Debug Zone:Enable Error Debug Zone=False\n" +
          std::string(kGroup) +
          "48EB170C-B730-4B60-851C-0ACF68AB5A59|Debug Zone:DebugZoneInit=True\n");
  Publish();
  EXPECT_FALSE(IsOn(DebugZone::kError));
  EXPECT_TRUE(IsOn(DebugZone::kInit));
  EXPECT_EQ(Own("DebugZoneInit")->ToString(), "True");
}

TEST_F(DebugZonesTest, ANewPropertyStartsWithTheSwitchAsItStands) {
  SwitchOf(DebugZone::kRamp) = true;
  Publish();
  EXPECT_EQ(Own("DebugZoneRamp")->ToString(), "True");
}

TEST_F(DebugZonesTest, AChangeReachesTheFile) {
  Publish();
  Own("ThreadIds")->SetFromString("true");
  EXPECT_TRUE(FileBecomes(std::string(kGroup) +
                          "93840CDA-7763-4E68-A89B-9FE743520DA2|Debug Zone:ThreadIds=True\n"));
}

TEST_F(DebugZonesTest, SettersAtTheSameTimeLeaveSwitchAndPropertyEqual) {
  Start();
  PublishDebugZones(*persistence_);
  const auto property = std::static_pointer_cast<BoolProperty>(Own("DebugZoneBpl"));
  {
    std::vector<TestThread> threads;
    for (int t = 0; t < 4; ++t)
      threads.emplace_back([&property, t] {
        for (int i = 0; i < 500; ++i)
          property->SetValue((i + t) % 2 == 0);
      });
  }
  EXPECT_EQ(IsOn(DebugZone::kBpl), property->GetValue());
}

TEST_F(DebugZonesTest, ALineIsOnlyBuiltWhileItsZoneIsOn) {
  int built = 0;
  const auto message = [&] {
    ++built;
    return std::string("line");
  };
  LogIn(DebugZone::kInfo, log_, message);
  EXPECT_EQ(built, 0);
  LogIn(DebugZone::kWarning, log_, message);
  EXPECT_EQ(built, 1);
  LogIn(DebugZone::kWarning, std::shared_ptr<LogSink>(), message);
  EXPECT_EQ(log_->lines(), std::vector<std::string>{"line"});
}

}  // namespace
}  // namespace valmere::test
