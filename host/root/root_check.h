// Whether a root can keep what the service stores.
#pragma once

#include <optional>
#include <string>

#include "host/root/root_folder.h"

namespace valmere::host {

// What keeps the service from storing settings in the root, or from doing so as safely as it could,
// with the path and the cause and what it means; nothing when all is well. Found out by trying: a
// new file is written beside the property file, as long as a rewrite of it would be, and removed.
// The driver must not have been started yet.
std::optional<std::string> WhySettingsAreLost(const RootFolder& root);

}  // namespace valmere::host
