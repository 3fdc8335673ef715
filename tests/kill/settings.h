// The settings that are put to the test, and what they may be once the service has come back.
#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "client/client.h"
#include "client/deadline.h"
#include "client/property.h"

namespace valmere::test {

inline constexpr std::size_t kZones = 13;
// The service answers within this, however busy the machine is.
inline constexpr std::chrono::seconds kPatience{60};

inline client::Deadline Patience() {
  return client::Deadline::After(kPatience);
}

// The text of a switch.
inline const char* TextOf(bool on) {
  return on ? "True" : "False";
}
// The number that a period's text is; nothing when it is none.
std::optional<std::uint32_t> NumberIn(const std::string& text);

// Purpose: the publishing period, which counts messages, and the thirteen debug zones.
// Owner: the caller.
// Threads: any, once made.
// Errors: std::runtime_error from all that asks the service.
class Settings {
 public:
  // Learns from the service what its debug zones are.
  explicit Settings(client::Client& client);

  // The period first, then the zones.
  const std::vector<client::PropertyAddress>& addresses() const { return addresses_; }
  const client::PropertyAddress& period() const { return addresses_.front(); }
  const client::PropertyAddress& zone(std::size_t number) const { return addresses_[1 + number]; }
  // What stands before the "=" of a setting's line.
  const std::vector<std::string>& left_sides() const { return left_sides_; }

  // Message `number` sets one zone, each in its turn, and then the period to `number`: a
  // client that reads that period knows that this message and all before it have been handled.
  std::vector<client::SetRequest> Message(std::uint32_t number) const;
  static std::size_t ZoneOf(std::uint32_t number) { return number % kZones; }
  // The first zones change often, the last ones seldom.
  static bool ZoneValueOf(std::uint32_t number) { return (number >> ZoneOf(number) & 1) != 0; }

  // The texts of all of them, in the order of the addresses.
  std::vector<std::string> Read(client::Client& client) const;

 private:
  std::vector<client::PropertyAddress> addresses_;
  std::vector<std::string> left_sides_;
};

// Every value that the settings may have; any other was lost or is wrong.
struct Expectation {
  std::optional<std::uint32_t> old_period;  // it may still be the one from before
  std::uint32_t lowest = 1;                 // of the numbers that it may have been set to
  std::uint32_t highest = 0;
  std::array<bool, kZones> may_be_on{};
  std::array<bool, kZones> may_be_off{};
};

// After the messages `first` to `last`, of which those up to `settled` (0 for none) have been
// handled and written for sure; `before` is what the settings were before them.
Expectation AfterMessages(const std::vector<std::string>& before, std::uint32_t first,
                          std::uint32_t settled, std::uint32_t last);

enum class Finding { kThere, kLost, kWrong };

Finding JudgePeriod(const Expectation& expected, const std::string& text);
Finding JudgeZone(const Expectation& expected, std::size_t zone, const std::string& text);

}  // namespace valmere::test
