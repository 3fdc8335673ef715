#include "protocol/wire/entry_frame.h"

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <string_view>
#include <vector>

#include "protocol/message/property_message.h"
#include "tests/support/frames.h"
#include "tests/support/scripted_connection.h"

namespace valmere::test {
namespace {

const std::atomic<bool> kWanted{false};

// The frame that the message and the JSON writer make of the records.
std::string FrameOfMessage(const std::vector<PropertyResponseRecord>& records) {
  PropertyMessage message;
  message.GetResponses(records);
  ScriptedConnection connection;
  EXPECT_TRUE(message.Write(connection));
  return connection.writes().at(0);
}

std::string FrameOfMessage(const std::vector<PropertySetRecord>& records) {
  PropertyMessage message;
  message.SetRequests(records);
  ScriptedConnection connection;
  EXPECT_TRUE(message.Write(connection));
  return connection.writes().at(0);
}

template <class Frame, class Record>
std::string FrameBy(const std::vector<Record>& records) {
  std::string buffer = "what the last reply left";
  Frame frame(buffer, kWanted);
  for (const Record& record : records)
    EXPECT_TRUE(frame.Append(record));
  frame.Finish();
  return buffer;
}

std::string FrameOfEntries(const std::vector<PropertyResponseRecord>& records) {
  return FrameBy<ResponseFrame>(records);
}

// An entry of which all but the value is as short as can be.
PropertyResponseRecord Valued(std::string_view value) {
  return {"", "", "", "", value, "", "", ""};
}

TEST(ResponseFrame, WritesOneEntryWithItsKeysInOrder) {
  EXPECT_EQ(FrameOf(R"({"PropertyGetResponses": [{"Component": "C","ComponentString": "CS",)"
                    R"("GUID": "G:P","GroupString": "GS","NameString": "NS",)"
                    R"("Status": "Successful","Value": "V"}]})"),
            FrameOfEntries({{"G", "GS", "P", "NS", "V", "Successful", "C", "CS"}}));
}

TEST(ResponseFrame, WritesNoEntries) {
  EXPECT_EQ(FrameOf(R"({"PropertyGetResponses": []})"), FrameOfEntries({}));
  EXPECT_EQ(FrameOfMessage(std::vector<PropertyResponseRecord>{}), FrameOfEntries({}));
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
  EXPECT_EQ(FrameOfMessage(std::vector{record}), FrameOfEntries({record}));
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
  std::string other;
  ResponseFrame two(other, kWanted);
  const std::size_t begin = two.end();
  EXPECT_TRUE(two.Append(first));
  EXPECT_TRUE(two.Append(second));
  std::string buffer;
  ResponseFrame frame(buffer, kWanted);
  EXPECT_TRUE(frame.AppendText(two.Text(begin, two.end())));
  EXPECT_TRUE(frame.Append(first));
  EXPECT_TRUE(frame.AppendText(two.Text(begin, two.end())));
  frame.Finish();
  EXPECT_EQ(FrameOfEntries({first, second, first, first, second}), buffer);
}

TEST(ResponseFrame, TellsWhetherItHasEntries) {
  std::string buffer;
  ResponseFrame frame(buffer, kWanted);
  EXPECT_TRUE(frame.empty());
  EXPECT_TRUE(frame.Append({}));
  EXPECT_FALSE(frame.empty());
  frame.Clear();
  EXPECT_TRUE(frame.empty());
}

TEST(ResponseFrame, IsTheMessagesTextHoweverLong) {
  std::string long_text;
  while (long_text.size() < 3'000'000)
    long_text.append(1000, static_cast<char>(long_text.size() % 256)).append("\"\\x");
  const std::vector<PropertyResponseRecord> records = {
      {"G", "GS", "P", "NS", long_text, "Successful", "C", "CS"},
      {"G", long_text, "P", "NS", "V", "Successful", "C", "CS"},
      {"", "", "", "", "", "", "", ""}};
  EXPECT_EQ(FrameOfMessage(records), FrameOfEntries(records));
}

TEST(ResponseFrame, IsLeftAloneOnceItIsComplete) {
  std::string buffer;
  ResponseFrame frame(buffer, kWanted);
  EXPECT_TRUE(frame.Append(Valued("1")));
  frame.Finish();
  buffer.back() = '!';  // a mark that completing it again would remove
  frame.Finish();
  EXPECT_EQ('!', buffer.back());
}

TEST(ResponseFrame, CanBeCompletedAgainWithMore) {
  std::string buffer;
  ResponseFrame frame(buffer, kWanted);
  EXPECT_TRUE(frame.Append(Valued("1")));
  frame.Finish();
  EXPECT_EQ(FrameOfEntries({Valued("1")}), buffer);
  EXPECT_TRUE(frame.Append(Valued("2")));
  frame.Finish();
  EXPECT_EQ(FrameOfEntries({Valued("1"), Valued("2")}), buffer);
}

TEST(ResponseFrame, TakesNoEntryThatMakesItTooLong) {
  const std::size_t fits = FrameOfEntries({Valued("12"), Valued("3456")}).size();
  for (const std::size_t most : {fits, fits + 1}) {
    std::string buffer;
    ResponseFrame frame(buffer, kWanted);
    frame.set_most(most);
    EXPECT_TRUE(frame.Append(Valued("12")));
    EXPECT_FALSE(frame.Append(Valued("345678")));
    EXPECT_FALSE(frame.Append(Valued("345\n\n"))) << "its escapes do not fit";
    EXPECT_FALSE(frame.AppendText(std::string(most, 'x')));
    EXPECT_TRUE(frame.too_long());
    EXPECT_TRUE(frame.Append(Valued("3456"))) << "the others left it as it was";
    EXPECT_FALSE(frame.Append(Valued("")));
    frame.Finish();
    EXPECT_EQ(FrameOfEntries({Valued("12"), Valued("3456")}), buffer);
  }
}

TEST(ResponseFrame, TakesNoMoreRoomThanItMayNeed) {
  constexpr std::size_t kMost = std::size_t{20} << 20;
  std::string buffer;
  ResponseFrame frame(buffer, kWanted);
  frame.set_most(kMost);
  const std::string value(100'000, '\x01');
  while (frame.Append(Valued(value))) {
  }
  EXPECT_LT(kMost - 6 * value.size() - 1000, frame.end());
  frame.Finish();
  EXPECT_GE(kMost, buffer.size());
  EXPECT_GT(kMost + 1'000'000, buffer.capacity());
  frame.Clear();
  frame.Reserve(1'000'000'000, 352);
  EXPECT_GT(kMost + 1'000'000, buffer.capacity());
}

// Gives what is asked for, and counts how often.
class CountingMemory final : public FrameMemory {
 public:
  std::string Take(std::size_t bytes) override {
    ++taken;
    std::string buffer;
    buffer.reserve(bytes);
    return buffer;
  }
  int taken = 0;
};

TEST(ResponseFrame, NeedsOneBufferForEntriesOfTheLengthThatItReservedFor) {
  const std::string value(100, 'x');
  const std::size_t entry = FrameOfEntries({Valued(value), Valued(value)}).size() -
                            FrameOfEntries({Valued(value)}).size();
  CountingMemory memory;
  std::string buffer;
  ResponseFrame frame(buffer, kWanted, &memory);
  frame.Reserve(1001, entry);
  for (int i = 0; i < 1000; ++i)
    EXPECT_TRUE(frame.Append(Valued(value)));
  frame.Finish();
  EXPECT_EQ(1, memory.taken);
  for (int i = 0; i < 2; ++i)
    EXPECT_TRUE(frame.Append(Valued(value)));
  EXPECT_EQ(2, memory.taken) << "there was room for no more";
}

TEST(ResponseFrame, TakesLargeBuffersFromItsMemory) {
  std::vector<PropertyResponseRecord> records;
  const std::string values[] = {std::string(1000, 'x'), std::string(1000, '\x01'),
                                std::string(100'000, '"'), std::string(3'000'000, 'x')};
  for (int i = 0; i < 100; ++i)
    records.push_back(Valued(values[i < 50 ? i % 2 : i % 3]));
  records.push_back(Valued(values[3]));
  CountingMemory memory;
  std::string buffer;
  ResponseFrame frame(buffer, kWanted, &memory);
  for (const PropertyResponseRecord& record : records)
    EXPECT_TRUE(frame.Append(record));
  frame.Finish();
  EXPECT_TRUE(FrameOfEntries(records) == buffer);
  EXPECT_LT(5, memory.taken);
  EXPECT_GT(12, memory.taken) << "each is twice as long as the one before";
}

TEST(ResponseFrame, NeedsNoMemoryForShortFrames) {
  CountingMemory memory;
  std::string buffer;
  ResponseFrame frame(buffer, kWanted, &memory);
  for (int i = 0; i < 20; ++i)
    EXPECT_TRUE(frame.Append(Valued("value")));
  EXPECT_EQ(0, memory.taken);
}

TEST(ResponseFrame, TakesNothingOnceItIsNotWanted) {
  std::atomic<bool> stop{false};
  std::string buffer;
  ResponseFrame frame(buffer, stop);
  EXPECT_TRUE(frame.Append(Valued("1")));
  stop = true;
  EXPECT_FALSE(frame.Append(Valued("2")));
  EXPECT_FALSE(frame.AppendText("2"));
  EXPECT_FALSE(frame.too_long());
  stop = false;
  frame.Finish();
  EXPECT_EQ(FrameOfEntries({Valued("1")}), buffer);
}

TEST(SetFrame, IsTheMessagesText) {
  EXPECT_EQ(FrameOf(R"({"PropertySetRequests": [{"Component": "C","GUID": "G:P","Value": "V"}]})"),
            FrameBy<SetFrame>(std::vector<PropertySetRecord>{{"P", "G", "C", "V"}}));
  std::string every_byte;
  for (int byte = 0; byte < 256; ++byte)
    every_byte.push_back(static_cast<char>(byte));
  const std::string texts[] = {"0" + every_byte, "1" + every_byte, "2" + every_byte,
                               "3" + every_byte};
  const std::string long_text(1'000'000, '\n');
  const std::vector<PropertySetRecord> records = {
      {texts[0], texts[1], texts[2], texts[3]}, {"", "", "", ""}, {"P", "G", "C", long_text}};
  EXPECT_EQ(FrameOfMessage(records), FrameBy<SetFrame>(records));
  EXPECT_EQ(FrameOfMessage(std::vector<PropertySetRecord>{}),
            FrameBy<SetFrame>(std::vector<PropertySetRecord>{}));
}

}  // namespace
}  // namespace valmere::test
