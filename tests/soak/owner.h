// A component that stays.
#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "tests/soak/world.h"

namespace valmere::test {

// Purpose: publishes properties, changes them, and takes what others set them to.
// Owner: the run.
// Threads: one at a time; the counter and the addresses, which never change, from any.
class Owner {
 public:
  Owner(World& world, std::uint32_t number, std::uint32_t properties);

  // Changes and is set until `stop`.
  void Live(const std::atomic<bool>& stop);
  // Takes the sets that are still to come.
  void TakeAllSets();
  // More changes at once than the service holds; what is told of them is left to it.
  void Flood();
  // Changes every property once.
  void ChangeEach();
  void AddTo(Values& truth) const;

  const std::vector<PropertyAddress>& addresses() const { return addresses_; }
  // The sets that were sent for this owner, counted by their sender.
  std::atomic<std::uint64_t> sets_sent{0};

 private:
  void Change(const std::vector<SetRequest>& changes);
  void Apply(const std::vector<SetRequest>& sets);
  void CheckOrder(const std::string& value);
  std::vector<SetRequest> SomeChanges();

  World& world_;
  Dice dice_;
  client::Client client_;
  std::vector<PropertyAddress> addresses_;
  Values values_;
  std::uint64_t number_ = 0;
  std::uint64_t sets_received_ = 0;
  std::map<std::string, std::uint64_t> last_set_;  // by their sender
};

// Purpose: sets properties of owners. What it sends is marked with its name and a number that
// grows, so that the owner sees if one is lost, doubled or out of order. Owner: the run. Threads:
// one at a time.
class Setter {
 public:
  Setter(World& world, std::uint32_t number, const std::vector<Owner*>& owners);

  // Sets until `stop`; when it returns, the service has passed every set on.
  void Live(const std::atomic<bool>& stop);

 private:
  World& world_;
  Dice dice_;
  client::Client client_;
  const std::string name_;
  const std::vector<Owner*>& owners_;
  std::uint64_t sent_ = 0;
};

}  // namespace valmere::test
