// The device's kernel knows the whole scale.
#include "platform/windows/thread_priority.h"

// Declared in the device's own header, which a desktop system lacks.
extern "C" BOOL WINAPI CeSetThreadPriority(HANDLE thread, int priority);

namespace valmere::platform {

void SetPriority(HANDLE thread, int priority) noexcept {
  CeSetThreadPriority(thread, priority);
}

}  // namespace valmere::platform
