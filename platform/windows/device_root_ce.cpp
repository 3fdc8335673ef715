// The device's tree is the system's own.
#include "platform/windows/device_root.h"

namespace valmere::platform {

std::wstring DeviceRoot() {
  return {};
}

}  // namespace valmere::platform
