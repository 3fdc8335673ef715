#include "protocol/wire/property_records.h"

#include <gtest/gtest.h>

namespace valmere::test {
namespace {

TEST(UnknownPropertyRecord, RepeatsTheAddressAndFillsTheRestWithPlaceholders) {
  const PropertyResponseRecord record = UnknownPropertyRecord({"C", "G", "P"}, "some status");
  EXPECT_EQ("G", record.group_guid);
  EXPECT_EQ("Unknown Group", record.group_name);
  EXPECT_EQ("P", record.guid);
  EXPECT_EQ("Unknown Property", record.name);
  EXPECT_EQ("Invalid Value", record.value);
  EXPECT_EQ("some status", record.status);
  EXPECT_EQ("C", record.component);
}

TEST(UnknownPropertyRecord, ShowsTheGroupPlaceholderAsComponent) {
  EXPECT_EQ("Unknown Group", UnknownPropertyRecord({}, kStatusNotFound).component_name);
}

TEST(StatusTexts, AreThoseOfTheWire) {
  EXPECT_EQ("Successful", kStatusSuccessful);
  EXPECT_EQ("Property Not Found", kStatusNotFound);
  EXPECT_EQ("Property No Longer Available", kStatusNoLongerAvailable);
}

}  // namespace
}  // namespace valmere::test
