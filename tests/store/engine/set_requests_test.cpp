// What set requests do to properties, sent as clients send them.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "store/property/trigger_property.h"
#include "store/property/uint_property.h"
#include "tests/store/engine/engine_fixture.h"

namespace valmere::test {
namespace {

class SetRequests : public EngineTest {
 protected:
  static std::string Set(std::string_view component, std::string_view joined_guid,
                         std::string_view value) {
    return R"({"PropertySetRequests": [)" + Entry(component, joined_guid, value) + "]}";
  }
  static std::string Entry(std::string_view component, std::string_view joined_guid,
                           std::string_view value) {
    return R"({"Component": ")" + std::string(component) + R"(","GUID": ")" +
           std::string(joined_guid) + R"(","Value": ")" + std::string(value) + R"("})";
  }
  // The setter gets no direct answer, whatever becomes of its request.
  void SendSet(std::string_view text) {
    EXPECT_TRUE(Send(setter, text)) << text;
    EXPECT_TRUE(setter.TakeTexts().empty()) << text;
  }

  Client setter;
};

TEST_F(SetRequests, SetAndAnnounceAPropertyOfTheService) {
  const auto property = AddOwn("P", "old");
  int announced = 0;
  property->AddListener([&](const std::shared_ptr<Property>&) { ++announced; });
  SendSet(Set("OWN", "G:P", "new"));
  EXPECT_EQ("new", property->GetValue());
  EXPECT_EQ(1, announced);
  SendSet(Set("OWN", "G:P", "new"));
  EXPECT_EQ(1, announced);
}

TEST_F(SetRequests, FireACommandEachTime) {
  const auto command = TriggerProperty::Make(false, "P", "Name", "G", "Group");
  engine->AddProperty(command);
  int fired = 0;
  command->AddListener([&](const std::shared_ptr<Property>&) { ++fired; });
  SendSet(R"({"PropertySetRequests": [)" + Entry("OWN", "G:P", "True") + "," +
          Entry("OWN", "G:P", "False") + "," + Entry("OWN", "G:P", "True") + "]}");
  EXPECT_EQ(2, fired);
}

TEST_F(SetRequests, AreIgnoredForAPropertyThatClientsMayNotSet) {
  const auto property = AddOwn("P", "old");
  property->set_attribute(Property::kRestored);
  SendSet(Set("OWN", "G:P", "new"));
  EXPECT_EQ("old", property->GetValue());
  property->set_attribute(Property::kSettable);
  SendSet(Set("OWN", "G:P", "new"));
  EXPECT_EQ("new", property->GetValue());
}

TEST_F(SetRequests, ThatANumberCantTakeLeaveItAndTheSessionAsTheyAre) {
  const auto number = UIntProperty::Make(7, "U", "Name", "G", "Group");
  engine->AddProperty(number);
  const auto text = AddOwn("P", "old");
  for (const char* value : {"", "letters", "4294967296", "99999999999999999999", "-4294967296"}) {
    SendSet(R"({"PropertySetRequests": [)" + Entry("OWN", "G:U", value) + "," +
            Entry("OWN", "G:P", value) + "]}");
    EXPECT_EQ("7", number->ToString()) << value;
    EXPECT_EQ(value, text->GetValue()) << "the requests behind it are still handled";
  }
  SendSet(Set("OWN", "G:U", "8"));
  EXPECT_EQ("8", number->ToString());
}

TEST_F(SetRequests, WithAValueThatIsNoStringSetTheEmptyText) {
  for (const char* value : {"42", "true", "null", R"({"a": "b"})", "[]"}) {
    const auto property = AddOwn(std::string("P") + value[0], "old");
    SendSet(R"({"PropertySetRequests": [{"Component": "OWN","GUID": "G:P)" +
            std::string(1, value[0]) + R"(","Value": )" + value + "}]}");
    EXPECT_EQ("", property->GetValue()) << value;
  }
}

TEST_F(SetRequests, ForUnknownPropertiesArePassedOver) {
  Client owner;
  Publish(owner, EntryText{});
  const auto property = AddOwn("P", "old");
  SendSet(Set("OWN", "G:x", "new"));
  SendSet(Set("C", "G:x", "new"));
  SendSet(Set("D", "G:P", "new"));
  SendSet(R"({"PropertySetRequests": [null,1,"G:P",{}]})");
  SendSet(R"({"PropertySetRequests": {"Component": "OWN","GUID": "G:P","Value": "new"}})");
  EXPECT_EQ("old", property->GetValue());
  EXPECT_TRUE(owner.TakeTexts().empty());
}

TEST_F(SetRequests, ThatSetNothingAreLogged) {
  AddOwn("P", "old")->set_attribute(0);
  const auto number = UIntProperty::Make(7, "U", "Number", "G", "Group");
  engine->AddProperty(number);
  SendSet(Set("OWN", "G:x", "new"));
  SendSet(Set("C", "G:x", "new"));
  SendSet(Set("OWN", "G:P", "new"));
  SendSet(Set("OWN", "G:U", "8"));
  EXPECT_EQ((Texts{R"(A set request names no property: "OWN" "G" "x")",
                   R"(A set request names no property: "C" "G" "x")",
                   R"(Property "Name" was not set to "new": it can't be set)"}),
            log->TakeLines());
  SendSet(Set("OWN", "G:U", "letters"));
  const Texts lines = log->TakeLines();
  ASSERT_EQ(1u, lines.size());
  EXPECT_EQ(0u, lines[0].find(R"(Property "Number" was not set to "letters": )"));
}

TEST_F(SetRequests, GoToTheOwnerOfAPublishedProperty) {
  Client owner;
  Publish(owner, EntryText{});
  SendSet(Set("C", "G:P", "new"));
  EXPECT_EQ((Texts{R"({"PropertySetRequests": [{"Component": "C","GUID": "G:P",)"
                   R"("Value": "new"}]})"}),
            owner.TakeTexts());
  EXPECT_EQ(Responses({EntryText{}}), Get("C", "G:P")) << "the owner decides on the value";
}

TEST_F(SetRequests, GoToEachOwnerInOneMessageInTheirOrder) {
  Client a, b;
  Publish(a, {.component = "A", .guid = "1"});
  Publish(a, {.component = "A", .guid = "2"});
  Publish(b, {.component = "B", .guid = "1"});
  SendSet(R"({"PropertySetRequests": [)" + Entry("A", "G:2", "x") + "," + Entry("B", "G:1", "y") +
          "," + Entry("A", "G:unknown", "u") + "," + Entry("A", "G:1", "z") + "," +
          Entry("A", "G:2", "w") + "]}");
  EXPECT_EQ((Texts{R"({"PropertySetRequests": [)" + Entry("A", "G:2", "x") + "," +
                   Entry("A", "G:1", "z") + "," + Entry("A", "G:2", "w") + "]}"}),
            a.TakeTexts());
  EXPECT_EQ((Texts{Set("B", "G:1", "y")}), b.TakeTexts());
}

TEST_F(SetRequests, GoInOneMessageToAConnectionThatPublishedForTwoComponents) {
  Client owner;
  Publish(owner, {.component = "A"});
  Publish(owner, {.component = "B"});
  const std::string text =
      R"({"PropertySetRequests": [)" + Entry("B", "G:P", "1") + "," + Entry("A", "G:P", "2") + "]}";
  SendSet(text);
  EXPECT_EQ((Texts{text}), owner.TakeTexts());
}

// Notes its name in a list when it is written to.
class NamedConnection final : public Connection {
 public:
  NamedConnection(char name, std::string& written) : name_(name), written_(written) {}
  int Read(void*, int) override { return kFailed; }
  int Write(const void*, int length) override {
    written_.push_back(name_);
    return length;
  }
  void Close() override {}
  bool IsOpen() const override { return true; }

 private:
  const char name_;
  std::string& written_;
};

TEST_F(SetRequests, GoToTheirOwnersInTheOrderOfFirstMention) {
  std::string written;
  std::vector<std::unique_ptr<Client>> owners;
  for (const char name : {'A', 'B', 'C', 'D'}) {
    owners.push_back(std::make_unique<Client>(std::make_shared<NamedConnection>(name, written)));
    EXPECT_TRUE(Send(*owners.back(), Responses({{.component = std::string(1, name)}})));
  }
  SendSet(R"({"PropertySetRequests": [)" + Entry("C", "G:P", "") + "," + Entry("A", "G:P", "") +
          "," + Entry("C", "G:P", "") + "," + Entry("D", "G:P", "") + "," + Entry("B", "G:P", "") +
          "," + Entry("A", "G:P", "") + "]}");
  EXPECT_EQ("CADB", written);
}

TEST_F(SetRequests, ReachTheOwnerEscaped) {
  Client owner;
  const std::string nasty = R"(\"\\\n\u0001)";
  Publish(owner, {.component = "c" + nasty, .group_guid = "g" + nasty, .guid = "p" + nasty});
  const std::string text = Set("c" + nasty, "g" + nasty + ":p" + nasty, "v" + nasty);
  SendSet(text);
  EXPECT_EQ((Texts{text}), owner.TakeTexts());
}

TEST_F(SetRequests, OfAComponentForItsOwnPropertyComeBackToIt) {
  Client owner;
  Publish(owner, EntryText{});
  EXPECT_TRUE(Send(owner, Set("C", "G:P", "new")));
  EXPECT_EQ((Texts{Set("C", "G:P", "new")}), owner.TakeTexts());
}

TEST_F(SetRequests, ReachTheOtherOwnersWhenOneCantBeWrittenTo) {
  Client broken, owner;
  Publish(broken, {.component = "A"});
  Publish(owner, {.component = "B"});
  broken.stream->GiveToWrites(Connection::kGone);
  SendSet(R"({"PropertySetRequests": [)" + Entry("A", "G:P", "1") + "," + Entry("B", "G:P", "2") +
          "]}");
  EXPECT_EQ((Texts{Set("B", "G:P", "2")}), owner.TakeTexts());
}

}  // namespace
}  // namespace valmere::test
