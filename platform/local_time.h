// The wall clock in the device's time zone.
#pragma once

#include <ctime>

namespace valmere::platform {

// The present local time; all fields 0 if the system can't tell it. The day of the year and whether
// summer time holds are not for use: some systems don't tell. Any thread may call.
std::tm LocalNow() noexcept;

}  // namespace valmere::platform
