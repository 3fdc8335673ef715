// A critical section behind a shared handle, for state whose owners come and go.
#pragma once

#include <memory>

#include "platform/kernel.h"

namespace valmere {

using platform::Lock;
using platform::ScopedLock;

using SharedLock = std::shared_ptr<Lock>;

// Made and initialised here, deleted with its last handle. Throws std::bad_alloc.
inline SharedLock MakeSharedLock() {
  return std::make_shared<Lock>();
}

}  // namespace valmere
