// The wall clock in the device's time zone.
#pragma once

#include <ctime>

namespace valmere::platform {

// The local time now; all fields 0 if the system can't tell it. The day of the year and the field
// for summer time are not set on all systems. Any thread may call.
std::tm LocalNow() noexcept;

}  // namespace valmere::platform
