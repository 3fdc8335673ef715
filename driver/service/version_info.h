// What tells other components which software the device runs.
#pragma once

#include <string>

#include "persist/settings/persistence.h"

namespace valmere {

// By the thread that starts the service; std::bad_alloc.
//
// Each registers read-only text properties of the group "General": the operating system's version
// and the constants of this build; the Qt runtime libraries'; the Qt common modules'.
void PublishOsVersion(Persistence& persistence, const std::string& version,
                      const std::string& build_number);
void PublishQtRuntimeVersion(Persistence& persistence, const std::string& version,
                             const std::string& build_number);
void PublishQtCommonVersion(Persistence& persistence, const std::string& version,
                            const std::string& build_number);

}  // namespace valmere
