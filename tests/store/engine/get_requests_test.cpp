// What gets are answered with, asked as clients ask.
#include <gtest/gtest.h>

#include <string>

#include "store/property/bool_property.h"
#include "store/property/uint_property.h"
#include "tests/store/engine/engine_fixture.h"

namespace valmere::test {
namespace {

class GetRequests : public EngineTest {};

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

class GetAll : public EngineTest {};

TEST_F(GetAll, ListsTheOwnThenThePublishedEachByGroupAndRegistration) {
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

}  // namespace
}  // namespace valmere::test
