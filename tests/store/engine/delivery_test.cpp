// Which subscriber gets what, and what becomes of one that can't be written to.
#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <new>
#include <utility>
#include <vector>

#include "store/engine/change_publisher.h"
#include "store/engine/observation.h"
#include "store/engine/update_entries.h"
#include "tests/store/engine/publishing_fixture.h"
#include "tests/support/allocations.h"
#include "tests/support/frames.h"

namespace valmere::test {
namespace {

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

TEST_F(Publishing, GivesAllSubscribersToAllTheSameBytes) {
  std::vector<Client> clients(3);
  for (const Client& each : clients)
    Subscribe(each);
  pending->PushChange(Own("1"));
  pending->PushChange(Published("2"));
  EndPeriod();
  const Texts frames = clients[0].stream->writes();
  ASSERT_EQ(1u, frames.size());
  EXPECT_EQ(FrameOf(Responses({OwnEntry("1"), {.guid = "2"}})), frames[0]);
  for (const Client& each : clients)
    EXPECT_EQ(frames, each.stream->writes());
}

TEST_F(Publishing, SharesOneFrameWithAllThatGetTheSame) {
  std::vector<Client> to_all(2), named(2);
  for (const Client& each : to_all)
    Subscribe(each);
  for (const Client& each : named)
    Subscribe(each, {{"OWN", "G", "1"}});
  std::vector<SharedFrame> frames;
  for (int period_number = 0; period_number < 2; ++period_number) {
    pending->PushChange(Own("1"));
    pending->PushChange(Published("2"));
    for (std::vector<Client>* clients : {&to_all, &named}) {
      for (const Client& each : *clients)
        each.stream->KeepFrames();
    }
    EndPeriod();
    for (std::vector<Client>* clients : {&to_all, &named}) {
      frames.push_back(clients->at(0).stream->TakeFrames().at(0));
      EXPECT_EQ(frames.back(), clients->at(1).stream->TakeFrames().at(0));
    }
  }
  EXPECT_EQ(*frames[0], *frames[2]);
  EXPECT_NE(frames[0]->data(), frames[2]->data()) << "the first is held still";
  EXPECT_NE(frames[1]->data(), frames[3]->data());
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

TEST_F(Publishing, TakesTheKeyOfAVanishedPropertyFromItsSubscribers) {
  Subscribe(client, {{"C", "G", "1"}, {"C", "G", "2"}});
  pending->announcements.AddVanished(Published("1"));
  EndPeriod();
  EXPECT_EQ((Texts{Responses({{.guid = "1", .status = kGone}})}), client.TakeTexts());
  EXPECT_EQ((UpdateEntries::Keys{"C:G:2"}), RegisteredKeys(client));
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
    next_ = std::make_unique<AtTheNextAllocation>(probe_);
    return length;
  }
  void Close() override {}
  bool IsOpen() const override { return true; }

 private:
  const std::function<void()> probe_;
  std::unique_ptr<AtTheNextAllocation> next_;
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
      const LimitedAllocations limited(granted);
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
  ChangePublisher left_behind(own, period, subscribers, pending, reply_memory, gone, log);
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

}  // namespace
}  // namespace valmere::test
