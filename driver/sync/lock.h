// The platform's lock, by a name that is at hand everywhere. It is a member of what it guards.
#pragma once

#include "platform/kernel.h"

namespace valmere {

using platform::Lock;
using platform::ScopedLock;

}  // namespace valmere
