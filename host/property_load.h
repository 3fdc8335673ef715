// The operator's wish that the property file be read again.
#pragma once

#include "host/driver_library.h"

namespace valmere::host {

// Sets the service's property "Load Properties" through a handle of its own. Returns before the
// file has been read; what comes of it is in the service's own log. Tells standard error when the
// driver refuses.
void LoadProperties(const DriverLibrary& driver) noexcept;

}  // namespace valmere::host
