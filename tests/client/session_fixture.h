// What all tests of sessions share.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <condition_variable>
#include <deque>
#include <functional>
#include <future>
#include <optional>
#include <span>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "client/mutex.h"
#include "client/session.h"
#include "tests/client/deadlines.h"
#include "tests/client/played_service.h"

namespace valmere::test {
using namespace client;

inline const Property kSpeed{"G1", "Motion", "P1", "Speed", "42", kSuccessful, "C1", "Print Head"};
inline const Property kColour{"G2", "Look", "P2", "Colour", "red", kSuccessful, "C1", "Print Head"};

inline Property WithValue(Property property, const std::string& value) {
  property.value = value;
  return property;
}
inline Property WithStatus(Property property, const std::string& status) {
  property.status = status;
  return property;
}

// What one thread puts in another takes out, in order.
template <class Value>
class Box {
 public:
  // Notifies under the lock: the thread that takes the value may destroy the box at once.
  void Put(Value value) {
    const MutexLock hold(lock_);
    values_.push_back(std::move(value));
    changed_.notify_all();
  }
  // Waits for the next; a default value when none comes within kPatience, and a failure.
  Value Take() {
    MutexLock hold(lock_);
    const auto come = [this]() REQUIRES(lock_) { return !values_.empty(); };
    if (!hold.WaitUntil(changed_, Deadline::After(test::kPatience), come)) {
      ADD_FAILURE() << "nothing comes";
      return Value();
    }
    Value value = std::move(values_.front());
    values_.pop_front();
    return value;
  }
  bool empty() {
    const MutexLock hold(lock_);
    return values_.empty();
  }

 private:
  Mutex lock_;
  std::condition_variable changed_;
  std::deque<Value> values_ GUARDED_BY(lock_);
};

using Changes = std::vector<Property>;

// Runs a call that waits for what the test is going to do.
template <class Call>
auto Meanwhile(Call call) {
  // As a function, so that what starts a thread is compiled once for each type of result.
  return std::async(std::launch::async,
                    std::function<std::invoke_result_t<Call>()>(std::move(call)));
}

class SessionTest : public ::testing::Test {
 protected:
  SessionTest() {
    options_.timeout = test::kPatience;
    options_.first_pause = std::chrono::milliseconds(1);
    options_.longest_pause = std::chrono::milliseconds(20);
    options_.on_event = [this](const SessionEvent& event) { events_.Put(event); };
  }

  // Before the members of a test go, which callbacks may use.
  void TearDown() override { session_.reset(); }

  void Open() {
    Result<Session> session = Session::Open(SocketConnector(service_.path()), options_, Soon());
    ASSERT_TRUE(session) << session.error().text;
    session_.emplace(std::move(*session));
    requests_.emplace(service_.Accept());
  }

  static void Answer(const test::FakeConnection& connection, const Changes& properties) {
    connection.Send(test::ResponseText(properties));
  }
  // Says that a subscription stands.
  static void Confirm(const test::FakeConnection& connection) {
    Answer(connection, {WithStatus(Property(), kNotFound)});
  }
  static void SendSet(const test::FakeConnection& connection, const std::string& value) {
    connection.Send(R"({"PropertySetRequests": [{"GUID": "G1:P1", "Component": "C1", "Value": ")" +
                    value + R"("}]})");
  }

  // Both expect a connection of their own for the subscription.
  Subscription SubscribeAll(Box<Changes>& changes) {
    auto call = Meanwhile([&] { return session_->SubscribeAll(PutInto(changes)); });
    return Confirmed(std::move(call));
  }
  Subscription Subscribe(const std::vector<PropertyAddress>& addresses, Box<Changes>& changes) {
    auto call = Meanwhile([&] { return session_->Subscribe(addresses, PutInto(changes)); });
    return Confirmed(std::move(call));
  }
  Subscription Confirmed(std::future<Result<Subscription>> call) {
    changes_.emplace(service_.Accept());
    subscription_text_ = changes_->Receive();
    Confirm(*changes_);
    auto done = call.get();
    EXPECT_TRUE(done) << done.error().text;
    return done ? std::move(*done) : Subscription();
  }
  static Session::ChangeCallback PutInto(Box<Changes>& changes) {
    return [&changes](std::span<const Property> properties) {
      changes.Put(Changes(properties.begin(), properties.end()));
    };
  }

  // Takes the next event, which has to be a loss.
  Error TakeLost() {
    const SessionEvent event = events_.Take();
    EXPECT_TRUE(std::holds_alternative<Lost>(event));
    return std::holds_alternative<Lost>(event) ? std::get<Lost>(event).error : Error{};
  }
  Changes TakeReconnected() {
    const SessionEvent event = events_.Take();
    EXPECT_TRUE(std::holds_alternative<Reconnected>(event));
    return std::holds_alternative<Reconnected>(event) ? std::get<Reconnected>(event).properties
                                                      : Changes();
  }
  // Ends the connections and takes the event that says so.
  void Lose() {
    requests_->End();
    if (changes_) changes_->End();
    TakeLost();
  }

  test::PlayedService service_;
  Box<SessionEvent> events_;
  SessionOptions options_;
  std::optional<test::PlayedConnection> requests_;
  std::optional<test::PlayedConnection> changes_;
  std::string subscription_text_;  // the last request that subscribed
  std::optional<Session> session_;
};

inline const std::string kGetAllText = R"({"GetAllProperties": true})";

}  // namespace valmere::test
