// Where the device's tree begins.
#pragma once

#include <string>

namespace valmere::platform {

// A folder's whole path without a separator at its end; empty where the device's tree is the
// system's own. Throws std::bad_alloc.
std::wstring DeviceRoot();

}  // namespace valmere::platform
