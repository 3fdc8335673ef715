#include "tests/soak/generation.h"

#include <utility>

namespace valmere::test {
namespace {

constexpr std::uint32_t kOwners = 3;
constexpr std::uint32_t kPropertiesOfAnOwner = 50;
constexpr std::uint32_t kSetters = 3;
constexpr std::uint32_t kRovers = 3;
constexpr std::uint32_t kPropertiesOfARover = 6;
constexpr std::uint32_t kStrangers = 2;
constexpr std::size_t kMostSubscribers = 9;
// More than the longest publishing period.
constexpr std::chrono::seconds kSurelyTold{2};

bool IsOfClients(const PropertyAddress& address) {
  return address.component != kServiceGuid;
}

}  // namespace

Beacon::Beacon(World& world) : world_(world), client_(Connect()) {
  Send();
  watcher_ = std::make_unique<Subscriber>(world, "the watcher", std::vector<PropertyAddress>());
  thread_ = std::thread([this] { Shine(); });
}

Beacon::~Beacon() {
  stop_ = true;
  thread_.join();
}

void Beacon::Send() {
  const Property beacon = MakeProperty(kBeacon, std::to_string(++sent_));
  world_.Sound(client_.Publish({&beacon, 1}, Patience()), "the beacon is changed");
}

void Beacon::Shine() {
  while (!stop_) {
    Send();
    if (!AwaitTold()) {
      world_.summary.Fail("the beacon is not told of any more");
      world_.budget.End();
      return;
    }
    world_.budget.BeginWindow();
  }
}

// Of the change at hand, or of one that was made since in its place.
bool Beacon::AwaitTold() {
  const std::uint64_t first = sent_;
  Deadline again = Deadline::After(kSurelyTold);
  return Await([&] {
    if (flood_ && again.passed()) {
      Send();
      again = Deadline::After(kSurelyTold);
    }
    return watcher_->beacon() >= first;
  });
}

Generation::Generation(World& world, std::uint32_t number, DeviceRoot& device)
    : world_(world),
      dice_(world.seed, 1000 * number),
      clerk_(world, 1000 * number + 1, device),
      beacon_(world) {
  std::uint32_t next = 1000 * number + 2;
  for (std::uint32_t i = 0; i < kOwners; ++i) {
    owners_.push_back(std::make_unique<Owner>(world, next++, kPropertiesOfAnOwner));
    set_owners_.push_back(owners_.back().get());
  }
  for (std::uint32_t i = 0; i < kSetters; ++i)
    setters_.push_back(std::make_unique<Setter>(world, next++, set_owners_));
  for (std::uint32_t i = 0; i < kRovers; ++i)
    rovers_.push_back(std::make_unique<Rover>(world, next++, kPropertiesOfARover));
  for (std::uint32_t i = 0; i < kStrangers; ++i)
    strangers_.push_back(std::make_unique<Stranger>(world, next++));
  AddSubscriber("to all", {});
  AddSubscriber("to many", SomeAddresses(40));
  AddSubscriber("to the rovers", rovers_.front()->addresses());
}

void Generation::AddSubscriber(const std::string& name, std::vector<Address> addresses) {
  subscribers_.push_back(std::make_unique<Subscriber>(world_, name, std::move(addresses)));
}

std::vector<PropertyAddress> Generation::SomeAddresses(std::uint32_t count) {
  std::vector<Address> some;
  while (some.size() < count) {
    const auto& addresses = dice_.OneIn(2) ? owners_[dice_.Below(kOwners)]->addresses()
                                           : rovers_[dice_.Below(kRovers)]->addresses();
    some.push_back(addresses[dice_.Below(static_cast<std::uint32_t>(addresses.size()))]);
  }
  return some;
}

void Generation::Live() {
  std::atomic<bool> stop{false};
  std::vector<std::thread> threads;
  const auto start = [&](const auto& clients) {
    for (const auto& client : clients)
      threads.emplace_back([&stop, &client] { client->Live(stop); });
  };
  start(owners_);
  start(setters_);
  start(rovers_);
  start(strangers_);
  threads.emplace_back([&] { clerk_.Live(stop); });
  for (std::uint32_t visitors = 2 + dice_.Below(4); visitors > 0; --visitors) {
    dice_.Pause(600);
    const std::string name = "visitor " + std::to_string(++visitors_);
    AddSubscriber(name,
                  dice_.OneIn(4) ? std::vector<Address>() : SomeAddresses(1 + dice_.Below(9)));
  }
  dice_.Pause(1200);
  stop = true;
  for (std::thread& thread : threads)
    thread.join();
  ComeToRest();
  Check();
  clerk_.CheckFiles();
  while (subscribers_.size() > kMostSubscribers)
    subscribers_.erase(subscribers_.begin() + 3 + dice_.Below(4));
}

void Generation::ComeToRest() {
  for (const auto& owner : owners_)
    owner->TakeAllSets();
}

void Generation::Flood() {
  const std::uint64_t told_before = beacon_.watcher().flood_entries();
  beacon_.BeginFlood();
  std::vector<std::thread> threads;
  for (const auto& owner : owners_)
    threads.emplace_back([&owner] { owner->Flood(); });
  for (std::thread& thread : threads)
    thread.join();
  CheckGets();
  AwaitPeriods(2);
  beacon_.EndFlood();
  world_.summary.Add(Kind::kFloodToldOf, beacon_.watcher().flood_entries() - told_before);
  for (const auto& owner : owners_)
    owner->ChangeEach();
  Check();
}

Values Generation::Truth() const {
  Values truth;
  for (const auto& owner : owners_)
    owner->AddTo(truth);
  for (const auto& rover : rovers_)
    rover->AddTo(truth);
  return truth;
}

// Those of a client that has vanished go when the thread of its handle ends.
void Generation::CheckGets() {
  const Values truth = Truth();
  Values got;
  const bool equal = Await([&] {
    got = clerk_.GetAll();
    std::erase_if(got, [](const auto& entry) { return !IsOfClients(entry.first); });
    return got == truth;
  });
  world_.summary.Add(Kind::kValuesChecked, truth.size());
  if (equal) return;
  world_.summary.Fail("the service has " + std::to_string(got.size()) + " published properties, " +
                      std::to_string(truth.size()) + " are published");
  for (const auto& [address, value] : truth) {
    if (got[address] != value)
      world_.summary.Fail(NameOf(address) + " is " + value + ", the service has " + got[address]);
  }
}

// The beacon that is under way may have been sent before the last change.
void Generation::AwaitPeriods(std::uint32_t count) {
  const std::uint64_t target = beacon_.sent() + count;
  for (const auto& subscriber : subscribers_) {
    if (!Await([&] { return subscriber->beacon() >= target; }))
      world_.summary.Fail(subscriber->name() + " is not told of the beacon");
  }
}

void Generation::CheckSubscribers() {
  const Values truth = clerk_.GetAll();
  CheckSubscriber(beacon_.watcher(), truth);
  for (const auto& subscriber : subscribers_)
    CheckSubscriber(*subscriber, truth);
}

void Generation::CheckSubscriber(const Subscriber& subscriber, const Values& truth) {
  std::string difference;
  const bool equal = Await([&] {
    difference = subscriber.DifferenceTo(truth);
    return difference.empty();
  });
  if (!equal) world_.summary.Fail(difference);
  world_.summary.Add(Kind::kValuesChecked, subscriber.CountOf(truth));
}

void Generation::Check() {
  CheckGets();
  AwaitPeriods(2);
  CheckSubscribers();
  world_.summary.Add(Kind::kQuietPoints);
}

}  // namespace valmere::test
