#include "protocol/response_frame.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "protocol/property_message.h"
#include "tests/support/frames.h"
#include "tests/support/scripted_connection.h"

namespace valmere {
namespace {

using testing::FrameOf;
using testing::ScriptedConnection;

// The frame that the message and the JSON writer make of the records.
std::string FrameOfMessage(const std::vector<PropertyResponseRecord>& records) {
  PropertyMessage message;
  message.GetResponses(records);
  ScriptedConnection connection;
  EXPECT_TRUE(message.Write(connection));
  return connection.writes().at(0);
}

std::string FrameOfEntries(const std::vector<PropertyResponseRecord>& records) {
  std::string buffer = "what the last reply left";
  ResponseFrame frame(buffer);
  for (const PropertyResponseRecord& record : records)
    frame.Append(record);
  frame.Finish();
  return buffer;
}

TEST(ResponseFrame, WritesOneEntryWithItsKeysInOrder) {
  EXPECT_EQ(FrameOf(R"({"PropertyGetResponses": [{"Component": "C","ComponentString": "CS",)"
                    R"("GUID": "G:P","GroupString": "GS","NameString": "NS",)"
                    R"("Status": "Successful","Value": "V"}]})"),
            FrameOfEntries({{"G", "GS", "P", "NS", "V", "Successful", "C", "CS"}}));
}

TEST(ResponseFrame, WritesNoEntries) {
  EXPECT_EQ(FrameOf(R"({"PropertyGetResponses": []})"), FrameOfEntries({}));
  EXPECT_EQ(FrameOfMessage({}), FrameOfEntries({}));
}

TEST(ResponseFrame, IsTheMessagesTextForEveryByteInEveryField) {
  std::string every_byte;
  for (int byte = 0; byte < 256; ++byte)
    every_byte.push_back(static_cast<char>(byte));
  const std::vector<std::string> texts = {"0" + every_byte, "1" + every_byte, "2" + every_byte,
                                          "3" + every_byte, "4" + every_byte, "5" + every_byte,
                                          "6" + every_byte, "7" + every_byte};
  const PropertyResponseRecord record{texts[0], texts[1], texts[2], texts[3],
                                      texts[4], texts[5], texts[6], texts[7]};
  EXPECT_EQ(FrameOfMessage({record}), FrameOfEntries({record}));
}

TEST(ResponseFrame, IsTheMessagesTextForSeveralRecords) {
  const std::vector<PropertyResponseRecord> records = {
      {"G", "GS", "P", "NS", "V", "Successful", "C", "CS"},
      {"", "", "", "", "", "", "", ""},
      UnknownPropertyRecord({"C", "G", "P"}, kStatusNotFound)};
  EXPECT_EQ(FrameOfMessage(records), FrameOfEntries(records));
}

TEST(ResponseFrame, TakesEntriesAsText) {
  const PropertyResponseRecord first{"G", "GS", "P", "NS", "V\n", "Successful", "C", "CS"};
  const PropertyResponseRecord second{"H", "HS", "Q", "MS", "W", "Successful", "D", "DS"};
  std::string two;
  AppendResponseEntry(first, two);
  two.push_back(',');
  AppendResponseEntry(second, two);
  std::string buffer;
  ResponseFrame frame(buffer);
  frame.AppendText(two);
  frame.Append(first);
  frame.AppendText(two);
  frame.Finish();
  EXPECT_EQ(FrameOfEntries({first, second, first, first, second}), buffer);
}

TEST(ResponseFrame, TellsWhetherItHasEntries) {
  std::string buffer;
  ResponseFrame frame(buffer);
  EXPECT_TRUE(frame.empty());
  frame.Append({});
  EXPECT_FALSE(frame.empty());
}

}  // namespace
}  // namespace valmere
