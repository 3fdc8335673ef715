#include "driver/service/version_info.h"

#include <string>
#include <vector>

#include "tests/persist/settings/persistence_fixture.h"

namespace valmere::test {
namespace {

struct Version {
  std::string name;
  std::string guid;
  std::string value;
};

const std::vector<Version> kVersions = {
    {"OS Version", "4D682060-3227-4837-909E-6C71F00FA986", "8.3"},
    {"OS Build Number", "774DBE74-CAB4-4894-9E02-D58D3BEB45E4", "6250"},
    {"Firmware Version", "ACEB1224-1DAF-42A2-BBAA-4678D5D3C8DA", "1.1.91188"},
    {"Firmware Build Number", "DFB7462A-E1F1-4156-BCFB-A9B878F7FBFF", "91188"},
    {"SDK Version", "593A2CCB-2B05-4F92-B018-0AAEFA6BC74D", "2.7.90503"},
    {"SDK OS Version", "FA426F31-23B3-453B-97B5-DA3089F7FDD4",
     "Windows Embedded Compact 2013 - 8.3.6250.0"},
    {"Qt Runtime Libs Version", "935E7332-AF38-406E-B881-9F4BC8478788", "4.8"},
    {"Qt Runtime Libs Build Number", "B55FF9F9-8C7D-4B26-8DF5-704C8EBFF2F1", "17"},
    {"Qt Common Modules Version", "F144C4E0-D411-421F-9F87-DA8C9D585361", "Error"},
    {"Qt Common Modules Build Number", "696F8B22-BB63-4B71-8A22-0FE31EAD4639", "18"}};

class VersionInfoTest : public PersistenceTest {
 protected:
  void PublishAll() {
    StartWriting();
    PublishOsVersion(*persistence_, "8.3", "6250");
    PublishQtRuntimeVersion(*persistence_, "4.8", "17");
    PublishQtCommonVersion(*persistence_, "Error", "18");
  }
};

TEST_F(VersionInfoTest, PublishesTenTextsInOrder) {
  PublishAll();
  std::vector<std::string> names = engine_->names();
  names.erase(names.begin(), names.begin() + 5);
  ASSERT_EQ(names.size(), kVersions.size());
  for (std::size_t i = 0; i < kVersions.size(); ++i) {
    EXPECT_EQ(names[i], kVersions[i].name);
    const auto property = Own(names[i]);
    EXPECT_EQ(property->key().Text(), "99A61D40-20CE-41EA-A579-EB92C6ED94C6:" + kVersions[i].guid);
    EXPECT_EQ(property->group_name(), "General");
    EXPECT_EQ(property->ToString(), kVersions[i].value);
    EXPECT_EQ(property->attribute(), 0u);
  }
}

TEST_F(VersionInfoTest, WhatRunsIsWhatTheImageSaysAndNotWhatTheFileHas) {
  PutFile(
      "99A61D40-20CE-41EA-A579-EB92C6ED94C6:ACEB1224-1DAF-42A2-BBAA-4678D5D3C8DA|"
      "General:Firmware Version=0.9\n");
  PublishAll();
  persistence_->Load();
  EXPECT_EQ(Own("Firmware Version")->ToString(), "1.1.91188");
}

TEST_F(VersionInfoTest, StorePropertiesWritesThem) {
  PublishAll();
  Own("Store Properties")->SetFromString("true");
  std::string body;
  for (const Version& version : kVersions)
    body += "99A61D40-20CE-41EA-A579-EB92C6ED94C6:" + version.guid + "|General:" + version.name +
            "=" + version.value + "\n";
  EXPECT_TRUE(FileBecomes(body));
}

}  // namespace
}  // namespace valmere::test
