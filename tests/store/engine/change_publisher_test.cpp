// Passes, periods and delivery, pass by pass.
#include "store/engine/change_publisher.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "driver/sync/live_counters.h"
#include "store/engine/publishing_thread.h"
#include "store/property/component_property.h"
#include "store/property/string_property.h"
#include "tests/store/engine/engine_fixture.h"
#include "tests/support/allocations.h"
#include "tests/support/test_thread.h"

namespace valmere {
namespace {

using test::Client;
using test::EntryText;
using test::Responses;

using Texts = std::vector<std::string>;

using test::kGone;

class Publishing : public ::testing::Test {
 protected:
  void Subscribe(const Client& subscriber, std::vector<PropertyAddress> addresses = {}) {
    Subscriber::Keys keys = test::KeysOf(addresses);
    const ScopedLock hold(subscribers->lock);
    subscribers->Add(subscriber.connection, keys);
  }
  std::size_t CountSubscribers() {
    const ScopedLock hold(subscribers->lock);
    return subscribers->size();
  }
  UpdateEntries::Keys KeysOf(const Client& subscriber) {
    const ScopedLock hold(subscribers->lock);
    return subscribers->Find(*subscriber.connection)->keys;
  }
  // One that passes on a thread of its own.
  std::shared_ptr<ChangePublisher> MakeRunning() {
    return std::make_shared<ChangePublisher>(own, period, subscribers, pending, observation, log);
  }
  // Whether all properties have been observed since the last call.
  bool ObservedAll() {
    const bool observed = sentinel->observed();
    sentinel = AddSentinel();
    return observed;
  }
  // A property that is observed with all others alone.
  std::shared_ptr<Property> AddSentinel() {
    auto added = Own("sentinel " + std::to_string(catalog->size()));
    EXPECT_TRUE(catalog->AddOwn(added));
    return added;
  }
  // Runs to the end of a 500 ms period that has just begun.
  void EndPeriod() {
    publisher.Pass();
    publisher.Pass();
  }
  static std::shared_ptr<Property> Own(std::string_view guid, std::string_view value = "V") {
    return StringProperty::Make(value, guid, "Name", "G", "Group");
  }
  static std::shared_ptr<Property> Published(std::string_view guid, std::string_view value = "V") {
    return ComponentProperty::Make(value, guid, "Name", "G", "Group", "C", "Client", nullptr);
  }
  static EntryText OwnEntry(std::string_view guid, std::string_view value = "V") {
    return {.component = "OWN", .component_string = "Valmere", .guid = guid, .value = value};
  }
  // Whether another thread could take the subscriber list's lock.
  bool ListIsFree() NO_THREAD_SAFETY_ANALYSIS {
    bool entered = false;
    test::TestThread other([&]() NO_THREAD_SAFETY_ANALYSIS {
      entered = subscribers->lock.TryEnter();
      if (entered) subscribers->lock.Leave();
    });
    other.Join();
    return entered;
  }
  // How many passes it takes until the client is written to; at most `most`.
  int PassesUntilWritten(Client& receiver, int most) {
    for (int pass = 1; pass <= most; ++pass) {
      pending->PushChange(property);
      publisher.Pass();
      if (!receiver.TakeTexts().empty()) return pass;
    }
    return 0;
  }

  const std::shared_ptr<StringProperty> own =
      StringProperty::Make("Valmere", "OWN", "Valmere", "COMPONENTS", "Components");
  const std::shared_ptr<UIntProperty> period =
      UIntProperty::Make(500, "PERIOD", "Period", "General", "General");
  const std::shared_ptr<SubscriberList> subscribers = std::make_shared<SubscriberList>();
  const std::shared_ptr<test::CollectingLog> log = std::make_shared<test::CollectingLog>();
  const std::shared_ptr<PropertyCatalog> catalog = std::make_shared<PropertyCatalog>(own);
  const std::shared_ptr<PendingUpdates> pending = std::make_shared<PendingUpdates>();
  const std::shared_ptr<Observation> observation = Observation::Make(catalog, subscribers, pending);
  std::shared_ptr<Property> sentinel = AddSentinel();
  ChangePublisher publisher{own, period, subscribers, pending, observation, log};
  const std::shared_ptr<Property> property = Own("P");
  Client client;
};

TEST_F(Publishing, TellsTheWholePeriodAtItsEndOnly) {
  Subscribe(client);
  pending->PushChange(Own("1"));
  publisher.Pass();
  EXPECT_TRUE(client.TakeTexts().empty());
  pending->PushChange(Own("2"));
  publisher.Pass();
  EXPECT_EQ((Texts{Responses({OwnEntry("1"), OwnEntry("2")})}), client.TakeTexts());
  EndPeriod();
  EXPECT_TRUE(client.TakeTexts().empty()) << "it is told once";
}

TEST_F(Publishing, TellsTheNewestOfAPassFirst) {
  Subscribe(client);
  for (const char* guid : {"1", "2", "3"})
    pending->PushChange(Own(guid));
  publisher.Pass();
  for (const char* guid : {"4", "5"})
    pending->PushChange(Own(guid));
  publisher.Pass();
  EXPECT_EQ((Texts{Responses(
                {OwnEntry("3"), OwnEntry("2"), OwnEntry("1"), OwnEntry("5"), OwnEntry("4")})}),
            client.TakeTexts());
}

TEST_F(Publishing, DoesNotMergeTheChangesOfAProperty) {
  Subscribe(client);
  for (int i = 0; i < 3; ++i)
    pending->PushChange(property);
  property->SetFromString("last");
  EndPeriod();
  EXPECT_EQ(
      (Texts{Responses({OwnEntry("P", "last"), OwnEntry("P", "last"), OwnEntry("P", "last")})}),
      client.TakeTexts());
}

TEST_F(Publishing, TellsOwnChangesThenComponentsThenNewThenVanished) {
  Subscribe(client);
  pending->announcements.AddVanished(Published("1"));
  pending->announcements.AddVanished(Published("2"));
  pending->announcements.AddNew(Published("3"));
  pending->announcements.AddNew(Own("4"));
  pending->PushChange(Published("5"));
  pending->PushChange(Published("6"));
  pending->PushChange(Own("7"));
  pending->PushChange(Own("8"));
  pending->periodic.Add(Own("9"));
  EndPeriod();
  EXPECT_EQ((Texts{Responses({OwnEntry("8"),
                              OwnEntry("7"),
                              {.guid = "6"},
                              {.guid = "5"},
                              {.guid = "3"},
                              OwnEntry("4"),
                              {.guid = "1", .status = kGone},
                              {.guid = "2", .status = kGone},
                              OwnEntry("9")})}),
            client.TakeTexts());
}

// Says when its value is read.
class WatchedProperty final : public ComponentProperty {
 public:
  static std::shared_ptr<WatchedProperty> Make() {
    return std::make_shared<WatchedProperty>(
        MakeToken(), "V", PropertyIdentity("W", "Name", "G", "Group", "C", "Client"), nullptr);
  }
  using ComponentProperty::ComponentProperty;
  std::string GetValueString() const override {
    on_read();
    return ComponentProperty::GetValueString();
  }

  std::function<void()> on_read;
};

// A change that the pass no longer takes, and the going right after it.
TEST_F(Publishing, TellsOfAGoingAfterTheChangesBeforeIt) {
  Subscribe(client);
  const auto leaving = Published("1");
  const auto busy = WatchedProperty::Make();
  std::uint32_t reads = 0;
  busy->on_read = [&] {
    if (++reads < ChangeStack::kSlots) pending->PushChange(busy);
    if (reads != ChangeStack::kSlots) return;
    pending->PushChange(leaving);
    pending->announcements.AddVanished(leaving);
  };
  pending->PushChange(busy);
  EndPeriod();
  EndPeriod();
  std::string told;
  for (const std::string& text : client.TakeTexts())
    told += text;
  const std::size_t change = told.rfind(EntryText{.guid = "1"}.Text());
  const std::size_t going = told.rfind(EntryText{.guid = "1", .status = kGone}.Text());
  ASSERT_NE(std::string::npos, change);
  ASSERT_NE(std::string::npos, going);
  EXPECT_LT(change, going);
}

TEST_F(Publishing, TakesChangesAgainAfterThePassThatEmptiedTheStack) {
  Subscribe(client);
  const auto published = Published("1");
  EXPECT_FALSE(pending->changes.HasChanges());
  for (int i = 0; i < 499; ++i) {
    EXPECT_TRUE(pending->PushChange(property));
    EXPECT_TRUE(pending->PushChange(published));
  }
  EXPECT_FALSE(pending->PushChange(property));
  EXPECT_FALSE(pending->PushChange(published));
  EXPECT_TRUE(pending->changes.HasChanges());
  publisher.Pass();
  EXPECT_FALSE(pending->changes.HasChanges());
  EXPECT_TRUE(pending->PushChange(property));
  EXPECT_TRUE(pending->PushChange(published));
}

TEST_F(Publishing, PublishesEverySecondPassAtFirst) {
  Subscribe(client);
  EXPECT_EQ(2, PassesUntilWritten(client, 10));
  EXPECT_EQ(2, PassesUntilWritten(client, 10));
}

TEST_F(Publishing, RoundsThePeriodDownToWholePasses) {
  Subscribe(client);
  period->SetValue(999);
  PassesUntilWritten(client, 10);
  EXPECT_EQ(3, PassesUntilWritten(client, 10));
  period->SetValue(250);
  PassesUntilWritten(client, 10);
  EXPECT_EQ(1, PassesUntilWritten(client, 10));
}

TEST_F(Publishing, ReadsThePeriodOnlyAtAPeriodsEnd) {
  Subscribe(client);
  pending->PushChange(property);
  publisher.Pass();
  period->SetValue(1000);
  EXPECT_EQ(1, PassesUntilWritten(client, 10)) << "the running period ends when it was to end";
  EXPECT_EQ(4, PassesUntilWritten(client, 10));
  period->SetValue(0);
  period->SetValue(500);
  EXPECT_EQ(4, PassesUntilWritten(client, 10));
  EXPECT_EQ(2, PassesUntilWritten(client, 10));
}

TEST_F(Publishing, NeverEndsAPeriodOfLessThanOnePass) {
  Subscribe(client);
  for (const std::uint32_t milliseconds : {0u, 1u, 249u}) {
    const auto short_period = UIntProperty::Make(milliseconds, "S", "S", "General", "General");
    ChangePublisher never(own, short_period, subscribers, pending, observation, log);
    for (int pass = 0; pass < 1000; ++pass) {
      pending->PushChange(property);
      never.Pass();
    }
    EXPECT_TRUE(client.TakeTexts().empty()) << milliseconds;
  }
}

TEST_F(Publishing, EndsAPeriodWithoutEntriesAsWell) {
  Subscribe(client);
  EndPeriod();
  EXPECT_TRUE(client.TakeTexts().empty());
  EXPECT_EQ(2, PassesUntilWritten(client, 10));
}

TEST_F(Publishing, TellsAClientOnlyWhatItNamed) {
  Client other, nothing;
  Subscribe(client, {{"C", "G", "1"}, {"OWN", "G", "2"}});
  Subscribe(other, {{"C", "G", "2"}});
  Subscribe(nothing, {{"C", "G", ""}});
  pending->PushChange(Own("1"));
  pending->PushChange(Own("2"));
  pending->PushChange(Published("1"));
  pending->PushChange(Published("2"));
  EndPeriod();
  EXPECT_EQ((Texts{Responses({OwnEntry("2"), {.guid = "1"}})}), client.TakeTexts());
  EXPECT_EQ((Texts{Responses({{.guid = "2"}})}), other.TakeTexts());
  EXPECT_TRUE(nothing.TakeTexts().empty()) << "nothing of it, so no frame";
  EXPECT_FALSE(ObservedAll());
}

TEST_F(Publishing, GivesAllWhoSubscribedToAllTheSameBytes) {
  std::vector<Client> clients(3);
  for (const Client& each : clients)
    Subscribe(each);
  pending->PushChange(Own("1"));
  pending->PushChange(Published("2"));
  EndPeriod();
  const Texts frames = clients[0].stream->writes();
  ASSERT_EQ(1u, frames.size());
  EXPECT_EQ(test::FrameOf(Responses({OwnEntry("1"), {.guid = "2"}})), frames[0]);
  for (const Client& each : clients)
    EXPECT_EQ(frames, each.stream->writes());
}

TEST_F(Publishing, DropsAClientWhoseWriteFailsAtOnceAndGoesOn) {
  for (const int result : {0, 1, Connection::kGone, Connection::kFailed, Connection::kDrained}) {
    Client broken, named, healthy;
    Subscribe(broken);
    Subscribe(named, {{"OWN", "G", "P"}});
    Subscribe(healthy);
    broken.stream->GiveToWrites(result);
    named.stream->GiveToWrites(result);
    pending->PushChange(property);
    EndPeriod();
    EXPECT_EQ((Texts{Responses({OwnEntry("P")})}), healthy.TakeTexts());
    EXPECT_EQ(1u, CountSubscribers());
    EXPECT_EQ(1, broken.connection.use_count()) << "nothing holds it any more";
    broken.TakeTexts();
    named.TakeTexts();
    pending->PushChange(property);
    EndPeriod();
    EXPECT_TRUE(broken.TakeTexts().empty());
    EXPECT_TRUE(named.TakeTexts().empty());
    EXPECT_EQ((Texts{Responses({OwnEntry("P")})}), healthy.TakeTexts());
    const ScopedLock hold(subscribers->lock);
    EXPECT_EQ(nullptr, subscribers->Find(*broken.connection));
    subscribers->Remove(*healthy.connection);
  }
}

// Refuses what is written to it; says how it goes.
class RefusingConnection final : public Connection {
 public:
  explicit RefusingConnection(std::function<void()> on_end) : on_end_(std::move(on_end)) {}
  ~RefusingConnection() override { on_end_(); }
  int Read(void*, int) override { return kFailed; }
  int Write(const void*, int) override { return kGone; }
  void Close() override {}
  bool IsOpen() const override { return false; }

 private:
  const std::function<void()> on_end_;
};

TEST_F(Publishing, LetsADroppedClientGoWhenTheListIsFree) {
  int ended = 0;
  bool free = false;
  Subscribe(Client(std::make_shared<RefusingConnection>([&] {
    ++ended;
    free = ListIsFree();
  })));
  pending->PushChange(property);
  EndPeriod();
  EXPECT_EQ(1, ended);
  EXPECT_TRUE(free);
}

TEST_F(Publishing, TakesTheKeyOfAVanishedPropertyFromThoseWhoWereTold) {
  Subscribe(client, {{"C", "G", "1"}, {"C", "G", "2"}});
  pending->announcements.AddVanished(Published("1"));
  EndPeriod();
  EXPECT_EQ((Texts{Responses({{.guid = "1", .status = kGone}})}), client.TakeTexts());
  EXPECT_EQ((UpdateEntries::Keys{"C:G:2"}), KeysOf(client));
  pending->announcements.AddNew(Published("1"));
  EndPeriod();
  EXPECT_TRUE(client.TakeTexts().empty());
  EXPECT_FALSE(ObservedAll());
}

TEST_F(Publishing, TakesAClientWithoutKeysLeftForOneThatSubscribedToAll) {
  const Client after_it;
  Subscribe(client, {{"C", "G", "1"}});
  Subscribe(after_it, {{"C", "G", "2"}});
  pending->announcements.AddVanished(Published("1"));
  pending->PushChange(Own("2"));
  EndPeriod();
  EXPECT_EQ((Texts{Responses({{.guid = "1", .status = kGone}})}), client.TakeTexts());
  EXPECT_TRUE(ObservedAll());
  pending->PushChange(Own("2"));
  EndPeriod();
  EXPECT_EQ((Texts{Responses({OwnEntry("2")})}), client.TakeTexts());
  EXPECT_FALSE(ObservedAll()) << "done once";
}

// Takes note of whether the list is free at the first allocation after the client was written to.
class ProbingConnection final : public Connection {
 public:
  explicit ProbingConnection(std::function<void()> probe) : probe_(std::move(probe)) {}
  int Read(void*, int) override { return kFailed; }
  int Write(const void*, int length) override {
    next_ = std::make_unique<test::AtTheNextAllocation>(probe_);
    return length;
  }
  void Close() override {}
  bool IsOpen() const override { return true; }

 private:
  const std::function<void()> probe_;
  std::unique_ptr<test::AtTheNextAllocation> next_;
};

TEST_F(Publishing, ObservesAllPropertiesWhenTheListIsFree) {
  bool probed = false;
  bool free = false;
  Subscribe(Client(std::make_shared<ProbingConnection>([&] {
              probed = true;
              free = ListIsFree();
            })),
            {{"C", "G", "1"}});
  pending->announcements.AddVanished(Published("1"));
  EndPeriod();
  EXPECT_TRUE(probed);
  EXPECT_TRUE(free);
  EXPECT_TRUE(ObservedAll());
}

TEST_F(Publishing, GoesOnWithTheNextPeriodWhenThereIsNoMemoryToObserveAll) {
  int failed = 0;
  bool observed = false;
  for (std::uint32_t granted = 0; !observed; ++granted) {
    Client named;
    Subscribe(named, {{"C", "G", "1"}});
    pending->announcements.AddVanished(Published("1"));
    publisher.Pass();
    try {
      const test::LimitedAllocations limited(granted);
      publisher.Pass();
    } catch (const std::bad_alloc&) {
      ++failed;
    }
    observed = ObservedAll();
    const ScopedLock hold(subscribers->lock);
    subscribers->Remove(*named.connection);
  }
  EXPECT_LT(0, failed);
  Subscribe(client);
  EXPECT_EQ(2, PassesUntilWritten(client, 10));
}

TEST_F(Publishing, ObservesNothingOnceTheObservationIsGone) {
  auto gone = Observation::Make(catalog, subscribers, pending);
  ChangePublisher left_behind(own, period, subscribers, pending, gone, log);
  gone.reset();
  Subscribe(client, {{"C", "G", "1"}});
  pending->announcements.AddVanished(Published("1"));
  left_behind.Pass();
  left_behind.Pass();
  EXPECT_EQ(1u, client.TakeTexts().size());
  EXPECT_FALSE(ObservedAll());
}

TEST_F(Publishing, DoesNotTakeADroppedClientForOneThatSubscribedToAll) {
  Subscribe(client, {{"C", "G", "1"}});
  client.stream->GiveToWrites(Connection::kGone);
  pending->announcements.AddVanished(Published("1"));
  EndPeriod();
  EXPECT_FALSE(ObservedAll());
}

TEST_F(Publishing, TellsPeriodicPropertiesAtEveryEndUntilTheyGo) {
  Subscribe(client);
  pending->periodic.Add(property);
  publisher.Pass();
  property->SetFromString("W");
  publisher.Pass();
  EndPeriod();
  EXPECT_EQ((Texts{Responses({OwnEntry("P", "W")}), Responses({OwnEntry("P", "W")})}),
            client.TakeTexts());
  pending->periodic.Remove(property);
  EndPeriod();
  EXPECT_TRUE(client.TakeTexts().empty());
}

TEST_F(Publishing, TellsNobodyWhatChangedWhenThereWasNobody) {
  pending->PushChange(property);
  pending->announcements.AddNew(property);
  pending->announcements.AddVanished(property);
  publisher.Pass();
  EXPECT_EQ(1, property.use_count()) << "it is let go all the same";
  Subscribe(client);
  publisher.Pass();
  EXPECT_TRUE(client.TakeTexts().empty());
}

// Counts how often its value is asked for, and can refuse to give it.
class AskedProperty final : public StringProperty {
 public:
  AskedProperty() : StringProperty(MakeToken(), "V", PropertyIdentity("P", "Name", "G", "Group")) {}
  std::string GetValueString() const override {
    ++asked;
    if (out_of_memory) throw std::bad_alloc();
    return StringProperty::GetValueString();
  }
  mutable int asked = 0;
  bool out_of_memory = false;
};

TEST_F(Publishing, RendersNothingForNobodyAndOnceForMany) {
  const auto asked = std::make_shared<AskedProperty>();
  pending->PushChange(asked);
  pending->periodic.Add(asked);
  EndPeriod();
  EXPECT_EQ(0, asked->asked);
  pending->periodic.Remove(asked);
  std::vector<Client> clients(3);
  for (const Client& each : clients)
    Subscribe(each);
  pending->PushChange(asked);
  EndPeriod();
  EXPECT_EQ(1, asked->asked);
}

TEST_F(Publishing, LosesOnlyTheEntryThatThereIsNoMemoryFor) {
  Subscribe(client);
  const auto broken = std::make_shared<AskedProperty>();
  broken->out_of_memory = true;
  pending->periodic.Add(broken);
  pending->PushChange(Own("1"));
  pending->PushChange(broken);
  pending->announcements.AddNew(Own("2"));
  EndPeriod();
  EXPECT_EQ((Texts{Responses({OwnEntry("1"), OwnEntry("2")})}), client.TakeTexts());
  EXPECT_EQ(2, PassesUntilWritten(client, 10)) << "and periods go on ending";
}

TEST_F(Publishing, KeepsWhatComesAndGoesForAPassWithMoreMemory) {
  Subscribe(client);
  pending->announcements.AddVanished(Published("1"));
  pending->announcements.AddNew(Published("1", "W"));
  pending->announcements.AddNew(Own("2"));
  {
    const test::LimitedAllocations none(0);
    publisher.Pass();
  }
  publisher.Pass();
  EXPECT_EQ((Texts{Responses({OwnEntry("2"), {.guid = "1", .status = kGone}})}),
            client.TakeTexts());
  EndPeriod();
  EXPECT_EQ((Texts{Responses({{.guid = "1", .value = "W"}})}), client.TakeTexts());
}

TEST_F(Publishing, GivesTheMemoryOfABurstBack) {
  Client to_all;
  Subscribe(to_all);
  Subscribe(client, {{"OWN", "G", "P"}});
  property->SetFromString(std::string(1'000'000, 'x'));
  EndPeriod();
  const std::size_t before = test::BytesInUse();
  pending->PushChange(property);
  EndPeriod();
  for (Client* const each : {&client, &to_all})
    EXPECT_EQ(1u, each->TakeTexts().size());
  EXPECT_GT(before + 100'000, test::BytesInUse());
}

// Changes again each time that it is asked for its value.
class RestlessProperty final : public StringProperty {
 public:
  explicit RestlessProperty(PendingUpdates& pending)
      : StringProperty(MakeToken(), "V", PropertyIdentity("P", "Name", "G", "Group")),
        pending_(pending) {}
  std::string GetValueString() const override {
    if (++asked < 10'000)
      pending_.PushChange(std::const_pointer_cast<Property>(shared_from_this()));
    return StringProperty::GetValueString();
  }
  mutable std::uint32_t asked = 0;

 private:
  PendingUpdates& pending_;
};

TEST_F(Publishing, EndsAPassThoughChangesComeAsFastAsTheyAreTaken) {
  Subscribe(client);
  const auto restless = std::make_shared<RestlessProperty>(*pending);
  pending->PushChange(restless);
  publisher.Pass();
  EXPECT_EQ(ChangeStack::kSlots, restless->asked);
  EXPECT_TRUE(pending->changes.HasChanges());
}

class ThrowingConnection final : public Connection {
 public:
  int Read(void*, int) override { return kFailed; }
  int Write(const void*, int) override { throw std::bad_alloc(); }
  void Close() override {}
  bool IsOpen() const override { return true; }
};

TEST_F(Publishing, TellsThoseBehindASubscriberForWhomThereIsNoMemory) {
  const Client throwing(std::make_shared<ThrowingConnection>());
  Subscribe(throwing);
  Subscribe(client);
  for (int i = 0; i < 3; ++i)
    EXPECT_EQ(2, PassesUntilWritten(client, 10));
  EXPECT_EQ(2u, CountSubscribers());
}

TEST_F(Publishing, TellsOfAGoingHoweverMuchElseThePeriodHas) {
  Subscribe(client, {{"C", "G", "1"}});
  property->SetFromString(std::string(UpdateEntries::kMostBytes - 200, 'x'));
  pending->PushChange(property);
  pending->announcements.AddVanished(Published("1"));
  EndPeriod();
  EXPECT_EQ((Texts{Responses({{.guid = "1", .status = kGone}})}), client.TakeTexts());
  EXPECT_EQ(0u, KeysOf(client).size());
}

TEST_F(Publishing, MakesNothingForASubscriberWhoseConnectionHasEnded) {
  Client to_all, named, staying;
  Subscribe(to_all);
  Subscribe(named, {{"OWN", "G", "P"}});
  Subscribe(staying);
  to_all.stream->Close();
  named.stream->Close();
  pending->PushChange(property);
  EndPeriod();
  EXPECT_TRUE(to_all.TakeTexts().empty());
  EXPECT_TRUE(named.TakeTexts().empty());
  EXPECT_EQ(1u, staying.TakeTexts().size());
  EXPECT_EQ(1u, CountSubscribers());
}

TEST_F(Publishing, PublishesNothingOnceItIsStopped) {
  Subscribe(client);
  pending->PushChange(property);
  publisher.Pass();
  pending->PushChange(property);
  publisher.Stop();
  EndPeriod();
  EXPECT_TRUE(client.TakeTexts().empty());
  EXPECT_TRUE(pending->changes.HasChanges());
}

TEST_F(Publishing, LeavesOffAPassWhenItIsStopped) {
  Subscribe(client);
  const auto stopping = WatchedProperty::Make();
  const auto behind = WatchedProperty::Make();
  bool read = false;
  stopping->on_read = [&] { publisher.Stop(); };
  behind->on_read = [&] { read = true; };
  pending->PushChange(behind);
  pending->PushChange(stopping);  // the last one in is the first one out
  pending->announcements.AddNew(behind);
  pending->announcements.AddVanished(behind);
  pending->periodic.Add(behind);
  EndPeriod();
  EXPECT_FALSE(read);
  EXPECT_TRUE(client.TakeTexts().empty());
}

TEST_F(Publishing, TellsNoFurtherSubscriberWhenItIsStopped) {
  class StoppingConnection final : public Connection {
   public:
    explicit StoppingConnection(ChangePublisher& publisher) : publisher_(publisher) {}
    int Read(void*, int) override { return kFailed; }
    int Write(const void*, int length) override {
      publisher_.Stop();
      return length;
    }
    void Close() override {}
    bool IsOpen() const override { return true; }

   private:
    ChangePublisher& publisher_;
  };
  const Client stopping(std::make_shared<StoppingConnection>(publisher));
  Subscribe(stopping);
  Subscribe(client);
  pending->PushChange(property);
  EndPeriod();
  EXPECT_TRUE(client.TakeTexts().empty());
  EXPECT_EQ(2u, CountSubscribers());
}

TEST_F(Publishing, SaysOnceAPeriodThatItHasNoRoomForMore) {
  Subscribe(client);
  property->SetFromString(std::string(UpdateEntries::kMostBytes / 2, 'x'));
  for (int period_number = 0; period_number < 2; ++period_number) {
    for (int i = 0; i < 3; ++i)
      pending->PushChange(property);
    publisher.Pass();
    pending->PushChange(property);
    publisher.Pass();
    EXPECT_EQ((Texts{"More happens in a publishing period than subscribers can be told of"}),
              log->TakeLines());
  }
  pending->PushChange(property);
  EndPeriod();
  EXPECT_TRUE(log->TakeLines().empty());
}

// What is not told anew by a change must not be kept for it either.
TEST_F(Publishing, RemembersNothingThatItHadNoRoomFor) {
  Subscribe(client, {{"C", "G", "other"}});
  property->SetFromString(std::string(UpdateEntries::kMostBytes - 1000, 'x'));
  pending->PushChange(property);
  const auto refused = Published("1", std::string(10'000, 'x'));
  pending->announcements.AddNew(refused);
  publisher.Pass();
  EXPECT_EQ(1, refused.use_count());
}

TEST_F(Publishing, KeepsNothingThatHasGoneThoughItsGoingIsNotTold) {
  period->SetValue(0);
  EndPeriod();
  Subscribe(client, {{"C", "G", "other"}});
  const auto told = Published("1");
  pending->announcements.AddNew(told);
  publisher.Pass();
  EXPECT_EQ(2, told.use_count()) << "its value may be overtaken";
  property->SetFromString(std::string(UpdateEntries::kMostBytes - 1000, 'x'));
  pending->PushChange(property);
  for (int i = 0; i < 6; ++i)
    pending->announcements.AddVanished(Published("2", std::string(1'000'000, 'x')));
  pending->announcements.AddVanished(told);
  told->SetFromString(std::string(1'000'000, 'x'));
  publisher.Pass();
  EXPECT_EQ(1, told.use_count());
}

TEST_F(Publishing, KeepsNothingOfWhoseGoingNoAnnouncementCame) {
  period->SetValue(0);
  EndPeriod();
  Subscribe(client, {{"C", "G", "other"}});
  const auto told = Published("1");
  pending->announcements.AddNew(told);
  publisher.Pass();
  EXPECT_EQ(2, told.use_count());
  const auto other = Published("2");
  for (std::size_t i = 0; i < Announcements::kMostWaiting; ++i)
    pending->announcements.AddVanished(other);
  pending->announcements.AddVanished(told);
  publisher.Pass();
  EXPECT_EQ(1, told.use_count());
}

// Says when it was written to.
class SignallingConnection : public Connection {
 public:
  int Read(void*, int) override { return kFailed; }
  int Write(const void*, int length) override {
    written.Release();
    return length;
  }
  void Close() override {}
  bool IsOpen() const override { return true; }
  platform::Semaphore written;
};

bool WaitForWrite(SignallingConnection& stream) {
  return stream.written.WaitUntil(platform::MonotonicNow() +
                                  10'000 * platform::kTicksPerMillisecond);
}

TEST_F(Publishing, RunsOnItsOwnThreadUntilItIsDestroyed) {
  const auto stream = std::make_shared<SignallingConnection>();
  const std::uint32_t workers = LiveWorkerThreads::Live();
  {
    period->SetValue(0);
    PublishingThread thread(MakeRunning());
    period->SetValue(250);  // read again when the thread starts
    Subscribe(Client(stream));
    thread.Start(249);
    EXPECT_EQ(workers + 1, LiveWorkerThreads::Live());
    pending->PushChange(property);
    EXPECT_TRUE(WaitForWrite(*stream));
    pending->PushChange(property);
    EXPECT_TRUE(WaitForWrite(*stream));
  }
  EXPECT_EQ(workers, LiveWorkerThreads::Live());
}

TEST_F(Publishing, TakesNoLessThanAPeriodForAPeriod) {
  const auto stream = std::make_shared<SignallingConnection>();
  Subscribe(Client(stream));
  period->SetValue(1000);
  PublishingThread thread(MakeRunning());
  pending->PushChange(property);
  const platform::Ticks start = platform::MonotonicNow();
  thread.Start(249);
  EXPECT_TRUE(WaitForWrite(*stream));
  const platform::Ticks taken = platform::MonotonicNow() - start;
  EXPECT_GE(taken, 1000 * platform::kTicksPerMillisecond);
}

// Says when it was written to, and leaves the thread that wrote first without memory.
class StarvingConnection final : public SignallingConnection {
 public:
  int Write(const void* buffer, int length) override {
    if (!std::exchange(starved_, true)) limited = std::make_unique<test::LimitedAllocations>(0);
    return SignallingConnection::Write(buffer, length);
  }

  std::unique_ptr<test::LimitedAllocations> limited;

 private:
  bool starved_ = false;
};

TEST_F(Publishing, RunsOnWhenAPassHasNoMemory) {
  const auto stream = std::make_shared<StarvingConnection>();
  Subscribe(Client(stream), {{"C", "G", "1"}});
  period->SetValue(250);
  PublishingThread thread(MakeRunning());
  pending->announcements.AddVanished(Published("1"));
  thread.Start(249);
  EXPECT_TRUE(WaitForWrite(*stream));
  const auto feeding = WatchedProperty::Make();
  feeding->on_read = [&] { stream->limited.reset(); };
  pending->PushChange(feeding);
  EXPECT_TRUE(WaitForWrite(*stream));
  EXPECT_FALSE(ObservedAll());
}

TEST_F(Publishing, IsDestroyedWithoutWaitingForThePass) {
  const platform::Ticks start = platform::MonotonicNow();
  for (int i = 0; i < 20; ++i) {
    PublishingThread thread(MakeRunning());
    thread.Start(249);
  }
  EXPECT_GT(20 * 250 * platform::kTicksPerMillisecond, platform::MonotonicNow() - start);
}

}  // namespace
}  // namespace valmere
