// By the C library, which the device's kernel has for it too. It can't be told not to wait, but
// what a device writes there goes to a debugger or nowhere.
#include "platform/standard_error.h"

#include <cerrno>
#include <cstdio>

namespace valmere::platform {

Taken OfferToStandardError(std::string_view bytes) noexcept {
  const int before = errno;
  const std::size_t written = std::fwrite(bytes.data(), 1, bytes.size(), stderr);
  const bool out = std::fflush(stderr) == 0;
  errno = before;
  if (written == bytes.size() && out) return Taken::kAll;
  return written == 0 ? Taken::kNothing : Taken::kPart;
}

}  // namespace valmere::platform
