// What all clients of a run share.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <string_view>
#include <thread>
#include <tuple>
#include <vector>

#include "client/client.h"
#include "tests/soak/change_budget.h"
#include "tests/soak/summary.h"

namespace valmere::test {

using client::Deadline;
using client::Property;
using client::PropertyAddress;
using client::SetRequest;

// Nothing in a sound service takes this long.
inline constexpr std::chrono::seconds kPatience{30};

// Of a message that keeps the service at work, in a build where that takes ten times as long.
inline constexpr std::size_t kLongTextBytes = std::size_t{128} * 1024;

// Looks again and again until `condition` holds; false when that takes too long.
template <class Condition>
bool Await(Condition condition) {
  const Deadline patience = Deadline::After(kPatience);
  while (!condition()) {
    if (patience.passed()) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return true;
}

// Purpose: one client's choices: the same seed and number make the same ones.
// Owner: that client.
// Threads: one at a time.
class Dice {
 public:
  Dice(std::uint32_t seed, std::uint32_t number) : engine_(seed * 7919U + number) {}

  std::uint32_t Below(std::uint32_t end) { return static_cast<std::uint32_t>(engine_() % end); }
  bool OneIn(std::uint32_t times) { return Below(times) == 0; }
  void Pause(std::uint32_t most_milliseconds) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1 + Below(most_milliseconds)));
  }
  // A text for a value, now and then a long one, or one that has to be escaped.
  std::string Text();

 private:
  std::mt19937 engine_;
};

struct ByAddress {
  bool operator()(const PropertyAddress& a, const PropertyAddress& b) const {
    return std::tie(a.component, a.group_guid, a.guid) <
           std::tie(b.component, b.group_guid, b.guid);
  }
};
// Values by property. One without a value is not there.
using Values = std::map<PropertyAddress, std::string, ByAddress>;

inline const PropertyAddress kBeacon{"Beacon", "Beacons", "B"};
inline constexpr char kServiceGuid[] = "955CFDC2-8EA6-478E-A927-7C870022EA03";

// What values end with that are changed faster than the service can tell.
inline constexpr char kFloodText[] = "flood";

// Owners write their values as "17|text": the number grows with each change of the property.
std::string Numbered(std::uint64_t number, std::string_view text);
std::uint64_t NumberOf(std::string_view value);

Property MakeProperty(const PropertyAddress& address, std::string value);
std::string NameOf(const PropertyAddress& address);
// Of a new handle of the service; a client that can't be had ends the run.
client::Client Connect();
client::Deadline Patience();

// Purpose: what the clients of a run share.
// Owner: the run.
// Threads: any.
struct World {
  std::uint32_t seed = 0;
  Summary summary;
  ChangeBudget budget;

  // Counts a failure unless `done` is sound.
  template <class Value>
  bool Sound(const client::Result<Value>& done, const char* what) {
    if (!done) summary.Fail(std::string(what) + ": " + done.error().text);
    return done.ok();
  }
};

}  // namespace valmere::test
