#include "tests/soak/owner.h"

#include <utility>

namespace valmere::test {
namespace {

constexpr std::uint32_t kFloodPasses = 12;

}  // namespace

Owner::Owner(World& world, std::uint32_t number, std::uint32_t properties)
    : world_(world), dice_(world.seed, number), client_(Connect()) {
  std::vector<Property> published;
  for (std::uint32_t i = 0; i < properties; ++i) {
    addresses_.push_back({"Owner " + std::to_string(number), "Group " + std::to_string(i % 3),
                          "P" + std::to_string(i)});
    const std::string value = Numbered(++number_, "first");
    values_[addresses_.back()] = value;
    published.push_back(MakeProperty(addresses_.back(), value));
  }
  if (world_.Sound(client_.Publish(published, Patience()), "an owner publishes"))
    world_.summary.Add(Kind::kPublications, properties);
}

void Owner::Live(const std::atomic<bool>& stop) {
  while (!stop) {
    auto sets =
        client_.ReceiveSets(Deadline::After(std::chrono::milliseconds(20 + dice_.Below(60))));
    if (sets) {
      Apply(*sets);
    } else if (sets.error().kind == client::ErrorKind::kTimeout) {
      const auto changes = SomeChanges();
      world_.budget.Take(static_cast<std::uint32_t>(changes.size()));
      Change(changes);
    } else {
      world_.Sound(sets, "an owner waits for sets");
      return;
    }
  }
}

std::vector<SetRequest> Owner::SomeChanges() {
  std::vector<SetRequest> changes(1 + dice_.Below(8));
  for (SetRequest& change : changes)
    change = {addresses_[dice_.Below(static_cast<std::uint32_t>(addresses_.size()))],
              Numbered(++number_, dice_.Text())};
  return changes;
}

void Owner::Change(const std::vector<SetRequest>& changes) {
  std::vector<Property> published;
  published.reserve(changes.size());
  for (const SetRequest& change : changes) {
    values_[change.address] = change.value;
    published.push_back(MakeProperty(change.address, change.value));
  }
  if (world_.Sound(client_.Publish(published, Patience()), "an owner changes"))
    world_.summary.Add(Kind::kChanges, changes.size());
}

void Owner::Apply(const std::vector<SetRequest>& sets) {
  std::vector<SetRequest> changes;
  for (const SetRequest& set : sets) {
    if (!values_.contains(set.address))
      world_.summary.Fail("a set of another's property came: " + NameOf(set.address));
    CheckOrder(set.value);
    changes.push_back({set.address, Numbered(++number_, set.value)});
  }
  sets_received_ += sets.size();
  world_.summary.Add(Kind::kSetsForwarded, sets.size());
  world_.budget.Take(static_cast<std::uint32_t>(changes.size()));
  Change(changes);
}

void Owner::CheckOrder(const std::string& value) {
  const std::size_t mark = value.find('#');
  const std::string sender = value.substr(0, mark);
  const std::uint64_t number = NumberOf(std::string_view(value).substr(mark + 1));
  std::uint64_t& last = last_set_[sender];
  if (number <= last)
    world_.summary.Fail("set " + value + " came after number " + std::to_string(last));
  last = number;
}

void Owner::TakeAllSets() {
  while (sets_received_ < sets_sent) {
    const auto sets = client_.ReceiveSets(Patience());
    if (!world_.Sound(sets, "sets are missing")) return;
    Apply(*sets);
  }
  if (sets_received_ > sets_sent) world_.summary.Fail("an owner got more sets than were sent");
}

void Owner::Flood() {
  for (std::uint32_t pass = 0; pass < kFloodPasses; ++pass) {
    std::vector<SetRequest> changes;
    for (const PropertyAddress& address : addresses_)
      changes.push_back({address, Numbered(++number_, kFloodText)});
    Change(changes);
    world_.summary.Add(Kind::kFloodChanges, changes.size());
  }
}

void Owner::ChangeEach() {
  for (const PropertyAddress& address : addresses_) {
    world_.budget.Take(1);
    Change({{address, Numbered(++number_, "when it was over")}});
  }
}

void Owner::AddTo(Values& truth) const {
  truth.insert(values_.begin(), values_.end());
}

Setter::Setter(World& world, std::uint32_t number, const std::vector<Owner*>& owners)
    : world_(world),
      dice_(world.seed, number),
      client_(Connect()),
      name_("setter " + std::to_string(number)),
      owners_(owners) {}

void Setter::Live(const std::atomic<bool>& stop) {
  while (!stop) {
    std::vector<SetRequest> sets;
    for (std::uint32_t i = 1 + dice_.Below(5); i > 0; --i) {
      Owner& owner = *owners_[dice_.Below(static_cast<std::uint32_t>(owners_.size()))];
      const auto& addresses = owner.addresses();
      ++owner.sets_sent;
      sets.push_back({addresses[dice_.Below(static_cast<std::uint32_t>(addresses.size()))],
                      name_ + "#" + std::to_string(++sent_) + " " + dice_.Text()});
    }
    if (!world_.Sound(client_.Set(sets, Patience()), "a setter sets")) return;
    world_.summary.Add(Kind::kSets, sets.size());
    dice_.Pause(120);
  }
  // The answer says that all before it has been handled.
  const auto value = client_.Get({&kBeacon, 1}, Patience());
  if (world_.Sound(value, "a setter gets")) world_.summary.Add(Kind::kGets);
}

}  // namespace valmere::test
