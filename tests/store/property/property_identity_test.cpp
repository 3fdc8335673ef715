#include "store/property/property_identity.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>

namespace valmere::test {
namespace {

TEST(PropertyIdentity, KeepsTheStringsOfALocalProperty) {
  const PropertyIdentity identity("guid", "name", "group-guid", "group name");
  EXPECT_EQ(identity.guid(), "guid");
  EXPECT_EQ(identity.name(), "name");
  EXPECT_EQ(identity.group_guid(), "group-guid");
  EXPECT_EQ(identity.group_name(), "group name");
  EXPECT_EQ(identity.component(), "");
  EXPECT_EQ(identity.component_name(), "");
  EXPECT_EQ(identity.key().Text(), "group-guid:guid");
}

TEST(PropertyIdentity, KeepsTheStringsOfAComponentsProperty) {
  const PropertyIdentity identity("guid", "name", "group-guid", "group name", "component",
                                  "component name");
  EXPECT_EQ(identity.guid(), "guid");
  EXPECT_EQ(identity.name(), "name");
  EXPECT_EQ(identity.group_guid(), "group-guid");
  EXPECT_EQ(identity.group_name(), "group name");
  EXPECT_EQ(identity.component(), "component");
  EXPECT_EQ(identity.component_name(), "component name");
  EXPECT_EQ(identity.key().Text(), "component:group-guid:guid");
}

TEST(PropertyIdentity, KeepsEmptyStrings) {
  const PropertyIdentity local("", "", "", "");
  EXPECT_EQ(local.key().Text(), ":");
  EXPECT_EQ(local.guid(), "");
  EXPECT_EQ(local.group_guid(), "");
  EXPECT_EQ(local.group_name(), "");
  const PropertyIdentity published("", "n", "", "", "", "");
  EXPECT_EQ(published.key().Text(), "::");
  EXPECT_EQ(published.component(), "");
  EXPECT_EQ(published.name(), "n");
}

TEST(PropertyIdentity, StaysWhereItIsWhenMoved) {
  PropertyIdentity identity("guid", "name", "group", "group name");
  const std::string_view name = identity.name();
  const PropertyIdentity moved(std::move(identity));
  EXPECT_EQ(moved.name().data(), name.data());
  EXPECT_EQ(moved.name(), "name");
}

TEST(PropertyIdentity, CopiesTheCallersTexts) {
  std::string guid = "guid";
  const PropertyIdentity identity(guid, "name", "group", "group name");
  guid = "xxxx";
  EXPECT_EQ(identity.guid(), "guid");
}

}  // namespace
}  // namespace valmere::test
