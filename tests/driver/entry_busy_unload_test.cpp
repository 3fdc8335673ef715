// The end of a service that is at work on the longest messages, and what comes after it. Each
// thread must let go of its message by itself: where one had to be ended by force or was left
// behind, the log says so.
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "platform/kernel.h"
#include "tests/driver/busy_messages.h"
#include "tests/driver/entry_fixture.h"
#include "tests/platform/processor_time.h"
#include "tests/support/test_thread.h"

namespace valmere::test {
namespace {

constexpr platform::Ticks kBusySecond = 1000 * platform::kTicksPerMillisecond;
constexpr platform::Ticks kUnloadGrace = 3 * kBusySecond;
// Far more than the end of any service takes, far less than threads take that are waited for one
// after another.
constexpr platform::Ticks kEndPatience = 5 * kBusySecond;
constexpr int kManyClients = 8;
constexpr const char* kServiceLog = "root/Store/ValmereLog.txt";

const std::vector<BusyMessage>& Messages() {
  static const std::vector<BusyMessage> messages = MakeBusyMessages(VALMERE_BUSY_BYTES);
  return messages;
}

const BusyMessage& Message(std::string_view name) {
  for (const BusyMessage& message : Messages())
    if (message.name == name) return message;
  ADD_FAILURE() << "no message " << name;
  return Messages().front();
}

// Threads that use all that the machine has left.
class Burners {
 public:
  Burners() {
    for (int i = 0; i < kBurners; ++i)
      threads_.emplace_back([this] {
        while (!stop_) {
        }
      });
  }
  ~Burners() { stop_ = true; }

 private:
  static constexpr int kBurners = 4;

  std::atomic<bool> stop_{false};
  std::vector<TestThread> threads_;
};

// Clients of the service that runs: one that has published the empty group and many properties
// more, one that subscribes to all and reads nothing, and those that have each sent a message, as
// often as that is to be sent.
class BusyClients {
 public:
  BusyClients() {
    EXPECT_TRUE(owner_.Send(EmptyGroupText(20)));
    EXPECT_TRUE(owner_.Send(ManyPropertiesText()));
    EXPECT_EQ(owner_.Ask(GetText(kOwnComponent)), OwnComponentText());
    EXPECT_TRUE(subscriber_.Send(R"({"SubscribeAllCurrentAndNewProperties": true})"));
  }

  void Send(const BusyMessage& message) {
    busy_.push_back(std::make_unique<Client>());
    for (int i = 0; i < message.times; ++i)
      EXPECT_TRUE(busy_.back()->Send(message.text));
  }
  void SendByEach(const BusyMessage& message, int clients) {
    for (int i = 0; i < clients; ++i)
      Send(message);
  }
  // Returns when the service is well into them.
  void AwaitWork() const {
    const platform::Ticks start = ProcessorTime();
    EXPECT_TRUE(
        Eventually([&] { return ProcessorTime() - start > 3 * platform::kTicksPerMillisecond; }));
  }

 private:
  Client owner_;
  Client subscriber_;
  std::vector<std::unique_ptr<Client>> busy_;
};

void ExpectService() {
  Client client;
  EXPECT_EQ(client.Ask(GetText(kOwnComponent)), OwnComponentText());
}

class BusyUnloadTest : public ::testing::Test {
 protected:
  BusyUnloadTest() {
    device_.MakeFolder("root/Store");
    EXPECT_EQ(PRN_Init(0), 1u);
  }
  ~BusyUnloadTest() override { EXPECT_EQ(PRN_Deinit(1), 1u); }

  void ExpectCleanUnload() {
    const std::string before = Marker(device_);
    const platform::Ticks start = platform::MonotonicNow();
    EXPECT_EQ(PRN_Deinit(1), 1u);
    EXPECT_LT(platform::MonotonicNow() - start, kUnloadGrace + kEndPatience);
    EXPECT_EQ(Marker(device_), before + kMarkerBytes);
    EXPECT_EQ(PRN_Init(0), 1u);
    ExpectService();
  }
  void ExpectReplacement() {
    const platform::Ticks start = platform::MonotonicNow();
    EXPECT_EQ(PRN_Init(0), 1u);
    EXPECT_LT(platform::MonotonicNow() - start, kEndPatience);
    ExpectService();
  }
  void ExpectNoneEndedByForce() {
    EXPECT_EQ(device_.Get(kServiceLog).find("did not end in time"), std::string::npos)
        << device_.Get(kServiceLog);
  }

 private:
  DeviceRoot device_;
};

class BusyUnloadOfTest : public BusyUnloadTest,
                         public ::testing::WithParamInterface<const char*> {};

TEST_P(BusyUnloadOfTest, IsCleanAndServesAgain) {
  for (const int clients : {1, kManyClients}) {
    SCOPED_TRACE(clients);
    BusyClients busy;
    busy.SendByEach(Message(GetParam()), clients);
    busy.AwaitWork();
    ExpectCleanUnload();
    ExpectNoneEndedByForce();
  }
}

INSTANTIATE_TEST_SUITE_P(BusyUnload, BusyUnloadOfTest,
                         ::testing::Values("gets of a group", "sets of an own property",
                                           "subscriptions", "publications", "gets of all",
                                           "subscriptions to all", "small lists",
                                           "numbers under no key of the service's"));

class BusyMachineTest : public BusyUnloadTest {};

TEST_F(BusyMachineTest, HasACleanUnloadWithEachMessageAtOnce) {
  const Burners burners;
  BusyClients busy;
  for (const BusyMessage& message : Messages())
    busy.Send(message);
  busy.AwaitWork();
  ExpectCleanUnload();
}

class BusyReplacementTest : public BusyUnloadTest {};

TEST_F(BusyReplacementTest, EndsTheOldServiceWhateverItIsAtWorkOn) {
  for (const BusyMessage& message : Messages()) {
    for (const int clients : {1, kManyClients}) {
      SCOPED_TRACE(std::string(message.name) + ", " + std::to_string(clients));
      BusyClients busy;
      busy.SendByEach(message, clients);
      busy.AwaitWork();
      ExpectReplacement();
    }
  }
  ExpectCleanUnload();
  ExpectNoneEndedByForce();
}

}  // namespace
}  // namespace valmere::test
