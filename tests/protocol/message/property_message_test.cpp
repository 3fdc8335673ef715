#include "protocol/message/property_message.h"

#include <gtest/gtest.h>

#include <array>
#include <string>
#include <string_view>
#include <vector>

#include "json/json_writer.h"
#include "tests/support/frames.h"
#include "tests/support/message_records.h"
#include "tests/support/request_message.h"
#include "tests/support/scripted_connection.h"

namespace valmere::test {
namespace {

std::string TextOf(const PropertyMessage& message) {
  std::string text;
  WriteJson(message.object(), text);
  return text;
}

void ReadInto(PropertyMessage& message, std::string_view text) {
  ScriptedConnection connection({FrameOf(text)});
  ASSERT_TRUE(message.Read(connection)) << text;
}

// A text that must be escaped, and what it must become.
constexpr std::string_view kNasty = "\"\\/\b\f\n\r\t\x01\x1f\x7f\xff";
constexpr std::string_view kNastyEscaped = R"(\"\\/\b\f\n\r\t\u0001\u001f)"
                                           "\x7f\xff";

std::string Nasty(char mark) {
  return mark + std::string(kNasty);
}
std::string Escaped(char mark) {
  return mark + std::string(kNastyEscaped);
}

TEST(PropertyMessageBuilder, SubscribesToAllByTrue) {
  PropertyMessage message;
  message.SubscribeAll();
  EXPECT_EQ(R"({"SubscribeAllCurrentAndNewProperties": true})", TextOf(message));
}

TEST(PropertyMessageBuilder, AddsSubscribeEntriesOneAfterAnother) {
  PropertyMessage message;
  message.AddSubscribeEntry({"c1", "g1", "p1"});
  EXPECT_EQ(R"({"PropertySubscribeRequests": [{"Component": "c1","GUID": "g1:p1"}]})",
            TextOf(message));
  message.AddSubscribeEntry({"c2", "g2", "p2"});
  EXPECT_EQ(R"({"PropertySubscribeRequests": [{"Component": "c1","GUID": "g1:p1"},)"
            R"({"Component": "c2","GUID": "g2:p2"}]})",
            TextOf(message));
}

TEST(PropertyMessageBuilder, ReplacesTheSubscribeRequestsByAList) {
  PropertyMessage message;
  message.AddSubscribeEntry({"old", "old", "old"});
  message.SubscribeList(std::array{PropertyAddress{"c", "g", "p"}});
  EXPECT_EQ(R"({"PropertySubscribeRequests": [{"Component": "c","GUID": "g:p"}]})",
            TextOf(message));
}

TEST(PropertyMessageBuilder, MakesAnEmptyArrayOfNoEntries) {
  RequestMessage message;
  message.SubscribeList({});
  message.GetRequests({});
  message.GetResponses({});
  message.SetRequests({});
  EXPECT_EQ(R"({"PropertyGetRequests": [],"PropertyGetResponses": [],)"
            R"("PropertySetRequests": [],"PropertySubscribeRequests": []})",
            TextOf(message));
}

TEST(PropertyMessageBuilder, WritesSetRequestsWithTheirKeysInByteOrder) {
  PropertyMessage message;
  message.SetRequests(std::array{PropertySetRecord{"p1", "g1", "c1", "v1"},
                                 PropertySetRecord{"p2", "g2", "c2", ""}});
  EXPECT_EQ(R"({"PropertySetRequests": [{"Component": "c1","GUID": "g1:p1","Value": "v1"},)"
            R"({"Component": "c2","GUID": "g2:p2","Value": ""}]})",
            TextOf(message));
}

TEST(PropertyMessageBuilder, WritesResponsesWithTheirKeysInByteOrder) {
  PropertyMessage message;
  message.GetResponses(std::array{
      PropertyResponseRecord{"g", "group", "p", "name", "value", "status", "c", "component"}});
  EXPECT_EQ(R"({"PropertyGetResponses": [{"Component": "c","ComponentString": "component",)"
            R"("GUID": "g:p","GroupString": "group","NameString": "name","Status": "status",)"
            R"("Value": "value"}]})",
            TextOf(message));
}

TEST(PropertyMessageBuilder, WritesGetRequestsTheGetAllAndTheDisconnect) {
  RequestMessage message;
  message.GetRequests(std::array{PropertyAddress{"c", "g", ""}});
  message.RequestAll();
  message.Disconnect();
  EXPECT_EQ(R"({"Disconnect": true,"GetAllProperties": true,)"
            R"("PropertyGetRequests": [{"Component": "c","GUID": "g:"}]})",
            TextOf(message));
}

TEST(PropertyMessageBuilder, EscapesEveryTextOfAnAddress) {
  const std::string c = Nasty('c'), g = Nasty('g'), p = Nasty('p');
  const PropertyAddress address{c, g, p};
  const std::string entry = "[{\"Component\": \"" + Escaped('c') + "\",\"GUID\": \"" +
                            Escaped('g') + ":" + Escaped('p') + "\"}]}";
  PropertyMessage added;
  added.AddSubscribeEntry(address);
  EXPECT_EQ("{\"PropertySubscribeRequests\": " + entry, TextOf(added));
  PropertyMessage listed;
  listed.SubscribeList(std::array{address});
  EXPECT_EQ("{\"PropertySubscribeRequests\": " + entry, TextOf(listed));
  RequestMessage got;
  got.GetRequests(std::array{address});
  EXPECT_EQ("{\"PropertyGetRequests\": " + entry, TextOf(got));
}

TEST(PropertyMessageBuilder, EscapesEveryTextOfASetRequest) {
  const std::string p = Nasty('p'), g = Nasty('g'), c = Nasty('c'), v = Nasty('v');
  PropertyMessage message;
  message.SetRequests(std::array{PropertySetRecord{p, g, c, v}});
  EXPECT_EQ("{\"PropertySetRequests\": [{\"Component\": \"" + Escaped('c') + "\",\"GUID\": \"" +
                Escaped('g') + ":" + Escaped('p') + "\",\"Value\": \"" + Escaped('v') + "\"}]}",
            TextOf(message));
}

TEST(PropertyMessageBuilder, EscapesEveryTextOfAResponse) {
  const std::string g = Nasty('g'), group = Nasty('1'), p = Nasty('p'), name = Nasty('2'),
                    v = Nasty('v'), s = Nasty('s'), c = Nasty('c'), component = Nasty('3');
  PropertyMessage message;
  message.GetResponses(std::array{PropertyResponseRecord{g, group, p, name, v, s, c, component}});
  EXPECT_EQ("{\"PropertyGetResponses\": [{\"Component\": \"" + Escaped('c') +
                "\",\"ComponentString\": \"" + Escaped('3') + "\",\"GUID\": \"" + Escaped('g') +
                ":" + Escaped('p') + "\",\"GroupString\": \"" + Escaped('1') +
                "\",\"NameString\": \"" + Escaped('2') + "\",\"Status\": \"" + Escaped('s') +
                "\",\"Value\": \"" + Escaped('v') + "\"}]}",
            TextOf(message));
}

TEST(PropertyMessageParser, SplitsAGuidAtItsFirstColon) {
  struct Case {
    const char* text;
    const char* group_guid;
    const char* guid;
  };
  for (const Case& c :
       {Case{"g1:p1", "g1", "p1"}, Case{"g1:p1:x", "g1", "p1:x"},
        Case{"nocolon", "nocolon", "nocolon"}, Case{"g1:", "g1", ""}, Case{":p1", "", "p1"},
        Case{":", "", ""}, Case{"::", "", ":"}, Case{"", "", ""}}) {
    PropertyMessage message;
    ReadInto(message, std::string(R"({"PropertyGetRequests": [{"GUID": ")") + c.text + R"("}]})");
    const std::vector<PropertyAddress> addresses = GetRequestsOf(message);
    ASSERT_EQ(1u, addresses.size()) << c.text;
    EXPECT_EQ(c.group_guid, addresses[0].group_guid) << c.text;
    EXPECT_EQ(c.guid, addresses[0].guid) << c.text;
    EXPECT_EQ("", addresses[0].component) << c.text;
  }
}

TEST(PropertyMessageParser, ReadsSetRequestsInTheirOrder) {
  PropertyMessage message;
  ReadInto(message, R"({"PropertySetRequests": [)"
                    R"({"Value": "v1","GUID": "g1:p1","Component": "c1"},)"
                    R"({"Component": "c2","GUID": "g2:p2","Value": "v\"2"}]})");
  const std::vector<PropertySetRecord> records = SetRequestsOf(message);
  ASSERT_EQ(2u, records.size());
  EXPECT_EQ("p1", records[0].guid);
  EXPECT_EQ("g1", records[0].group_guid);
  EXPECT_EQ("c1", records[0].component);
  EXPECT_EQ("v1", records[0].value);
  EXPECT_EQ("p2", records[1].guid);
  EXPECT_EQ("g2", records[1].group_guid);
  EXPECT_EQ("c2", records[1].component);
  EXPECT_EQ("v\"2", records[1].value);
}

TEST(PropertyMessageParser, ReadsSubscribeRequests) {
  PropertyMessage message;
  ReadInto(message, R"({"PropertySubscribeRequests": [{"Component": "c","GUID": "g:p"}]})");
  const std::vector<PropertyAddress> addresses = SubscribeRequestsOf(message);
  ASSERT_EQ(1u, addresses.size());
  EXPECT_EQ("c", addresses[0].component);
  EXPECT_EQ("g", addresses[0].group_guid);
  EXPECT_EQ("p", addresses[0].guid);
  EXPECT_TRUE(GetRequestsOf(message).empty());
}

TEST(PropertyMessageParser, ReadsEveryFieldOfAResponse) {
  PropertyMessage message;
  ReadInto(message, R"({"PropertyGetResponses": [{"Component": "c","ComponentString": "cs",)"
                    R"("GUID": "g:p","GroupString": "gs","NameString": "ns","Status": "st",)"
                    R"("Value": "v"}]})");
  const std::vector<PropertyResponseRecord> records = GetResponsesOf(message);
  ASSERT_EQ(1u, records.size());
  EXPECT_EQ("g", records[0].group_guid);
  EXPECT_EQ("gs", records[0].group_name);
  EXPECT_EQ("p", records[0].guid);
  EXPECT_EQ("ns", records[0].name);
  EXPECT_EQ("v", records[0].value);
  EXPECT_EQ("st", records[0].status);
  EXPECT_EQ("c", records[0].component);
  EXPECT_EQ("cs", records[0].component_name);
}

TEST(PropertyMessageParser, FindsNoEntriesUnderAnAbsentKey) {
  const PropertyMessage message;
  EXPECT_TRUE(SetRequestsOf(message).empty());
  EXPECT_TRUE(GetRequestsOf(message).empty());
  EXPECT_TRUE(SubscribeRequestsOf(message).empty());
  EXPECT_TRUE(GetResponsesOf(message).empty());
}

TEST(PropertyMessageParser, FindsNoEntriesInAValueThatIsNoArray) {
  for (const char* value : {"null", "true", "1", "1.5", R"("text")", R"({"GUID": "g:p"})",
                            R"({"0": {"GUID": "g:p"}})"}) {
    PropertyMessage message;
    const std::string text =
        std::string(R"({"PropertySetRequests": )") + value + R"(,"PropertyGetRequests": )" + value +
        R"(,"PropertySubscribeRequests": )" + value + R"(,"PropertyGetResponses": )" + value + "}";
    ReadInto(message, text);
    EXPECT_TRUE(SetRequestsOf(message).empty()) << value;
    EXPECT_TRUE(GetRequestsOf(message).empty()) << value;
    EXPECT_TRUE(SubscribeRequestsOf(message).empty()) << value;
    EXPECT_TRUE(GetResponsesOf(message).empty()) << value;
  }
}

TEST(PropertyMessageParser, ReadsAnEntryThatIsNoObjectAsEmptyTexts) {
  PropertyMessage message;
  ReadInto(message, R"({"PropertySetRequests": [null,true,1,1.5,"g:p",["g:p"],{}]})");
  const std::vector<PropertySetRecord> records = SetRequestsOf(message);
  ASSERT_EQ(7u, records.size());
  for (const PropertySetRecord& record : records) {
    EXPECT_EQ("", record.guid);
    EXPECT_EQ("", record.group_guid);
    EXPECT_EQ("", record.component);
    EXPECT_EQ("", record.value);
  }
}

TEST(PropertyMessageParser, ReadsAFieldThatIsNoStringAsAnEmptyText) {
  for (const char* value : {"42", "4.5", "true", "null", R"({"a": "b"})", R"(["a"])"}) {
    PropertyMessage message;
    ReadInto(message, std::string(R"({"PropertySetRequests": [{"GUID": "g:p","Component": "c",)") +
                          R"("Value": )" + value + "}]}");
    const std::vector<PropertySetRecord> records = SetRequestsOf(message);
    ASSERT_EQ(1u, records.size());
    EXPECT_EQ("", records[0].value) << value;
    EXPECT_EQ("c", records[0].component) << value;
    EXPECT_EQ("p", records[0].guid) << value;
  }
}

TEST(PropertyMessageParser, ReadsMissingFieldsOfAResponseAsEmptyTexts) {
  PropertyMessage message;
  ReadInto(message, R"({"PropertyGetResponses": [{"Status": "Successful"}]})");
  const std::vector<PropertyResponseRecord> records = GetResponsesOf(message);
  ASSERT_EQ(1u, records.size());
  EXPECT_EQ("Successful", records[0].status);
  for (const std::string_view text :
       {records[0].group_guid, records[0].group_name, records[0].guid, records[0].name,
        records[0].value, records[0].component, records[0].component_name})
    EXPECT_EQ("", text);
}

TEST(PropertyMessageParser, GivesBackWhatTheBuildersWereGiven) {
  std::string every_byte;
  for (int byte = 1; byte < 256; ++byte)
    if (byte != ':') every_byte.push_back(static_cast<char>(byte));
  PropertyMessage sent;
  sent.SetRequests(
      std::array{PropertySetRecord{every_byte + ":", every_byte, every_byte, every_byte}});
  ScriptedConnection connection;
  ASSERT_TRUE(sent.Write(connection));
  ScriptedConnection back(connection.writes());
  PropertyMessage received;
  ASSERT_TRUE(received.Read(back));
  const std::vector<PropertySetRecord> records = SetRequestsOf(received);
  ASSERT_EQ(1u, records.size());
  EXPECT_EQ(every_byte + ":", records[0].guid);
  EXPECT_EQ(every_byte, records[0].group_guid);
  EXPECT_EQ(every_byte, records[0].component);
  EXPECT_EQ(every_byte, records[0].value);
}

TEST(PropertyMessageParser, GoesNoFurtherThanItIsAskedTo) {
  PropertyMessage message;
  ReadInto(message, R"({"PropertySetRequests": [1,2,3],"PropertyGetRequests": [1,2,3],)"
                    R"("PropertySubscribeRequests": [1,2,3],"PropertyGetResponses": [1,2,3]})");
  int taken = 0;
  const auto take_two = [&](const auto&) { return ++taken % 2 != 0; };
  EXPECT_FALSE(message.ForEachSetRequest(take_two));
  EXPECT_FALSE(message.ForEachGetRequest(take_two));
  EXPECT_FALSE(message.ForEachSubscribeRequest(take_two));
  EXPECT_FALSE(message.ForEachPublication(take_two));
  EXPECT_EQ(8, taken);
  EXPECT_TRUE(message.ForEachSetRequest([](const auto&) { return true; }));
}

TEST(PropertyMessage, CountsTheEntriesUnderAKey) {
  PropertyMessage message;
  ReadInto(message, R"({"PropertySetRequests": [1,2,3],"PropertyGetRequests": {"a": [1]}})");
  EXPECT_EQ(3u, message.Count("PropertySetRequests"));
  EXPECT_EQ(0u, message.Count("PropertyGetRequests"));
  EXPECT_EQ(0u, message.Count("PropertyGetResponses"));
}

TEST(PropertyMessage, HasAKeyWhateverItsValue) {
  PropertyMessage message;
  ReadInto(message, R"({"GetAllProperties": null,"Disconnect": false})");
  EXPECT_TRUE(message.Has("GetAllProperties"));
  EXPECT_TRUE(message.Has("Disconnect"));
  EXPECT_FALSE(message.Has("PropertyGetRequests"));
}

TEST(PropertyMessage, IsEmptyAfterClear) {
  RequestMessage message;
  message.RequestAll();
  message.Clear();
  EXPECT_EQ("{}", TextOf(message));
}

}  // namespace
}  // namespace valmere::test
