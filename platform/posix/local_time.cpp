// localtime_r, unlike localtime, fills a structure of the caller's.
#include "platform/local_time.h"

#include <time.h>

namespace valmere::platform {

std::tm LocalNow() noexcept {
  std::tm local{};
  const std::time_t now = ::time(nullptr);
  if (::localtime_r(&now, &local) == nullptr) local = std::tm{};
  return local;
}

}  // namespace valmere::platform
