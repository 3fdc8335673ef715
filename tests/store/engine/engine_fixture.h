// A property engine with clients that speak to it in message texts.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <initializer_list>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "net/client_connection.h"
#include "protocol/message/property_message.h"
#include "store/engine/property_engine.h"
#include "store/engine/subscriber_list.h"
#include "store/property/property_key.h"
#include "store/property/string_property.h"
#include "tests/support/frames.h"
#include "tests/support/scripted_connection.h"
#include "tests/support/stream_fakes.h"
#include "tests/support/test_engine.h"

namespace valmere::test {

using Texts = std::vector<std::string>;

inline constexpr std::string_view kGone = kStatusNoLongerAvailable;

// One client of the engine, and what was written to it.
struct Client {
  Client() = default;
  explicit Client(std::shared_ptr<Connection> other)
      : connection(std::make_shared<ClientConnection>(std::move(other))) {}

  // The texts of the frames that it got since the last call; each must be a whole frame.
  std::vector<std::string> TakeTexts() {
    std::vector<std::string> texts;
    for (const std::string& frame : stream->TakeWrites()) {
      texts.push_back(frame.substr(std::min<std::size_t>(20, frame.size())));
      EXPECT_EQ(FrameOf(texts.back()), frame);
    }
    return texts;
  }

  std::shared_ptr<ScriptedConnection> stream = std::make_shared<ScriptedConnection>();
  std::shared_ptr<ClientConnection> connection = std::make_shared<ClientConnection>(stream);
  ReplyBuffer reply;
};

// The keys of a subscription to these addresses.
inline Subscriber::Keys KeysOf(std::span<const PropertyAddress> addresses) {
  Subscriber::Keys keys;
  for (const PropertyAddress& address : addresses)
    keys.insert(PropertyKey(address.component, address.group_guid, address.guid).Text());
  return keys;
}

// One response entry as the wire has it, from texts that are escaped already.
struct EntryText {
  std::string_view component = "C";
  std::string_view component_string = "Client";
  std::string_view group_guid = "G";
  std::string_view group_string = "Group";
  std::string_view guid = "P";
  std::string_view name_string = "Name";
  std::string_view status = "Successful";
  std::string_view value = "V";

  std::string Text() const {
    std::string text;
    for (const std::string_view part :
         {std::string_view(R"({"Component": ")"), component,
          std::string_view(R"(","ComponentString": ")"), component_string,
          std::string_view(R"(","GUID": ")"), group_guid, std::string_view(":"), guid,
          std::string_view(R"(","GroupString": ")"), group_string,
          std::string_view(R"(","NameString": ")"), name_string,
          std::string_view(R"(","Status": ")"), status, std::string_view(R"(","Value": ")"), value,
          std::string_view(R"("})")})
      text += part;
    return text;
  }
};

inline std::string Responses(std::initializer_list<EntryText> entries) {
  std::string text = R"({"PropertyGetResponses": [)";
  for (const EntryText& entry : entries) {
    if (&entry != entries.begin()) text += ",";
    text += entry.Text();
  }
  return text + "]}";
}

inline std::string NotFound(std::string_view component, std::string_view joined_guid) {
  return R"({"Component": ")" + std::string(component) +
         R"(","ComponentString": "Unknown Group","GUID": ")" + std::string(joined_guid) +
         R"(","GroupString": "Unknown Group","NameString": "Unknown Property",)"
         R"("Status": "Property Not Found","Value": "Invalid Value"})";
}

// The messages with this answer to a get and with these members.
inline std::string Answer(std::string_view entry) {
  return R"({"PropertyGetResponses": [)" + std::string(entry) + "]}";
}
inline std::string Message(std::initializer_list<std::string> members) {
  std::string text = "{";
  for (const std::string& member : members) {
    if (text.size() > 1) text += ",";
    text += member;
  }
  return text + "}";
}

// Members of messages, and one message.
inline constexpr const char* kGetAllText = R"({"GetAllProperties": true})";
inline constexpr const char* kSetOwn =
    R"("PropertySetRequests": [{"Component": "OWN","GUID": "G:P",)"
    R"("Value": "new"}])";
inline constexpr const char* kGetOwn =
    R"("PropertyGetRequests": [{"Component": "OWN","GUID": "G:P"}])";
inline constexpr const char* kSubscribe =
    R"("PropertySubscribeRequests": [{"Component": "OWN","GUID": "G:P"}])";
inline constexpr const char* kSubscribeAll = R"("SubscribeAllCurrentAndNewProperties": true)";

class EngineTest : public ::testing::Test {
 protected:
  // As the engine returns it: false when the session is over.
  bool Send(Client& client, std::string_view text) {
    ScriptedConnection frame({FrameOf(text)});
    PropertyMessage message;
    EXPECT_TRUE(message.Read(frame)) << text;
    return engine->HandleMessage(message, client.connection, client.reply);
  }
  // The one text that the client gets back for its message.
  std::string Ask(Client& client, std::string_view text) {
    EXPECT_TRUE(Send(client, text)) << text;
    const std::vector<std::string> texts = client.TakeTexts();
    EXPECT_EQ(1u, texts.size()) << text;
    return texts.empty() ? std::string() : texts[0];
  }
  void Publish(Client& client, const EntryText& entry) {
    EXPECT_TRUE(Send(client, Responses({entry})));
    EXPECT_TRUE(client.TakeTexts().empty());
  }
  std::string Get(std::string_view component, std::string_view joined_guid) {
    return Ask(reader, R"({"PropertyGetRequests": [{"Component": ")" + std::string(component) +
                           R"(","GUID": ")" + std::string(joined_guid) + R"("}]})");
  }
  std::shared_ptr<StringProperty> AddOwn(std::string_view guid, std::string_view value,
                                         std::string_view group_guid = "G") {
    auto property = StringProperty::Make(value, guid, "Name", group_guid, "Group");
    EXPECT_TRUE(engine->AddProperty(property));
    return property;
  }
  // The entry of a property added by AddOwn.
  static EntryText OwnEntry(std::string_view guid, std::string_view value,
                            std::string_view group_guid = "G") {
    return {.component = "OWN",
            .component_string = "Valmere",
            .group_guid = group_guid,
            .guid = guid,
            .value = value};
  }

  const std::shared_ptr<CollectingLog> log = std::make_shared<CollectingLog>();
  const std::shared_ptr<Persistence> persistence = MakeTestPersistence();
  const std::shared_ptr<PropertyEngine> engine = MakeTestEngine(*persistence, log);
  Client reader;
};

}  // namespace valmere::test
