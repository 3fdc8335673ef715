#include "protocol/wire/entries.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

#include "json/json_parser.h"
#include "json/json_writer.h"

namespace valmere::test {
namespace {

std::string Written(const JsonValue& value) {
  std::string text;
  WriteJson(value, text);
  return text;
}

// As the receiver of an entry has it.
JsonValue Received(const JsonValue& entry) {
  return ParseJson(Written(entry));
}

TEST(Entry, OfAnAddressHasItsGuidsInOneText) {
  EXPECT_EQ(R"({"Component": "C","GUID": "G:P"})",
            Written(EntryOf(PropertyAddress{"C", "G", "P"})));
}

TEST(Entry, OfASetHasTheValueToo) {
  EXPECT_EQ(R"({"Component": "C","GUID": "G:P","Value": "V"})",
            Written(EntryOf(PropertySetRecord{"P", "G", "C", "V"})));
}

TEST(Entry, OfAResponseHasSevenKeys) {
  EXPECT_EQ(R"({"Component": "C","ComponentString": "CS","GUID": "G:P","GroupString": "GS",)"
            R"("NameString": "NS","Status": "S","Value": "V"})",
            Written(EntryOf(PropertyResponseRecord{"G", "GS", "P", "NS", "V", "S", "C", "CS"})));
}

TEST(Entry, GivesEveryTextBackToItsReceiver) {
  const JsonValue response = Received(EntryOf(PropertyResponseRecord{
      "\"G\"", "\\GS", "P\n:x", "\tNS", "V\x01", "S\r", "/C\x7f", "C\"\\\"S"}));
  const PropertyResponseRecord record = ReadResponseRecord(response);
  EXPECT_EQ("\"G\"", record.group_guid);
  EXPECT_EQ("\\GS", record.group_name);
  EXPECT_EQ("P\n:x", record.guid);
  EXPECT_EQ("\tNS", record.name);
  EXPECT_EQ("V\x01", record.value);
  EXPECT_EQ("S\r", record.status);
  EXPECT_EQ("/C\x7f", record.component);
  EXPECT_EQ("C\"\\\"S", record.component_name);
  const JsonValue set = Received(EntryOf(PropertySetRecord{"P\"", "G\\", "C\n", "V\""}));
  EXPECT_EQ("P\"", ReadSetRecord(set).guid);
  EXPECT_EQ("G\\", ReadSetRecord(set).group_guid);
  EXPECT_EQ("C\n", ReadSetRecord(set).component);
  EXPECT_EQ("V\"", ReadSetRecord(set).value);
  EXPECT_EQ("C\n", ReadAddress(set).component);
  EXPECT_EQ("G\\", ReadAddress(set).group_guid);
  EXPECT_EQ("P\"", ReadAddress(set).guid);
}

TEST(Entry, ReadsWhatIsMissingOrNoStringAsEmpty) {
  for (const std::string_view text :
       {"{}", "[]", "7", "null", R"({"GUID": 7,"Component": true,"Value": {"Value": "x"}})"}) {
    SCOPED_TRACE(text);
    const JsonValue entry = ParseJson(text);
    const PropertySetRecord record = ReadSetRecord(entry);
    EXPECT_EQ("", record.group_guid);
    EXPECT_EQ("", record.guid);
    EXPECT_EQ("", record.component);
    EXPECT_EQ("", record.value);
    EXPECT_EQ("", ReadResponseRecord(entry).status);
  }
}

TEST(Entries, StandInTheOrderOfTheirRecords) {
  const std::vector<PropertyAddress> addresses = {{"C", "G", "P"}, {"A", "B", "C"}};
  EXPECT_EQ(R"([{"Component": "C","GUID": "G:P"},{"Component": "A","GUID": "B:C"}])",
            Written(EntriesOf(std::span<const PropertyAddress>(addresses))));
  EXPECT_EQ("[]", Written(EntriesOf(std::span<const PropertyAddress>())));
}

TEST(Guid, IsJoinedWithAColonAndSplitAtTheFirst) {
  EXPECT_EQ("G:P", JoinGuid("G", "P"));
  EXPECT_EQ(":", JoinGuid("", ""));
  EXPECT_EQ("G", SplitGuid("G:P:x").group_guid);
  EXPECT_EQ("P:x", SplitGuid("G:P:x").guid);
}

TEST(Guid, WithoutAColonIsBothGuids) {
  EXPECT_EQ("G", SplitGuid("G").group_guid);
  EXPECT_EQ("G", SplitGuid("G").guid);
}

}  // namespace
}  // namespace valmere::test
