// A client that subscribes and one that owns properties, and what the first is told.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

#include "tests/store/engine/engine_fixture.h"

namespace valmere::test {

inline constexpr const char* kSubscribeToAll = R"({"SubscribeAllCurrentAndNewProperties": true})";

inline std::string Subscription(std::string_view component, std::string_view joined_guid) {
  return R"({"PropertySubscribeRequests": [{"Component": ")" + std::string(component) +
         R"(","GUID": ")" + std::string(joined_guid) + R"("}]})";
}

class SubscriberTest : public EngineTest {
 protected:
  // What it is told at the end of a period that has just begun.
  Texts EndPeriod(Client& receiver) {
    engine->PublishPass();
    engine->PublishPass();
    return receiver.TakeTexts();
  }
  void SubscribeToAll(Client& subscriber) { EXPECT_TRUE(Send(subscriber, kSubscribeToAll)); }
  void Subscribe(Client& subscriber, std::string_view component, std::string_view joined_guid) {
    EXPECT_TRUE(Send(subscriber, Subscription(component, joined_guid)));
  }

  // Sets the property "C", "G" of this GUID and tells whether the owner was asked to. For use while
  // subscribers are told, when answers wait.
  bool ReachesOwner(std::string_view guid) {
    EXPECT_TRUE(Send(reader, R"({"PropertySetRequests": [{"Component": "C","GUID": "G:)" +
                                 std::string(guid) + R"(","Value": "set"}]})"));
    return !owner.TakeTexts().empty();
  }

  Client owner;
  Client client;
};

}  // namespace valmere::test
