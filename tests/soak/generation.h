// All clients at once, from the first that comes to the last that goes.
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <thread>
#include <vector>

#include "tests/soak/clerk.h"
#include "tests/soak/owner.h"
#include "tests/soak/rover.h"
#include "tests/soak/subscriber.h"
#include "tests/soak/world.h"

namespace valmere::test {

// Purpose: changes a property of its own once in each publishing period, as long as it lives, which
// is what tells all others that a period has ended.
// Owner: a Generation.
// Threads: a thread of its own changes; all may be called from any.
class Beacon {
 public:
  explicit Beacon(World& world);
  ~Beacon();
  Beacon(const Beacon&) = delete;
  Beacon& operator=(const Beacon&) = delete;

  // The number that was sent last.
  std::uint64_t sent() const { return sent_; }
  const Subscriber& watcher() const { return *watcher_; }
  // In a flood a change may find no room: the beacon is changed again until it is told of.
  void BeginFlood() { flood_ = true; }
  void EndFlood() { flood_ = false; }

 private:
  void Shine();
  bool AwaitTold();
  void Send();

  World& world_;
  client::Client client_;
  std::atomic<std::uint64_t> sent_{0};
  std::atomic<bool> stop_{false};
  std::atomic<bool> flood_{false};
  std::unique_ptr<Subscriber> watcher_;
  std::thread thread_;  // the last member: it uses the others
};

// Purpose: the clients, and what they do together in rounds, each up to a quiet point at which all
// that they believe is held against what is so.
// Owner: the run. When it goes all of them have gone.
// Threads: one.
class Generation {
 public:
  Generation(World& world, std::uint32_t number, DeviceRoot& device);

  // All of them at once for some seconds, and others that come in the middle of it.
  void Live();
  // More changes than the service can hold.
  void Flood();

 private:
  using Address = PropertyAddress;

  std::vector<Address> SomeAddresses(std::uint32_t count);
  void AddSubscriber(const std::string& name, std::vector<Address> addresses);
  Values Truth() const;
  void ComeToRest();
  // What the service has is what its clients have published.
  void CheckGets();
  void AwaitPeriods(std::uint32_t count);
  void CheckSubscriber(const Subscriber& subscriber, const Values& truth);
  void CheckSubscribers();
  void Check();

  World& world_;
  Dice dice_;
  std::vector<std::unique_ptr<Owner>> owners_;
  std::vector<Owner*> set_owners_;
  std::vector<std::unique_ptr<Setter>> setters_;
  std::vector<std::unique_ptr<Rover>> rovers_;
  std::vector<std::unique_ptr<Stranger>> strangers_;
  Clerk clerk_;
  Beacon beacon_;
  std::vector<std::unique_ptr<Subscriber>> subscribers_;
  std::uint32_t visitors_ = 0;
};

}  // namespace valmere::test
