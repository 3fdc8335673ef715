// The client that has to do with the service's own properties and with its files.
#pragma once

#include <atomic>
#include <string>
#include <vector>

#include "tests/platform/device_root.h"
#include "tests/soak/world.h"

namespace valmere::test {

// Purpose: sets the service's own properties, stores and loads them, and looks at the files. It is
// alone in this, so that what it has set is what it then gets.
// Owner: the run.
// Threads: one at a time.
class Clerk {
 public:
  Clerk(World& world, std::uint32_t number, DeviceRoot& device);

  void Live(const std::atomic<bool>& stop);
  // Stores all, waits until the file has it, and loads it; sometimes with another value for one.
  void CheckFiles();
  // Every property that the service has, except for the beacon.
  Values GetAll();

 private:
  void SetOwn(const PropertyAddress& address, const std::string& value);
  std::string GetOwn(const PropertyAddress& address);
  void SetAndCheck(const PropertyAddress& address, const std::string& value);
  void Command(const PropertyAddress& address, Kind kind);
  bool FileHolds(const PropertyAddress& address, const std::string& value) const;
  void AwaitStored();
  void AwaitLoaded();
  void Override();

  World& world_;
  Dice dice_;
  client::Client client_;
  DeviceRoot& device_;
};

}  // namespace valmere::test
