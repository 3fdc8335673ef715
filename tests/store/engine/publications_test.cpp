// What components publish and withdraw, read back by gets.
#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

#include "tests/store/engine/engine_fixture.h"

namespace valmere::test {
namespace {

class Publications : public EngineTest {
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

TEST_F(Publications, ByAnOwnerThatCameBackMayWithdrawAtOnce) {
  Client again;
  Publish(owner, EntryText{});
  owner.stream->Close();
  Publish(again, {.status = "Property No Longer Available"});
  EXPECT_EQ(Answer(NotFound("C", "G:P")), Get("C", "G:P"));
  engine->ConnectionEnded(*owner.connection);
}

}  // namespace
}  // namespace valmere::test
