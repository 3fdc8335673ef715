// The service behind the entry points, for a program that is linked with them.
#pragma once

#include "driver/service/service.h"

namespace valmere {

// The service that PRN_Init has built, or null. On the thread that calls PRN_Init and PRN_Deinit,
// and between them.
ValmereService* RunningService();

}  // namespace valmere
