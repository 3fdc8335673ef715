// The one call about threads in which the device's kernel and a desktop kernel differ.
#pragma once

#include "platform/windows/windows_api.h"

namespace valmere::platform {

// Priority 0 to 255, smaller is more urgent. A failure leaves the thread as it is.
void SetPriority(HANDLE thread, int priority) noexcept;

}  // namespace valmere::platform
