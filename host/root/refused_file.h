// A property file that the service will not take.
#pragma once

#include "host/root/root_folder.h"

namespace valmere::host {

// Reads the property file as the service is about to. One that is refused is copied beside itself,
// as "ValmereProperties.ini.refused", before a change rewrites it; this replaces an earlier copy.
// What was found and done is reported on standard error; nothing that fails stops the start.
// VALMERE_ROOT names the root already, and the driver has not been started yet.
void KeepRefusedFile(const RootFolder& root) noexcept;

}  // namespace valmere::host
