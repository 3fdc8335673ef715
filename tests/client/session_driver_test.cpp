// Sessions over handles of the real driver, which runs in the test's own process.
#include <atomic>

#include "tests/client/session_fixture.h"
#include "tests/driver/entry_fixture.h"

namespace valmere::test {
using namespace client;
namespace {

using ::testing::ElementsAre;

std::atomic<std::uint32_t> last_handle{0};

std::uint32_t OpenAndRemember(std::uint32_t context, std::uint32_t access,
                              std::uint32_t share_mode) {
  last_handle = PRN_Open(context, access, share_mode);
  return last_handle;
}

class SessionDriverTest : public valmere::test::EntryTest {
 protected:
  SessionDriverTest() {
    options_.timeout = test::kPatience;
    options_.first_pause = std::chrono::milliseconds(1);
    options_.on_event = [this](const SessionEvent& event) { events_.Put(event); };
  }

  Session Open() const {
    return std::move(*Session::Open(
        DriverConnector({OpenAndRemember, PRN_Close, PRN_Read, PRN_Write}, 1), options_));
  }
  // Waits for news of the property, and passes others over.
  static Property NewsOf(const PropertyAddress& address, Box<Changes>& changes) {
    for (;;) {
      const Changes some = changes.Take();
      if (some.empty()) return {};
      for (const Property& property : some) {
        if (property.address() == address) return property;
      }
    }
  }
  // The same for one value: a notification may hold earlier values of the property before it.
  static bool AwaitNews(const PropertyAddress& address, const std::string& value,
                        Box<Changes>& changes) {
    for (;;) {
      const Changes some = changes.Take();
      if (some.empty()) return false;
      for (const Property& property : some) {
        if (property.address() == address && property.value == value) return true;
      }
    }
  }
  static Session::ChangeCallback PutInto(Box<Changes>& changes) {
    return [&changes](std::span<const Property> properties) {
      changes.Put(Changes(properties.begin(), properties.end()));
    };
  }

  const PropertyAddress speed_ = kSpeed.address();
  const PropertyAddress colour_ = kColour.address();
  Box<SessionEvent> events_;
  SessionOptions options_;
};

TEST_F(SessionDriverTest, GetsOneManyAGroupAndAll) {
  Session session = Open();
  const std::vector<Property> both{kSpeed, kColour};
  ASSERT_TRUE(session.Publish(both));
  EXPECT_EQ(session.Get(speed_).value(), kSpeed);
  const std::vector<PropertyAddress> addresses{speed_, {"C9", "G9", "P9"}, colour_};
  const auto many = session.Get(addresses);
  ASSERT_TRUE(many);
  EXPECT_EQ(many->size(), 3U);
  EXPECT_EQ(many->at(0), kSpeed);
  EXPECT_FALSE(many->at(1).found());
  EXPECT_EQ(many->at(2), kColour);
  EXPECT_THAT(session.GetGroup("G2").value(), ElementsAre(kColour));
  EXPECT_THAT(session.GetAll().value(), ::testing::IsSupersetOf(both));
}

TEST_F(SessionDriverTest, CarriesAPropertyThroughItsLife) {
  Box<Changes> changes;
  Session user = Open();
  const auto subscription = user.Subscribe({&speed_, 1}, PutInto(changes));
  ASSERT_TRUE(subscription);
  Session owner = Open();
  ASSERT_TRUE(owner.Publish({&kSpeed, 1}, [&](const SetRequest& set) {
    EXPECT_TRUE(owner.Update({set.address, "set to " + set.value}));
  }));
  EXPECT_EQ(NewsOf(speed_, changes), kSpeed);
  ASSERT_TRUE(user.Set({speed_, "43"}));
  EXPECT_EQ(NewsOf(speed_, changes), WithValue(kSpeed, "set to 43"));
  EXPECT_EQ(user.Get(speed_).value().value, "set to 43");
  ASSERT_TRUE(owner.Withdraw({&speed_, 1}));
  EXPECT_EQ(NewsOf(speed_, changes).status, kNoLongerAvailable);
  EXPECT_FALSE(user.Get(speed_).value().found());
}

TEST_F(SessionDriverTest, TellsOfANamedPropertyThatGoesAndComesBack) {
  Box<Property> news;
  Session user = Open();
  const std::vector<PropertyAddress> addresses{speed_, colour_};
  const auto subscription = user.Subscribe(addresses, [&](std::span<const Property> properties) {
    for (const Property& property : properties) {
      if (property.address() == speed_) news.Put(property);
    }
  });
  ASSERT_TRUE(subscription);
  Session owner = Open();
  const std::vector<Property> both{kSpeed, kColour};
  ASSERT_TRUE(owner.Publish(both));
  ASSERT_EQ(news.Take(), kSpeed);
  // The value that it came back with may be reported twice.
  const auto other_news = [&] {
    Property next = kSpeed;
    while (next == kSpeed)
      next = news.Take();
    return next;
  };
  for (int time = 0; time < 2; ++time) {
    ASSERT_TRUE(owner.Withdraw({&speed_, 1}));
    ASSERT_EQ(other_news().status, kNoLongerAvailable);
    ASSERT_TRUE(owner.Publish({&kSpeed, 1}));
    ASSERT_EQ(news.Take(), kSpeed);
  }
  ASSERT_TRUE(owner.Update({speed_, "43"}));
  EXPECT_EQ(other_news(), WithValue(kSpeed, "43"));
}

TEST_F(SessionDriverTest, SubscribesToSomeThenToAllThenToSome) {
  Box<Changes> some;
  Box<Changes> all;
  Session user = Open();
  const auto first = user.Subscribe({&speed_, 1}, PutInto(some));
  auto everything = user.SubscribeAll(PutInto(all));
  ASSERT_TRUE(first && everything);
  Session owner = Open();
  const std::vector<Property> both{kSpeed, kColour};
  ASSERT_TRUE(owner.Publish(both));
  EXPECT_EQ(NewsOf(colour_, all), kColour);
  EXPECT_EQ(NewsOf(speed_, some), kSpeed);
  everything->End();
  Box<Changes> colours;
  const auto second = user.Subscribe({&colour_, 1}, PutInto(colours));
  ASSERT_TRUE(owner.Update({colour_, "blue"}));
  EXPECT_EQ(NewsOf(colour_, colours), WithValue(kColour, "blue"));
}

TEST_F(SessionDriverTest, BringsEverythingBackAfterItsHandleWasClosed) {
  Box<Changes> changes;
  Box<SetRequest> sets;
  Session session = Open();
  const std::uint32_t handle = last_handle;
  ASSERT_TRUE(session.Publish({&kSpeed, 1}, [&](const SetRequest& set) { sets.Put(set); }));
  const auto subscription = session.SubscribeAll(PutInto(changes));
  ASSERT_TRUE(subscription);
  ASSERT_TRUE(session.Get(speed_)) << "from here on the handle is read";
  EXPECT_EQ(PRN_Close(handle), 1U);
  EXPECT_TRUE(std::holds_alternative<Lost>(events_.Take()));
  const SessionEvent back = events_.Take();
  ASSERT_TRUE(std::holds_alternative<Reconnected>(back));
  EXPECT_THAT(std::get<Reconnected>(back).properties, ::testing::Contains(kSpeed));
  ASSERT_TRUE(session.Set({speed_, "43"}));
  EXPECT_EQ(sets.Take().value, "43");
  ASSERT_TRUE(session.Update({speed_, "43"}));
  EXPECT_TRUE(AwaitNews(speed_, "43", changes));
  EXPECT_TRUE(events_.empty());
}

TEST_F(SessionDriverTest, AnswersManyThreadsWhileSetsComeIn) {
  Session session = Open();
  std::atomic<int> sets{0};
  ASSERT_TRUE(session.Publish({&kSpeed, 1}, [&](const SetRequest& set) {
    EXPECT_TRUE(session.Update(set));
    EXPECT_EQ(session.Get(speed_).value().guid, "P1");
    if (++sets == 100) sets.notify_all();
  }));
  std::vector<std::future<void>> callers;
  for (int i = 0; i < 4; ++i) {
    callers.push_back(Meanwhile([&] {
      for (int set = 0; set < 25; ++set) {
        EXPECT_TRUE(session.Set({speed_, std::to_string(set)}));
        EXPECT_EQ(session.Get(colour_).value().guid, "P2");
        EXPECT_EQ(session.Get(speed_).value().guid, "P1");
      }
    }));
  }
  for (auto& caller : callers) {
    caller.get();
  }
  for (int seen = sets; seen < 100; seen = sets) {
    sets.wait(seen);
  }
}

}  // namespace
}  // namespace valmere::test
