// What requests do to properties, asked as clients ask.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "store/property/trigger_property.h"
#include "store/property/uint_property.h"
#include "tests/store/engine/engine_fixture.h"

namespace valmere {
namespace {

using test::Client;
using test::EntryText;
using test::NotFound;
using test::Responses;

using Texts = std::vector<std::string>;

std::string Answer(std::string_view entry) {
  return R"({"PropertyGetResponses": [)" + std::string(entry) + "]}";
}

class GetRequests : public test::EngineTest {};

TEST_F(GetRequests, AreAnsweredForAPropertyOfTheServiceWithItsOwnComponent) {
  AddOwn("P", "value");
  EXPECT_EQ(R"({"PropertyGetResponses": [{"Component": "OWN","ComponentString": "Valmere",)"
            R"("GUID": "G:P","GroupString": "Group","NameString": "Name",)"
            R"("Status": "Successful","Value": "value"}]})",
            Get("OWN", "G:P"));
}

TEST_F(GetRequests, AreAnsweredForAPublishedPropertyWithItsOwner) {
  Client owner;
  Publish(owner, EntryText{});
  EXPECT_EQ(R"({"PropertyGetResponses": [{"Component": "C","ComponentString": "Client",)"
            R"("GUID": "G:P","GroupString": "Group","NameString": "Name",)"
            R"("Status": "Successful","Value": "V"}]})",
            Get("C", "G:P"));
}

TEST_F(GetRequests, AreAnsweredWithPlaceholdersForAnUnknownProperty) {
  EXPECT_EQ(R"({"PropertyGetResponses": [{"Component": "C","ComponentString": "Unknown Group",)"
            R"("GUID": "G:P","GroupString": "Unknown Group","NameString": "Unknown Property",)"
            R"("Status": "Property Not Found","Value": "Invalid Value"}]})",
            Get("C", "G:P"));
}

TEST_F(GetRequests, AreAnsweredInTheirOrder) {
  Client owner;
  AddOwn("1", "own");
  Publish(owner, EntryText{});
  EXPECT_EQ(Answer(NotFound("OWN", "G:x") + "," + EntryText{}.Text() + "," +
                   OwnEntry("1", "own").Text() + "," + EntryText{}.Text()),
            Ask(reader, R"({"PropertyGetRequests": [{"Component": "OWN","GUID": "G:x"},)"
                        R"({"Component": "C","GUID": "G:P"},{"Component": "OWN","GUID": "G:1"},)"
                        R"({"GUID": "G:P","Component": "C"}]})"));
}

TEST_F(GetRequests, ForAGroupListTheServicesOwnFirstEachInTheOrderOfRegistration) {
  Client first, second;
  Publish(second, {.component = "B", .guid = "9"});
  AddOwn("2", "a");
  Publish(first, {.component = "A", .guid = "8"});
  AddOwn("1", "b");
  AddOwn("0", "c", "other group");
  EXPECT_EQ(Responses({OwnEntry("2", "a"),
                       OwnEntry("1", "b"),
                       {.component = "B", .guid = "9"},
                       {.component = "A", .guid = "8"}}),
            Get("whoever", "G:"));
}

TEST_F(GetRequests, ForAGroupOfOneRegistryListThat) {
  Client owner;
  AddOwn("1", "a", "L");
  Publish(owner, {.group_guid = "R"});
  EXPECT_EQ(Responses({OwnEntry("1", "a", "L")}), Get("C", "L:"));
  EXPECT_EQ(Responses({{.group_guid = "R"}}), Get("OWN", "R:"));
}

TEST_F(GetRequests, ForAGroupThatIsEmptyGetExactlyOneAnswer) {
  AddOwn("1", "a", "other");
  EXPECT_EQ(Answer(NotFound("C", "G:")), Get("C", "G:"));
}

TEST_F(GetRequests, ForTheServicesOwnComponentNeverLookAtPublishedProperties) {
  Client owner;
  Publish(owner, {.component = "OWN"});
  EXPECT_EQ(Answer(NotFound("OWN", "G:P")), Get("OWN", "G:P"));
}

TEST_F(GetRequests, ForAnotherComponentNeverLookAtTheServicesOwn) {
  AddOwn("P", "a");
  EXPECT_EQ(Answer(NotFound("C", "G:P")), Get("C", "G:P"));
  EXPECT_EQ(Answer(NotFound("", "G:P")), Get("", "G:P"));
}

TEST_F(GetRequests, KeepTheSamePropertyOfTwoComponentsApart) {
  Client owner;
  Publish(owner, {.component = "A", .value = "1"});
  Publish(owner, {.component = "B", .value = "2"});
  EXPECT_EQ(Responses({{.component = "A", .value = "1"}}), Get("A", "G:P"));
  EXPECT_EQ(Responses({{.component = "B", .value = "2"}}), Get("B", "G:P"));
}

TEST_F(GetRequests, WithoutAColonNameGroupAndPropertyAlike) {
  AddOwn("X", "a", "X");
  EXPECT_EQ(Responses({OwnEntry("X", "a", "X")}), Get("OWN", "X"));
  EXPECT_EQ(Answer(NotFound("OWN", "Y:Y")), Get("OWN", "Y"));
}

TEST_F(GetRequests, WithTwoColonsNameAPropertyWithAColon) {
  AddOwn("P:x", "a");
  EXPECT_EQ(Responses({OwnEntry("P:x", "a")}), Get("OWN", "G:P:x"));
}

TEST_F(GetRequests, GiveTheValueInItsTextForm) {
  engine->AddProperty(UIntProperty::Make(4294967295u, "U", "Name", "G", "Group"));
  engine->AddProperty(BoolProperty::Make(true, "B", "Name", "G", "Group"));
  EXPECT_EQ(Responses({OwnEntry("U", "4294967295"), OwnEntry("B", "True")}), Get("OWN", "G:"));
}

TEST_F(GetRequests, GetEveryOutsideTextEscaped) {
  Client owner;
  const std::string nasty = R"(\"\\\n\u0001)";
  const std::string c = "c" + nasty, cs = "cs" + nasty, g = "g" + nasty, gs = "gs" + nasty,
                    p = "p" + nasty, ns = "ns" + nasty, v = "v" + nasty;
  const EntryText entry{.component = c,
                        .component_string = cs,
                        .group_guid = g,
                        .group_string = gs,
                        .guid = p,
                        .name_string = ns,
                        .value = v};
  Publish(owner, entry);
  EXPECT_EQ(Responses({entry}), Get("c" + nasty, "g" + nasty + ":p" + nasty));
  EXPECT_EQ(Answer(NotFound("x" + nasty, "y" + nasty + ":z" + nasty)),
            Get("x" + nasty, "y" + nasty + ":z" + nasty));
}

TEST_F(GetRequests, WithoutEntriesAreAnsweredWithNone) {
  for (const char* value : {"[]", "null", "true", "1", R"("text")", R"({"GUID": "G:P"})"})
    EXPECT_EQ(Answer(""), Ask(reader, std::string(R"({"PropertyGetRequests": )") + value + "}"));
}

TEST_F(GetRequests, WhoseEntriesAreNoObjectsAskForTheGroupWithoutAName) {
  const std::string unknown = NotFound("", ":");
  EXPECT_EQ(Answer(unknown + "," + unknown + "," + unknown),
            Ask(reader, R"({"PropertyGetRequests": [null,"G:P",{}]})"));
}

TEST_F(GetRequests, ReadFieldsThatAreNoStringsAsEmpty) {
  EXPECT_EQ(Answer(NotFound("", ":") + "," + NotFound("", "G:P")),
            Ask(reader, R"({"PropertyGetRequests": [{"GUID": 5,"Component": true},)"
                        R"({"GUID": "G:P","Component": {"a": "OWN"}}]})"));
}

class GetAll : public test::EngineTest {};

TEST_F(GetAll, ListsTheServicesOwnThenThePublishedByGroupThenInTheOrderOfRegistration) {
  Client owner;
  AddOwn("2", "a", "Z");
  AddOwn("1", "b", "A");
  AddOwn("0", "c", "Z");
  Publish(owner, {.component = "D", .group_guid = "Y", .guid = "5"});
  Publish(owner, {.group_guid = "B", .guid = "4"});
  Publish(owner, {.group_guid = "Y", .guid = "3"});
  EXPECT_EQ(Responses({OwnEntry("1", "b", "A"),
                       OwnEntry("2", "a", "Z"),
                       OwnEntry("0", "c", "Z"),
                       {.group_guid = "B", .guid = "4"},
                       {.component = "D", .group_guid = "Y", .guid = "5"},
                       {.group_guid = "Y", .guid = "3"}}),
            Ask(reader, R"({"GetAllProperties": true})"));
}

TEST_F(GetAll, IsAnsweredWithNoEntriesWhenThereIsNothing) {
  EXPECT_EQ(Answer(""), Ask(reader, R"({"GetAllProperties": true})"));
}

TEST_F(GetAll, CountsByItsPresenceAlone) {
  AddOwn("1", "a");
  for (const char* value : {"false", "null", "0", R"("")", "{}", "[]"})
    EXPECT_EQ(Responses({OwnEntry("1", "a")}),
              Ask(reader, std::string(R"({"GetAllProperties": )") + value + "}"));
}

TEST_F(GetAll, MakesGetRequestsOfTheSameMessageIgnored) {
  AddOwn("1", "a");
  EXPECT_EQ(Responses({OwnEntry("1", "a")}),
            Ask(reader, R"({"GetAllProperties": true,)"
                        R"("PropertyGetRequests": [{"Component": "C","GUID": "G:P"}]})"));
}

class SetRequests : public test::EngineTest {
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

TEST_F(SetRequests, ThatANumberCannotTakeLeaveItAndTheSessionAsTheyAre) {
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

TEST_F(SetRequests, ReachTheOtherOwnersWhenOneCannotBeWrittenTo) {
  Client broken, owner;
  Publish(broken, {.component = "A"});
  Publish(owner, {.component = "B"});
  broken.stream->GiveToWrites(Connection::kGone);
  SendSet(R"({"PropertySetRequests": [)" + Entry("A", "G:P", "1") + "," + Entry("B", "G:P", "2") +
          "]}");
  EXPECT_EQ((Texts{Set("B", "G:P", "2")}), owner.TakeTexts());
}

class Publications : public test::EngineTest {
 protected:
  static std::string Set(std::string_view component) {
    return R"({"PropertySetRequests": [{"Component": ")" + std::string(component) +
           R"(","GUID": "G:P","Value": "set"}]})";
  }
  // Sets the property of EntryText{} and tells whether the client was asked to.
  bool IsOwner(Client& client) {
    Client setter;
    EXPECT_TRUE(Send(setter, Set("C")));
    const Texts texts = client.TakeTexts();
    EXPECT_GE(1u, texts.size());
    return texts == Texts{Set("C")};
  }

  Client owner;
};

TEST_F(Publications, AddWhatIsNew) {
  EXPECT_TRUE(Send(owner, Responses({{.guid = "1", .value = "a"}, {.guid = "2", .value = ""}})));
  EXPECT_EQ(Responses({{.guid = "1", .value = "a"}, {.guid = "2", .value = ""}}), Get("C", "G:"));
}

TEST_F(Publications, ChangeTheValueOfWhatIsThereAndNothingElse) {
  Publish(owner, EntryText{});
  Publish(owner, {.component_string = "x", .group_string = "y", .name_string = "z", .value = "W"});
  EXPECT_EQ(Responses({{.value = "W"}}), Get("C", "G:P"));
  EXPECT_EQ(Responses({{.value = "W"}}), Get("C", "G:")) << "it is registered once";
}

TEST_F(Publications, AreSkippedWithTheStatusNotFound) {
  Publish(owner, {.status = "Property Not Found"});
  EXPECT_EQ(Answer(NotFound("C", "G:P")), Get("C", "G:P"));
  Publish(owner, EntryText{});
  Publish(owner, {.status = "Property Not Found", .value = "W"});
  EXPECT_EQ(Responses({EntryText{}}), Get("C", "G:P"));
}

TEST_F(Publications, WithdrawAPropertyFromEveryLookUp) {
  Publish(owner, EntryText{});
  Publish(owner, {.guid = "other"});
  Publish(owner, {.status = "Property No Longer Available"});
  EXPECT_EQ(Answer(NotFound("C", "G:P")), Get("C", "G:P"));
  EXPECT_EQ(Responses({{.guid = "other"}}), Get("C", "G:"));
  EXPECT_EQ(Responses({{.guid = "other"}}), Ask(reader, R"({"GetAllProperties": true})"));
  EXPECT_FALSE(IsOwner(owner));
}

TEST_F(Publications, WithdrawAnUnknownPropertyToNoEffect) {
  Publish(owner, {.status = "Property No Longer Available"});
  EXPECT_EQ(Answer(NotFound("C", "G:P")), Get("C", "G:P"));
  EXPECT_EQ(Answer(""), Ask(reader, R"({"GetAllProperties": true})"));
}

TEST_F(Publications, MayComeAgainAfterAWithdrawal) {
  Publish(owner, EntryText{});
  Publish(owner, {.status = "Property No Longer Available"});
  Publish(owner, {.name_string = "new name", .value = "W"});
  EXPECT_EQ(Responses({{.name_string = "new name", .value = "W"}}), Get("C", "G:P"));
}

TEST_F(Publications, WithAnyOtherStatusAddNothingButSetWhatIsThere) {
  for (const char* status : {"", "successful", "Successful ", "whatever"}) {
    Publish(owner, {.guid = "new", .status = status});
    EXPECT_EQ(Answer(NotFound("C", "G:new")), Get("C", "G:new")) << status;
    Publish(owner, EntryText{});
    Publish(owner, {.status = status, .value = "W"});
    EXPECT_EQ(Responses({{.value = "W"}}), Get("C", "G:P")) << status;
  }
}

TEST_F(Publications, AreAppliedInTheirOrder) {
  EXPECT_TRUE(Send(owner, Responses({{.value = "1"},
                                     {.value = "2"},
                                     {.status = "Property No Longer Available"},
                                     {.name_string = "again", .value = "3"}})));
  EXPECT_EQ(Responses({{.name_string = "again", .value = "3"}}), Get("C", "G:P"));
}

TEST_F(Publications, WithoutFieldsAreThoseOfAPropertyWithoutNames) {
  EXPECT_TRUE(Send(owner, R"({"PropertyGetResponses": [null,7,{"Value": "V"},)"
                          R"({"Status": "Successful","Value": 5}]})"));
  EXPECT_EQ(R"({"PropertyGetResponses": [{"Component": "","ComponentString": "","GUID": ":",)"
            R"("GroupString": "","NameString": "","Status": "Successful","Value": ""}]})",
            Ask(reader, R"({"GetAllProperties": true})"));
}

TEST_F(Publications, OfASecondClientLeaveTheLivingOwnerInPlace) {
  Client second;
  Publish(owner, EntryText{});
  Publish(second, {.value = "W"});
  EXPECT_EQ(Responses({{.value = "W"}}), Get("C", "G:P"));
  EXPECT_TRUE(IsOwner(owner));
  EXPECT_TRUE(second.TakeTexts().empty());
}

TEST_F(Publications, GoWhenTheirConnectionEnds) {
  Client other;
  Publish(owner, {.guid = "1"});
  Publish(other, {.guid = "2"});
  Publish(owner, {.guid = "3"});
  engine->ConnectionEnded(*owner.connection);
  EXPECT_EQ(Responses({{.guid = "2"}}), Ask(reader, R"({"GetAllProperties": true})"));
  EXPECT_EQ(Responses({{.guid = "2"}}), Get("C", "G:"));
  EXPECT_EQ(1, owner.connection.use_count()) << "nothing keeps the connection";
}

TEST_F(Publications, GoToTheConnectionOnWhichTheOwnerCameBack) {
  Client again;
  Publish(owner, EntryText{});
  owner.stream->Close();
  Publish(again, {.value = "W"});
  engine->ConnectionEnded(*owner.connection);
  EXPECT_EQ(Responses({{.value = "W"}}), Get("C", "G:P"));
  EXPECT_TRUE(IsOwner(again));
  EXPECT_TRUE(owner.TakeTexts().empty());
  engine->ConnectionEnded(*again.connection);
  EXPECT_EQ(Answer(NotFound("C", "G:P")), Get("C", "G:P"));
}

TEST_F(Publications, MayComeBackAfterTheirConnectionEnded) {
  Client again;
  Publish(owner, EntryText{});
  owner.stream->Close();
  engine->ConnectionEnded(*owner.connection);
  Publish(again, {.value = "W"});
  EXPECT_EQ(Responses({{.value = "W"}}), Get("C", "G:P"));
  EXPECT_TRUE(IsOwner(again));
}

TEST_F(Publications, ByTheOneWhoCameBackMayWithdrawAtOnce) {
  Client again;
  Publish(owner, EntryText{});
  owner.stream->Close();
  Publish(again, {.status = "Property No Longer Available"});
  EXPECT_EQ(Answer(NotFound("C", "G:P")), Get("C", "G:P"));
  engine->ConnectionEnded(*owner.connection);
}

}  // namespace
}  // namespace valmere
