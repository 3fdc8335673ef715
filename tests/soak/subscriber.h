// A client that is told of changes, and what it believes by that.
#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "tests/soak/world.h"

namespace valmere::test {

// Purpose: subscribes, reads what stands, and from then on goes by what it is told. The service
// strikes a property that has gone off a subscription by name, so such a one is renewed then.
// Owner: the run.
// Threads: a thread of its own follows; the public calls from any other.
class Subscriber {
 public:
  // To all properties without any address; else the beacon is added to them.
  Subscriber(World& world, std::string name, std::vector<PropertyAddress> addresses);
  // Closes its handles without a goodbye.
  ~Subscriber();
  Subscriber(const Subscriber&) = delete;
  Subscriber& operator=(const Subscriber&) = delete;

  // The number that the beacon was last told with.
  std::uint64_t beacon() const { return beacon_; }
  // How many entries of floods were told.
  std::uint64_t flood_entries() const { return flood_entries_; }
  // What differs between what it believes and `truth`; empty when nothing does.
  std::string DifferenceTo(const Values& truth) const;
  // The number of values that DifferenceTo looks at.
  std::size_t CountOf(const Values& truth) const;
  const std::string& name() const { return name_; }

 private:
  void Follow();
  void Take(const Property& told);
  void TakeValue(const PropertyAddress& address, const std::string& value);
  void ReadAll();
  void Read(const std::vector<PropertyAddress>& addresses);
  void Renew();
  bool Wants(const PropertyAddress& address) const;

  World& world_;
  const std::string name_;
  const std::vector<PropertyAddress> addresses_;
  const std::set<PropertyAddress, ByAddress> wanted_;
  client::Client changes_;
  client::Client requests_;
  std::vector<PropertyAddress> gone_;  // to be subscribed to again
  std::atomic<std::uint64_t> beacon_{0};
  std::atomic<std::uint64_t> flood_entries_{0};
  mutable std::mutex lock_;
  // Guarded by lock_. What was told has the last word: a value that was read is never newer than
  // what is told after it.
  Values told_;
  Values read_;
  std::thread thread_;  // the last member: it uses the others
};

}  // namespace valmere::test
