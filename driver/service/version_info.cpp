// Versions come from the boot image's files and from this build. They are published, listed and
// stored with the others, but neither restored from the property file nor set by clients: what runs
// is what the image says.
#include "driver/service/version_info.h"

#include <string_view>

#include "store/property/general_group.h"
#include "store/property/string_property.h"

namespace valmere {
namespace {

constexpr std::string_view kFirmwareVersion = "1.1.91188";
constexpr std::string_view kFirmwareBuildNumber = "91188";
constexpr std::string_view kSdkVersion = "2.7.90503";
constexpr std::string_view kSdkOsVersion = "Windows Embedded Compact 2013 - 8.3.6250.0";

void Publish(Persistence& persistence, std::string_view name, std::string_view guid,
             std::string_view value) {
  const auto property = StringProperty::Make(value, guid, name, kGeneralGroupGuid, kGeneralGroup);
  property->set_attribute(0);
  persistence.RegisterProperty(property);
}

}  // namespace

void PublishOsVersion(Persistence& persistence, const std::string& version,
                      const std::string& build_number) {
  Publish(persistence, "OS Version", "4D682060-3227-4837-909E-6C71F00FA986", version);
  Publish(persistence, "OS Build Number", "774DBE74-CAB4-4894-9E02-D58D3BEB45E4", build_number);
  Publish(persistence, "Firmware Version", "ACEB1224-1DAF-42A2-BBAA-4678D5D3C8DA",
          kFirmwareVersion);
  Publish(persistence, "Firmware Build Number", "DFB7462A-E1F1-4156-BCFB-A9B878F7FBFF",
          kFirmwareBuildNumber);
  Publish(persistence, "SDK Version", "593A2CCB-2B05-4F92-B018-0AAEFA6BC74D", kSdkVersion);
  Publish(persistence, "SDK OS Version", "FA426F31-23B3-453B-97B5-DA3089F7FDD4", kSdkOsVersion);
}

void PublishQtRuntimeVersion(Persistence& persistence, const std::string& version,
                             const std::string& build_number) {
  Publish(persistence, "Qt Runtime Libs Version", "935E7332-AF38-406E-B881-9F4BC8478788", version);
  Publish(persistence, "Qt Runtime Libs Build Number", "B55FF9F9-8C7D-4B26-8DF5-704C8EBFF2F1",
          build_number);
}

void PublishQtCommonVersion(Persistence& persistence, const std::string& version,
                            const std::string& build_number) {
  Publish(persistence, "Qt Common Modules Version", "F144C4E0-D411-421F-9F87-DA8C9D585361",
          version);
  Publish(persistence, "Qt Common Modules Build Number", "696F8B22-BB63-4B71-8A22-0FE31EAD4639",
          build_number);
}

}  // namespace valmere
