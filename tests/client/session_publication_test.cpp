// What a session publishes, and the sets that come for it.
#include "tests/client/session_fixture.h"

namespace valmere::test {
using namespace client;
namespace {

std::string EntryText(const Property& property, const std::string& status = kSuccessful) {
  return R"({"PropertyGetResponses": [{"Component": ")" + property.component +
         R"(","ComponentString": ")" + property.component_name + R"(","GUID": ")" +
         property.group_guid + ":" + property.guid + R"(","GroupString": ")" + property.group_name +
         R"(","NameString": ")" + property.name + R"(","Status": ")" + status + R"(","Value": ")" +
         property.value + R"("}]})";
}

class SessionPublicationTest : public SessionTest {
 protected:
  SessionPublicationTest() { Open(); }

  void Publish(const Property& property, Session::SetCallback callback = nullptr) {
    ASSERT_TRUE(session_->Publish({&property, 1}, std::move(callback)));
    EXPECT_EQ(requests_->Receive(), EntryText(property));
  }
  Session::SetCallback PutSets() {
    return [this](const SetRequest& set) { sets_.Put(set); };
  }

  const PropertyAddress speed_ = kSpeed.address();
  Box<SetRequest> sets_;
};

TEST_F(SessionPublicationTest, PublishesUpdatesAndWithdraws) {
  Publish(kSpeed);
  EXPECT_TRUE(session_->Update({speed_, "43"}));
  EXPECT_EQ(requests_->Receive(), EntryText(WithValue(kSpeed, "43")));
  EXPECT_TRUE(session_->Withdraw({&speed_, 1}));
  EXPECT_EQ(requests_->Receive(), EntryText(WithValue(kSpeed, "43"), kNoLongerAvailable));
}

TEST_F(SessionPublicationTest, UpdatesAndWithdrawsOnlyWhatIsPublished) {
  const auto updated = session_->Update({speed_, "43"});
  ASSERT_FALSE(updated);
  EXPECT_EQ(updated.error().kind, ErrorKind::kInvalid);
  EXPECT_EQ(updated.error().text, "updating G1:P1 of C1: property G1:P1 of C1 is not published");
  EXPECT_EQ(session_->Withdraw({&speed_, 1}).error().kind, ErrorKind::kInvalid);
  Publish(kSpeed);
  const std::vector<SetRequest> values{{speed_, "43"}, {kColour.address(), "blue"}};
  EXPECT_EQ(session_->Update(values).error().kind, ErrorKind::kInvalid);
  EXPECT_TRUE(session_->Set({speed_, "next"}));
  EXPECT_THAT(requests_->Receive(), ::testing::HasSubstr("next"));
}

TEST_F(SessionPublicationTest, TellsOfSetsThatAreMeantForWhatIsPublished) {
  Publish(kColour, [](const SetRequest&) { ADD_FAILURE(); });
  Publish(kSpeed, PutSets());
  requests_->Send(R"({"PropertySetRequests": [)"
                  R"({"GUID": "G9:P9", "Component": "C1", "Value": "nobody's"},)"
                  R"({"GUID": "G1:P1", "Component": "C1", "Value": "43"}]})");
  EXPECT_EQ(sets_.Take(), (SetRequest{speed_, "43"}));
}

TEST_F(SessionPublicationTest, TellsOfASetThatComesBetweenAGetAndItsAnswer) {
  Publish(kSpeed, PutSets());
  auto call = Meanwhile([&] { return session_->Get(kColour.address()); });
  requests_->Receive();
  SendSet(*requests_, "43");
  EXPECT_EQ(sets_.Take().value, "43");
  Answer(*requests_, {kColour});
  EXPECT_EQ(call.get().value(), kColour);
}

TEST_F(SessionPublicationTest, LetsTheCallbackUpdateAndAsk) {
  Box<Property> answers;
  Publish(kSpeed, [&](const SetRequest& set) {
    EXPECT_TRUE(session_->Update(set));
    answers.Put(session_->Get(speed_).value());
  });
  SendSet(*requests_, "43");
  EXPECT_EQ(requests_->Receive(), EntryText(WithValue(kSpeed, "43")));
  requests_->Receive();
  Answer(*requests_, {WithValue(kSpeed, "43")});
  EXPECT_EQ(answers.Take().value, "43");
}

TEST_F(SessionPublicationTest, TellsTheCallbackThatWasGivenLast) {
  Publish(kSpeed, [](const SetRequest&) { ADD_FAILURE(); });
  Publish(kSpeed, PutSets());
  SendSet(*requests_, "43");
  EXPECT_EQ(sets_.Take().value, "43");
}

TEST_F(SessionPublicationTest, TellsOfNoSetForWhatWasWithdrawn) {
  Publish(kSpeed, [](const SetRequest&) { ADD_FAILURE(); });
  Publish(kColour, PutSets());
  ASSERT_TRUE(session_->Withdraw({&speed_, 1}));
  SendSet(*requests_, "late");
  requests_->Send(R"({"PropertySetRequests": [)"
                  R"({"GUID": "G2:P2", "Component": "C1", "Value": "blue"}]})");
  EXPECT_EQ(sets_.Take().value, "blue");
}

// What a callback holds may call the session when it goes.
TEST_F(SessionPublicationTest, LetsGoOfACallbackThatUsesTheSessionOnItsWay) {
  struct Last {
    ~Last() { EXPECT_TRUE(session.Set({kColour.address(), "last words"})); }
    Session& session;
  };
  Publish(kSpeed, [last = std::shared_ptr<Last>(new Last{*session_})](const SetRequest&) {});
  ASSERT_TRUE(session_->Withdraw({&speed_, 1}));
  EXPECT_EQ(requests_->Receive(), EntryText(kSpeed, kNoLongerAvailable));
  EXPECT_THAT(requests_->Receive(), ::testing::HasSubstr("last words"));
}

}  // namespace
}  // namespace valmere::test
