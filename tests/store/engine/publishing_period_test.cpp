// Periods, the thread that they run on, and its end.
#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <utility>

#include "driver/sync/live_counters.h"
#include "store/engine/change_publisher.h"
#include "store/engine/publishing_thread.h"
#include "store/property/uint_property.h"
#include "tests/store/engine/publishing_fixture.h"
#include "tests/support/allocations.h"

namespace valmere::test {
namespace {

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
    ChangePublisher never(own, short_period, subscribers, pending, reply_memory, observation, log);
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
    if (!std::exchange(starved_, true)) limited = std::make_unique<LimitedAllocations>(0);
    return SignallingConnection::Write(buffer, length);
  }

  std::unique_ptr<LimitedAllocations> limited;

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
}  // namespace valmere::test
