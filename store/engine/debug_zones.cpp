// The switches are process-wide and outlive the properties; a property's listener holds nothing but
// the number of its switch.
#include "store/engine/debug_zones.h"

#include <atomic>
#include <iterator>
#include <string_view>

#include "persist/log/debug_switches.h"
#include "store/property/bool_property.h"

namespace valmere {
namespace {

constexpr std::string_view kGroup = "Debug Zone";
constexpr std::string_view kGroupGuid = "E96B0063-C2EF-4545-92E1-AC4990BA1B37";

struct Zone {
  DebugZone zone;
  std::string_view name;
  std::string_view guid;
};

constexpr Zone kZones[] = {
    {DebugZone::kError, "Enable Error Debug Zone", "7768EEBB-FFC6-400A-986E-9FBE409FCB86"},
    {DebugZone::kWarning, "Enable Warning Debug Zone", "22EB0B47-601A-45AB-A506-E379E2C8833F"},
    {DebugZone::kInfo, "Enable Info Debug Zone", "8D6BC3E1-3943-4E0D-97E7-601690F93C1E"},
    {DebugZone::kProperty, "Debug Zone Property", "B1D20790-2816-438F-ABFA-A72D9FEA1964"},
    {DebugZone::kDeInit, "Debug Zone DeInit", "2C356A8C-215F-4AE5-9604-1198D7C563C9"},
    {DebugZone::kPicl, "Debug Zone PICL", "E61A6BE6-42F5-4EF9-84F0-3030263CCE3F"},
    {DebugZone::kSqaMonitor, "Debug Zone SQA Monitor", "6A7D44F9-B3BD-4029-A6DF-1240647D2758"},
    {DebugZone::kRamp, "DebugZoneRamp", "1ACE8409-C525-41D7-89F7-023AD44BBA72"},
    {DebugZone::kInit, "DebugZoneInit", "48EB170C-B730-4B60-851C-0ACF68AB5A59"},
    {DebugZone::kManufacturing, "Debug Zone Manufacturing", "3CB08E5C-CCE4-4019-AD59-64C4975E7B0D"},
    {DebugZone::kLeakTracking, "LeakTracking", "33DA4993-F121-42F3-A92F-A9B6CE41C45B"},
    {DebugZone::kThreadIds, "ThreadIds", "93840CDA-7763-4E68-A89B-9FE743520DA2"},
    {DebugZone::kBpl, "DebugZoneBpl", "187820B9-D046-4CC0-8E5C-00A0FA5CB411"},
};
static_assert(std::size(kZones) == static_cast<std::size_t>(DebugZone::kCount));

// Of two changes at once, the one that stores last looks again whether it stored the newer one.
void Follow(const BoolProperty& property, std::atomic<bool>& zone_switch) {
  bool value;
  do {
    value = property.GetValue();
    zone_switch.store(value);
  } while (property.GetValue() != value);
}

void Publish(const Zone& zone, Persistence& persistence) {
  std::atomic<bool>& zone_switch = SwitchOf(zone.zone);
  const auto property =
      BoolProperty::Make(zone_switch.load(), zone.guid, zone.name, kGroupGuid, kGroup);
  property->AddListener([&zone_switch](const std::shared_ptr<Property>& changed) {
    Follow(static_cast<const BoolProperty&>(*changed), zone_switch);
  });
  persistence.RegisterProperty(property);
  Follow(*property, zone_switch);
}

}  // namespace

void PublishDebugZones(Persistence& persistence) {
  for (const Zone& zone : kZones)
    Publish(zone, persistence);
}

}  // namespace valmere
