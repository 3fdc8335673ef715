// A desktop kernel knows seven levels within a process. They stand for the last eight of the
// device's scale, as its own older call maps them: 248 is the most urgent, 251 the usual one.
#include "platform/windows/thread_priority.h"

#include <algorithm>
#include <array>

namespace valmere::platform {

void SetPriority(HANDLE thread, int priority) noexcept {
  constexpr std::array kLevels = {THREAD_PRIORITY_TIME_CRITICAL, THREAD_PRIORITY_HIGHEST,
                                  THREAD_PRIORITY_ABOVE_NORMAL,  THREAD_PRIORITY_NORMAL,
                                  THREAD_PRIORITY_BELOW_NORMAL,  THREAD_PRIORITY_LOWEST,
                                  THREAD_PRIORITY_LOWEST,        THREAD_PRIORITY_IDLE};
  constexpr int kFirst = 248;
  const int level = std::clamp(priority - kFirst, 0, static_cast<int>(kLevels.size()) - 1);
  SetThreadPriority(thread, kLevels[static_cast<std::size_t>(level)]);
}

}  // namespace valmere::platform
