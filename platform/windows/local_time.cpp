// From the kernel: not every C runtime for it knows local times.
#include "platform/local_time.h"

#include "platform/windows/windows_api.h"

namespace valmere::platform {

std::tm LocalNow() noexcept {
  SYSTEMTIME now{};
  GetLocalTime(&now);
  std::tm local{};
  local.tm_year = now.wYear - 1900;
  local.tm_mon = now.wMonth - 1;
  local.tm_mday = now.wDay;
  local.tm_hour = now.wHour;
  local.tm_min = now.wMinute;
  local.tm_sec = now.wSecond;
  local.tm_wday = now.wDayOfWeek;
  return local;
}

}  // namespace valmere::platform
