// The C runtime's localtime has a buffer for each thread, so it can be called from any.
#include "platform/local_time.h"

#include <time.h>

namespace valmere::platform {

std::tm LocalNow() noexcept {
  const __time64_t now = _time64(nullptr);
  const std::tm* const local = _localtime64(&now);
  return local != nullptr ? *local : std::tm{};
}

}  // namespace valmere::platform
