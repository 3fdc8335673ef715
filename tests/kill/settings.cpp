#include "tests/kill/settings.h"

#include <algorithm>
#include <charconv>
#include <stdexcept>

namespace valmere::test {
namespace {

constexpr char kComponent[] = "955CFDC2-8EA6-478E-A927-7C870022EA03";
constexpr char kZoneGroup[] = "E96B0063-C2EF-4545-92E1-AC4990BA1B37";
const client::PropertyAddress kPeriod = {kComponent, "99A61D40-20CE-41EA-A579-EB92C6ED94C6",
                                         "DA821DC5-948D-4659-9B52-177E4C102129"};

std::string LeftSideOf(const client::Property& property) {
  return property.group_guid + ":" + property.guid + "|" + property.group_name + ":" +
         property.name;
}

}  // namespace

std::optional<std::uint32_t> NumberIn(const std::string& text) {
  std::uint32_t number = 0;
  const char* const end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data(), end, number);
  if (error != std::errc() || rest != end) return std::nullopt;
  return number;
}

Settings::Settings(client::Client& client) {
  const auto period = client.Get({&kPeriod, 1}, Patience());
  const auto zones = client.GetGroup(kZoneGroup, Patience());
  if (!period || !zones || zones->size() != kZones)
    throw std::runtime_error("the service does not tell its settings");
  addresses_.push_back(kPeriod);
  left_sides_.push_back(LeftSideOf(period->front()));
  for (const client::Property& zone : *zones) {
    addresses_.push_back(zone.address());
    left_sides_.push_back(LeftSideOf(zone));
  }
}

std::vector<client::SetRequest> Settings::Message(std::uint32_t number) const {
  return {{zone(ZoneOf(number)), TextOf(ZoneValueOf(number))}, {period(), std::to_string(number)}};
}

std::vector<std::string> Settings::Read(client::Client& client) const {
  const auto answers = client.Get(addresses_, Patience());
  if (!answers) throw std::runtime_error("cannot read the settings: " + answers.error().text);
  std::vector<std::string> texts;
  for (const client::Property& answer : *answers) {
    texts.push_back(answer.value);
  }
  return texts;
}

Expectation AfterMessages(const std::vector<std::string>& before, std::uint32_t first,
                          std::uint32_t settled, std::uint32_t last) {
  Expectation expected;
  if (settled == 0) expected.old_period = NumberIn(before.front());
  expected.lowest = std::max(first, settled);
  expected.highest = last;
  for (std::size_t zone = 0; zone < kZones; ++zone) {
    expected.may_be_on[zone] = before[1 + zone] == TextOf(true);
    expected.may_be_off[zone] = !expected.may_be_on[zone];
  }
  for (std::uint32_t number = first; number <= last; ++number) {
    const std::size_t zone = Settings::ZoneOf(number);
    const bool on = Settings::ZoneValueOf(number);
    if (number <= settled) expected.may_be_on[zone] = expected.may_be_off[zone] = false;
    (on ? expected.may_be_on : expected.may_be_off)[zone] = true;
  }
  return expected;
}

Finding JudgePeriod(const Expectation& expected, const std::string& text) {
  const std::optional<std::uint32_t> number = NumberIn(text);
  if (!number) return Finding::kWrong;
  if (expected.old_period == number) return Finding::kThere;
  if (*number > expected.highest) return Finding::kWrong;
  return *number < expected.lowest ? Finding::kLost : Finding::kThere;
}

Finding JudgeZone(const Expectation& expected, std::size_t zone, const std::string& text) {
  if (text == TextOf(true)) return expected.may_be_on[zone] ? Finding::kThere : Finding::kLost;
  if (text == TextOf(false)) return expected.may_be_off[zone] ? Finding::kThere : Finding::kLost;
  return Finding::kWrong;
}

}  // namespace valmere::test
