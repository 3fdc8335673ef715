// Calls of the kernel that a signal may break and a file system may hang in.
#pragma once

#include <fcntl.h>
#include <sys/types.h>

#include <cerrno>

#include "platform/posix/current_thread.h"
#include "platform/posix/descriptor.h"

namespace valmere::platform {

// Asks again for as long as a signal breaks the call, which may hang with the file system that it
// goes to.
template <class Call>
auto Uninterrupted(Call call) {
  const WaitInKernel wait;
  auto result = call();
  while (result < 0 && errno == EINTR)
    result = call();
  return result;
}

inline constexpr mode_t kNewFileMode = 0644;
// Of a file that takes another's place; what is written runs with nobody's rights.
inline constexpr mode_t kRights = 0777;

inline Descriptor OpenAt(int folder, const char* name, int flags, mode_t mode = kNewFileMode) {
  return Descriptor(Uninterrupted([&] { return openat(folder, name, flags | O_CLOEXEC, mode); }));
}

}  // namespace valmere::platform
