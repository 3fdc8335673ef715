// What clients can do for each other through their handles.
#include <atomic>
#include <string>

#include "tests/driver/entry_fixture.h"
#include "tests/support/test_thread.h"

namespace valmere::test {
namespace {

const Address kSpeed = {"C0000001", "G0000001:P0000001"};
const Address kDarkness = {"C0000001", "G0000001:P0000002"};

class ExchangeTest : public EntryTest {
 protected:
  // Publishes and waits until the service has taken it: what one client sends is handled in order.
  static void Publish(FrameClient& client, const Address& address, std::string_view value) {
    ASSERT_TRUE(client.Send(PublishedText(address, value)));
    ASSERT_EQ(client.Ask(GetText(address)), PublishedText(address, value));
  }
};

TEST_F(ExchangeTest, AnswersForTheServicesOwnComponent) {
  EXPECT_EQ(Client().Ask(GetText(kOwnComponent)), OwnComponentText());
}

TEST_F(ExchangeTest, AnswersForThePropertyThatNobodyHas) {
  EXPECT_EQ(Client().Ask(GetText(kSpeed)), NotFoundText(kSpeed));
}

TEST_F(ExchangeTest, ListsTheGroupOfComponents) {
  EXPECT_EQ(Client().Ask(GetText({"", "ADC1E631-2C12-4267-B128-95830EC9857D:"})),
            OwnComponentText());
}

TEST_F(ExchangeTest, GetAllGoesBeforeTheGetRequestsBesideIt) {
  const std::string expected = Client().Ask(R"({"GetAllProperties": true})").value_or("");
  EXPECT_NE(expected.find(R"("NameString": "Valmere")"), std::string::npos);
  EXPECT_EQ(Client().Ask(R"({"GetAllProperties": false,"PropertyGetRequests": [)"
                         R"({"Component": "x","GUID": "y:z"}]})"),
            expected);
}

TEST_F(ExchangeTest, WhatOneClientPublishesAnotherGets) {
  Client owner;
  Client reader;
  Publish(owner, kSpeed, "6 ips");
  EXPECT_EQ(reader.Ask(GetText(kSpeed)), PublishedText(kSpeed, "6 ips"));
  Publish(owner, kSpeed, "8 ips");
  EXPECT_EQ(reader.Ask(GetText(kSpeed)), PublishedText(kSpeed, "8 ips"));
}

TEST_F(ExchangeTest, AGetOfAGroupAnswersInOrderOfRegistration) {
  Client owner;
  Publish(owner, kDarkness, "10");
  Publish(owner, kSpeed, "6");
  const std::string text = Client().Ask(GetText({"anyone", "G0000001:"})).value_or("");
  EXPECT_EQ(
      text,
      Responses(Entry(kDarkness, "Some Component", "Some Group", "Some Name", "Successful", "10") +
                "," +
                Entry(kSpeed, "Some Component", "Some Group", "Some Name", "Successful", "6")));
}

TEST_F(ExchangeTest, ASetReachesTheOwnerAndIsNotAnswered) {
  Client owner;
  Client setter;
  Publish(owner, kSpeed, "6");
  ASSERT_TRUE(setter.Send(SetText(kSpeed, "8")));
  EXPECT_EQ(owner.Receive(), SetText(kSpeed, "8"));
  // The first thing that the setter is sent is the answer to its next request; the value is still
  // the one that the owner published last.
  EXPECT_EQ(setter.Ask(GetText(kSpeed)), PublishedText(kSpeed, "6"));
  Publish(owner, kSpeed, "8");
  EXPECT_EQ(setter.Ask(GetText(kSpeed)), PublishedText(kSpeed, "8"));
}

TEST_F(ExchangeTest, AnOwnerGetsOneMessageForAllOfItsSets) {
  Client owner;
  Client setter;
  Publish(owner, kSpeed, "6");
  Publish(owner, kDarkness, "10");
  const std::string entries =
      R"({"Component": "C0000001","GUID": "G0000001:P0000002","Value": "11"},)"
      R"({"Component": "C0000001","GUID": "G0000001:P0000001","Value": "7"})";
  const std::string unknown = R"({"Component": "nobody","GUID": "G:P","Value": ""},)";
  ASSERT_TRUE(setter.Send(R"({"PropertySetRequests": [)" + unknown + entries + "]}"));
  EXPECT_EQ(owner.Receive(), R"({"PropertySetRequests": [)" + entries + "]}");
}

TEST_F(ExchangeTest, ASetGoesToItsOwnSenderWhenThatIsTheOwner) {
  Client owner;
  Publish(owner, kSpeed, "6");
  ASSERT_TRUE(owner.Send(SetText(kSpeed, "9")));
  EXPECT_EQ(owner.Receive(), SetText(kSpeed, "9"));
}

TEST_F(ExchangeTest, ASetOfTheUnknownIsPassedOver) {
  Client setter;
  ASSERT_TRUE(setter.Send(SetText(kSpeed, "8")));
  EXPECT_EQ(setter.Ask(GetText(kSpeed)), NotFoundText(kSpeed));
}

TEST_F(ExchangeTest, TheNameOfTheServiceCannotBeSet) {
  Client setter;
  ASSERT_TRUE(setter.Send(SetText(kOwnComponent, "Other")));
  EXPECT_EQ(setter.Ask(GetText(kOwnComponent)), OwnComponentText());
}

TEST_F(ExchangeTest, AWithdrawnPropertyIsGone) {
  Client owner;
  Client reader;
  Publish(owner, kSpeed, "6");
  Publish(owner, kDarkness, "10");
  ASSERT_TRUE(owner.Send(WithdrawText(kSpeed)));
  EXPECT_EQ(owner.Ask(GetText(kSpeed)), NotFoundText(kSpeed));
  EXPECT_EQ(reader.Ask(GetText(kSpeed)), NotFoundText(kSpeed));
  EXPECT_EQ(reader.Ask(GetText({"", "G0000001:"})), PublishedText(kDarkness, "10"));
}

TEST_F(ExchangeTest, WhatAClientPublishedGoesWithItsHandle) {
  Client reader;
  {
    Client owner;
    Publish(owner, kSpeed, "6");
    EXPECT_EQ(reader.Ask(GetText(kSpeed)), PublishedText(kSpeed, "6"));
  }
  EXPECT_TRUE(Eventually([&] { return reader.Ask(GetText(kSpeed)) == NotFoundText(kSpeed); }));
  Client next;
  Publish(next, kSpeed, "7");
  EXPECT_EQ(reader.Ask(GetText(kSpeed)), PublishedText(kSpeed, "7"));
}

TEST_F(ExchangeTest, APublisherMayVanishWithoutReadingWhatItWasSent) {
  Client setter;
  for (int round = 0; round < 20; ++round) {
    Client owner;
    ASSERT_TRUE(owner.Send(PublishedText(kSpeed, "6")));
    ASSERT_TRUE(owner.Send(R"({"SubscribeAllCurrentAndNewProperties": true})"));
    ASSERT_TRUE(owner.Send(R"({"GetAllProperties": true})"));
    ASSERT_TRUE(setter.Send(SetText(kSpeed, "8")));
  }
  EXPECT_TRUE(Eventually([&] { return setter.Ask(GetText(kSpeed)) == NotFoundText(kSpeed); }));
}

TEST_F(ExchangeTest, DisconnectEndsTheSessionWithoutAnAnswer) {
  Client client;
  EXPECT_EQ(client.Ask(R"({"Disconnect": true,"GetAllProperties": true})"), std::nullopt);
  EXPECT_TRUE(client.Send(GetText(kOwnComponent)));
  EXPECT_EQ(client.Receive(), std::nullopt);
  EXPECT_TRUE(client.Close());
}

TEST_F(ExchangeTest, DisconnectWithdrawsWhatTheClientPublished) {
  Client owner;
  Publish(owner, kSpeed, "6");
  EXPECT_EQ(owner.Ask(R"({"Disconnect": true})"), std::nullopt);
  Client reader;
  EXPECT_TRUE(Eventually([&] { return reader.Ask(GetText(kSpeed)) == NotFoundText(kSpeed); }));
}

TEST_F(ExchangeTest, OneMessageDoesAllThatItAsksFor) {
  Client client;
  const std::string entry =
      Entry(kSpeed, "Some Component", "Some Group", "Some Name", "Successful", "6");
  // The get is answered from before the publication, in any order of the keys.
  EXPECT_EQ(client.Ask(R"({"PropertyGetResponses": [)" + entry + R"(],"Unheard Of": [1, 2],)" +
                       R"("PropertyGetRequests": [{"Component": "C0000001",)" +
                       R"("GUID": "G0000001:P0000001"}]})"),
            NotFoundText(kSpeed));
  EXPECT_EQ(client.Ask(GetText(kSpeed)), PublishedText(kSpeed, "6"));
}

// The text is the same; what needs no escape is written without one.
TEST_F(ExchangeTest, OutsideTextComesBackEscaped) {
  Client owner;
  ASSERT_TRUE(owner.Send(PublishedText(kSpeed, R"(a \"quote\", a \\, a \/, a tab \t and \u00E9)")));
  const std::string expected = PublishedText(kSpeed, R"(a \"quote\", a \\, a /, a tab \t and )"
                                                     "\xc3\xa9");
  EXPECT_EQ(owner.Ask(GetText(kSpeed)), expected);
  ASSERT_TRUE(owner.Send(expected));
  EXPECT_EQ(owner.Ask(GetText(kSpeed)), expected);
}

TEST_F(ExchangeTest, TheOldServicesPropertiesGoWithIt) {
  Client owner;
  Publish(owner, kSpeed, "6");
  ASSERT_EQ(PRN_Init(0), 1u);
  EXPECT_EQ(Client().Ask(GetText(kSpeed)), NotFoundText(kSpeed));
}

}  // namespace
}  // namespace valmere::test
