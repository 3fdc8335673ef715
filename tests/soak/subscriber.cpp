#include "tests/soak/subscriber.h"

#include <algorithm>
#include <utility>

namespace valmere::test {
namespace {

// In place of the value of what was told of as gone. No property has this value.
constexpr char kGone[] = "(gone)";

std::vector<PropertyAddress> WithBeacon(std::vector<PropertyAddress> addresses) {
  if (!addresses.empty()) addresses.push_back(kBeacon);
  return addresses;
}

std::string Shortened(const std::string* value) {
  return value != nullptr ? "\"" + value->substr(0, 60) + "\"" : "nothing";
}

const std::string* FindIn(const Values& values, const PropertyAddress& address) {
  const auto place = values.find(address);
  return place != values.end() ? &place->second : nullptr;
}

}  // namespace

Subscriber::Subscriber(World& world, std::string name, std::vector<PropertyAddress> addresses)
    : world_(world),
      name_(std::move(name)),
      addresses_(WithBeacon(std::move(addresses))),
      wanted_(addresses_.begin(), addresses_.end()),
      changes_(Connect()),
      requests_(Connect()) {
  const auto done = addresses_.empty() ? changes_.SubscribeAll(Patience())
                                       : changes_.Subscribe(addresses_, Patience());
  if (!world_.Sound(done, "a client subscribes")) return;
  world_.summary.Add(Kind::kSubscriptions);
  if (addresses_.empty()) {
    ReadAll();
  } else {
    Read(addresses_);
  }
  thread_ = std::thread([this] { Follow(); });
}

Subscriber::~Subscriber() {
  changes_.Interrupt();
  if (thread_.joinable()) thread_.join();
}

void Subscriber::ReadAll() {
  const auto all = requests_.GetAll(Patience());
  if (!world_.Sound(all, "a subscriber gets all")) return;
  world_.summary.Add(Kind::kGets);
  for (const Property& property : *all)
    read_[property.address()] = property.value;
}

void Subscriber::Read(const std::vector<PropertyAddress>& addresses) {
  const auto values = requests_.Get(addresses, Patience());
  if (!world_.Sound(values, "a subscriber gets")) return;
  world_.summary.Add(Kind::kGets);
  const std::lock_guard hold(lock_);
  for (const Property& property : *values) {
    if (property.found()) read_[property.address()] = property.value;
  }
}

void Subscriber::Follow() {
  for (;;) {
    const auto changes = changes_.ReceiveChanges(Deadline::Never());
    if (!changes) {
      if (changes.error().kind != client::ErrorKind::kInterrupted)
        world_.Sound(changes, "a subscriber waits");
      return;
    }
    std::uint64_t beacon = 0;
    for (const Property& told : *changes) {
      if (told.address() == kBeacon) beacon = NumberOf(told.value);
      if (told.value.ends_with(kFloodText)) ++flood_entries_;
      Take(told);
    }
    world_.summary.Add(Kind::kEntriesTold, changes->size());
    if (!gone_.empty()) Renew();
    if (beacon != 0) beacon_ = beacon;
  }
}

void Subscriber::Take(const Property& told) {
  const PropertyAddress address = told.address();
  if (!Wants(address)) {
    world_.summary.Fail(name_ + " was told of " + NameOf(address));
    return;
  }
  const std::lock_guard hold(lock_);
  if (told.found()) {
    TakeValue(address, told.value);
  } else if (addresses_.empty()) {
    told_[address] = kGone;
  } else {
    // Nothing will be told of it until the subscription is renewed.
    told_.erase(address);
    read_.erase(address);
    gone_.push_back(address);
  }
}

// Values are rendered in the order of time, so those of a property that stays never go back.
void Subscriber::TakeValue(const PropertyAddress& address, const std::string& value) {
  std::string& last = told_[address];
  if (address.component.starts_with("Owner") && NumberOf(value) < NumberOf(last))
    world_.summary.Fail(name_ + " was told of " + NameOf(address) + " first " + Shortened(&last) +
                        ", then " + Shortened(&value));
  last = value;
}

void Subscriber::Renew() {
  const std::vector<PropertyAddress> gone = std::exchange(gone_, {});
  if (!world_.Sound(changes_.Subscribe(gone, Patience()), "a subscription is renewed")) return;
  world_.summary.Add(Kind::kBroughtBack, gone.size());
  Read(gone);
}

bool Subscriber::Wants(const PropertyAddress& address) const {
  return addresses_.empty() || wanted_.contains(address);
}

std::string Subscriber::DifferenceTo(const Values& truth) const {
  const std::lock_guard hold(lock_);
  Values believed = read_;
  for (const auto& [address, value] : told_) {
    if (value == kGone) {
      believed.erase(address);
    } else {
      believed[address] = value;
    }
  }
  believed.erase(kBeacon);
  for (const auto& [address, value] : truth) {
    if (!Wants(address)) continue;
    const std::string* const belief = FindIn(believed, address);
    if (belief == nullptr || *belief != value)
      return name_ + " believes " + Shortened(belief) + " of " + NameOf(address) + ", which is " +
             Shortened(&value) + "; told " + Shortened(FindIn(told_, address)) + ", read " +
             Shortened(FindIn(read_, address));
  }
  for (const auto& [address, value] : believed) {
    if (!truth.contains(address))
      return name_ + " believes " + Shortened(&value) + " of " + NameOf(address) +
             ", which is gone; told " + Shortened(FindIn(told_, address)) + ", read " +
             Shortened(FindIn(read_, address));
  }
  return "";
}

std::size_t Subscriber::CountOf(const Values& truth) const {
  return static_cast<std::size_t>(std::count_if(
      truth.begin(), truth.end(), [&](const auto& entry) { return Wants(entry.first); }));
}

}  // namespace valmere::test
