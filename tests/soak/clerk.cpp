#include "tests/soak/clerk.h"

#include <array>
#include <optional>

namespace valmere::test {
namespace {

constexpr char kGeneral[] = "99A61D40-20CE-41EA-A579-EB92C6ED94C6";
constexpr char kZones[] = "E96B0063-C2EF-4545-92E1-AC4990BA1B37";

const PropertyAddress kPeriod{kServiceGuid, kGeneral, "DA821DC5-948D-4659-9B52-177E4C102129"};
const PropertyAddress kLoad{kServiceGuid, kGeneral, "0D9B0F83-2282-4728-A78E-FE2FF4E3A13C"};
const PropertyAddress kStore{kServiceGuid, kGeneral, "DDF2926A-0A65-4196-88FE-5858BC957E0B"};
const PropertyAddress kLoadingError{kServiceGuid, "2EBF9DEF-D51C-47FE-935E-5EDCC530B867",
                                    "A32AFFED-7C37-47FE-80DB-B21875E226BD"};
// Switches that make the log no longer.
const std::array<PropertyAddress, 4> kSwitches = {{
    {kServiceGuid, kZones, "E61A6BE6-42F5-4EF9-84F0-3030263CCE3F"},
    {kServiceGuid, kZones, "6A7D44F9-B3BD-4029-A6DF-1240647D2758"},
    {kServiceGuid, kZones, "1ACE8409-C525-41D7-89F7-023AD44BBA72"},
    {kServiceGuid, kZones, "187820B9-D046-4CC0-8E5C-00A0FA5CB411"},
}};

constexpr char kMainFile[] = "root/Store/ValmereProperties.ini";
constexpr char kOverrideFile[] = "root/Store/ValmerePropertiesOverride.ini";

// The two bytes behind a file's lines, written anew from the format's description.
std::string TrailerOf(std::string_view body) {
  std::uint32_t crc = 0;
  for (const char c : body) {
    crc ^= static_cast<unsigned char>(c);
    for (int bit = 0; bit < 8; ++bit)
      crc = (crc & 1) != 0 ? crc >> 1 ^ 0xA001U : crc >> 1;
  }
  crc = ~crc & 0xFFFFU;
  return {static_cast<char>(crc & 0xFFU), static_cast<char>(crc >> 8)};
}

// The lines of a file; nothing when its end does not fit them.
std::optional<std::string> BodyOf(std::string file) {
  if (file.size() < 2) return std::nullopt;
  const std::string trailer = file.substr(file.size() - 2);
  file.resize(file.size() - 2);
  if (trailer != TrailerOf(file)) return std::nullopt;
  return file;
}

std::string KeyOf(const PropertyAddress& address) {
  return address.group_guid + ":" + address.guid + "|";
}

}  // namespace

Clerk::Clerk(World& world, std::uint32_t number, DeviceRoot& device)
    : world_(world), dice_(world.seed, number), client_(Connect()), device_(device) {}

void Clerk::Live(const std::atomic<bool>& stop) {
  while (!stop) {
    switch (dice_.Below(8)) {
      case 0:
        SetAndCheck(kPeriod, std::array{"250", "500", "750"}.at(dice_.Below(3)));
        break;
      case 1:
        Command(kStore, Kind::kStores);
        break;
      case 2:
        Command(kLoad, Kind::kLoads);
        break;
      default:
        SetAndCheck(kSwitches.at(dice_.Below(4)), dice_.OneIn(2) ? "True" : "False");
        break;
    }
    dice_.Pause(300);
  }
}

void Clerk::SetOwn(const PropertyAddress& address, const std::string& value) {
  const SetRequest set{address, value};
  world_.Sound(client_.Set({&set, 1}, Patience()), "the clerk sets");
}

std::string Clerk::GetOwn(const PropertyAddress& address) {
  const auto values = client_.Get({&address, 1}, Patience());
  if (!world_.Sound(values, "the clerk gets")) return "";
  world_.summary.Add(Kind::kGets);
  return values->front().value;
}

void Clerk::SetAndCheck(const PropertyAddress& address, const std::string& value) {
  world_.budget.Take(1);
  SetOwn(address, value);
  world_.summary.Add(Kind::kOwnSets);
  const std::string got = GetOwn(address);
  if (got != value) world_.summary.Fail(NameOf(address) + " was set to " + value + ", is " + got);
}

// A load may change all that the file has.
void Clerk::Command(const PropertyAddress& address, Kind kind) {
  world_.budget.Take(10);
  SetOwn(address, "True");
  world_.summary.Add(kind);
}

Values Clerk::GetAll() {
  Values values;
  const auto all = client_.GetAll(Patience());
  if (!world_.Sound(all, "the clerk gets all")) return values;
  world_.summary.Add(Kind::kGets);
  for (const Property& property : *all)
    values[property.address()] = property.value;
  values.erase(kBeacon);
  return values;
}

bool Clerk::FileHolds(const PropertyAddress& address, const std::string& value) const {
  const auto body = BodyOf(device_.Get(kMainFile));
  if (!body) return false;
  const std::size_t line = body->find(KeyOf(address));
  if (line == std::string::npos) return false;
  const std::string text = body->substr(line, body->find('\n', line) - line);
  return text.ends_with("=" + value);
}

void Clerk::AwaitStored() {
  std::array<std::string, 4> values;
  for (std::size_t i = 0; i < values.size(); ++i)
    values.at(i) = GetOwn(kSwitches.at(i));
  const std::string period = GetOwn(kPeriod);
  const bool stored = Await([&] {
    bool all = FileHolds(kPeriod, period);
    for (std::size_t i = 0; i < values.size(); ++i)
      all = all && FileHolds(kSwitches.at(i), values.at(i));
    return all;
  });
  if (!stored) world_.summary.Fail("the property file does not have what was stored");
}

void Clerk::CheckFiles() {
  Command(kStore, Kind::kStores);
  AwaitStored();
  if (dice_.OneIn(2)) {
    Override();
  } else {
    AwaitLoaded();
  }
}

void Clerk::AwaitLoaded() {
  const bool loaded = Await([&] {
    Command(kLoad, Kind::kLoads);
    return GetOwn(kLoadingError) == "False";
  });
  if (!loaded) world_.summary.Fail("the property file does not load");
}

// A load in the middle of a rewrite is refused, and leaves the override file to the next one.
void Clerk::Override() {
  const PropertyAddress& address = kSwitches.at(dice_.Below(4));
  const std::string value = GetOwn(address) == "True" ? "False" : "True";
  const std::string body = KeyOf(address) + "Debug Zone:a name of its own=" + value + "\n";
  device_.Put(kOverrideFile, body + TrailerOf(body));
  const bool merged = Await([&] {
    Command(kLoad, Kind::kLoads);
    return GetOwn(address) == value;
  });
  if (!merged || device_.Has(kOverrideFile)) world_.summary.Fail("an override was not merged");
  world_.summary.Add(Kind::kOverrides);
}

}  // namespace valmere::test
