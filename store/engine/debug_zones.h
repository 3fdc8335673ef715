// The debug-zone switches as properties.
#pragma once

#include "persist/settings/persistence.h"

namespace valmere {

// Registers a property for each of the thirteen switches: it starts with the switch's value, takes
// what the property file has for it, and every change of it reaches the switch at once.
void PublishDebugZones(Persistence& persistence);

}  // namespace valmere
