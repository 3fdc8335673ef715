// Sets for owners that have no room for them.
#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <vector>

#include "store/engine/set_requests.h"
#include "tests/store/engine/publishing_fixture.h"
#include "tests/support/test_thread.h"

namespace valmere::test {
namespace {

// Sets for the properties of components A and B.
const std::string kSetOfA = R"({"Component": "A","GUID": "G:P","Value": "x"})";
const std::string kSetOfB = R"({"Component": "B","GUID": "G:P","Value": "x"})";

std::string Sets(const std::string& sets) {
  return R"({"PropertySetRequests": [)" + sets + "]}";
}

class ForwardedSets : public EngineTest {
 protected:
  ForwardedSets() {
    Publish(a, {.component = "A"});
    Publish(b, {.component = "B"});
    AddOwn("P", "V");
    a.stream->LeaveNoRoom();
  }
  bool WaitsForA() {
    return Eventually([this] { return a.stream->waits() != 0; });
  }

  Client a, b, sender;
};

TEST_F(ForwardedSets, WaitForAnOwnerWithoutRoomWithNoLockHeld) {
  TestThread setting([&] { EXPECT_TRUE(Send(sender, Sets(kSetOfA))); });
  EXPECT_TRUE(WaitsForA());
  EXPECT_EQ(Responses({OwnEntry("P", "V")}), Get("OWN", "G:P"));
  EXPECT_TRUE(Send(reader, Message({kSubscribe})));
  EXPECT_TRUE(a.TakeTexts().empty());
  a.stream->MakeRoom();
  setting.Join();
  EXPECT_EQ((Texts{Sets(kSetOfA)}), a.TakeTexts());
  EXPECT_TRUE(log->TakeLines().empty());
}

TEST_F(ForwardedSets, GoFirstToOwnersWithRoom) {
  TestThread setting([&] { EXPECT_TRUE(Send(sender, Sets(kSetOfA + "," + kSetOfB))); });
  EXPECT_TRUE(WaitsForA());
  EXPECT_EQ((Texts{Sets(kSetOfB)}), b.TakeTexts());
  a.stream->MakeRoom();
  setting.Join();
  EXPECT_EQ((Texts{Sets(kSetOfA)}), a.TakeTexts());
  EXPECT_TRUE(b.TakeTexts().empty()) << "each is sent once";
}

TEST_F(ForwardedSets, GoToALaterOwnerAsSoonAsThatHasRoom) {
  b.stream->LeaveNoRoom();
  TestThread setting([&] { EXPECT_TRUE(Send(sender, Sets(kSetOfA + "," + kSetOfB))); });
  EXPECT_TRUE(WaitsForA());
  b.stream->MakeRoom();
  EXPECT_TRUE(Eventually([&] { return !b.stream->writes().empty(); }));
  EXPECT_TRUE(a.stream->writes().empty());
  a.stream->MakeRoom();
  setting.Join();
  EXPECT_EQ(1u, a.stream->writes().size());
}

TEST_F(ForwardedSets, AreNotWaitedWithOnceTheSendersSessionHasEnded) {
  TestThread setting([&] { Send(sender, Sets(kSetOfA)); });
  EXPECT_TRUE(WaitsForA());
  sender.connection->Close();
  setting.Join();
  EXPECT_TRUE(a.stream->writes().empty());
  EXPECT_TRUE(log->TakeLines().empty());
}

TEST_F(ForwardedSets, AreNotWaitedWithOnceTheirOwnerHasGone) {
  TestThread setting([&] { EXPECT_TRUE(Send(sender, Sets(kSetOfA))); });
  EXPECT_TRUE(WaitsForA());
  a.stream->Close();
  setting.Join();
  EXPECT_TRUE(log->TakeLines().empty());
}

TEST_F(ForwardedSets, AreHandedOverWithoutACopy) {
  b.stream->KeepFrames();
  EXPECT_TRUE(Send(sender, Sets(kSetOfB)));
  const std::vector<SharedFrame> frames = b.stream->TakeFrames();
  ASSERT_EQ(1u, frames.size());
  EXPECT_EQ(FrameOf(Sets(kSetOfB)), *frames[0]);
}

// With a catalog of its own.
class DroppedSets : public Publishing {
 protected:
  void Publish(const Client& owner, std::string_view component) {
    EXPECT_TRUE(catalog->AddPublished(ComponentProperty::Make(
        "V", "P", "Name", "G", "Group", component, "Client", owner.connection)));
  }
};

TEST_F(DroppedSets, AreThoseForOwnersThatHaveNoRoomInTime) {
  Client a, b, c;
  Publish(a, "A");
  Publish(b, "B");
  Publish(c, "C");
  a.stream->LeaveNoRoom();
  b.stream->LeaveNoRoom();
  const std::string set_of_c = R"({"Component": "C","GUID": "G:P","Value": "x"})";
  ScriptedConnection frame(
      {FrameOf(Sets(kSetOfA + "," + kSetOfB + "," + kSetOfA + "," + set_of_c))});
  PropertyMessage message;
  ASSERT_TRUE(message.Read(frame));
  EXPECT_TRUE(HandleSetRequests(*catalog, message, *client.connection, log, 30));
  EXPECT_TRUE(a.TakeTexts().empty());
  EXPECT_TRUE(b.TakeTexts().empty());
  EXPECT_EQ((Texts{Sets(set_of_c)}), c.TakeTexts());
  const auto line = [](const Client& owner, const char* sets) {
    return "Client " + std::to_string(owner.connection->instance_number()) +
           " reads nothing: " + sets + " sets for it are dropped";
  };
  EXPECT_EQ((Texts{line(a, "2"), line(b, "1")}), log->TakeLines());
  a.stream->MakeRoom();
  b.stream->MakeRoom();
  EXPECT_TRUE(HandleSetRequests(*catalog, message, *client.connection, log, 0));
  EXPECT_EQ((Texts{Sets(kSetOfA + "," + kSetOfA)}), a.TakeTexts()) << "the next ones are sent";
}

}  // namespace
}  // namespace valmere::test
