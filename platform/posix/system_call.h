// Calls of the kernel that a signal may break and a file system may hang in.
#pragma once

#include <fcntl.h>
#include <sys/types.h>

#include <cerrno>

#include "platform/posix/current_thread.h"
#include "platform/posix/descriptor.h"

namespace valmere::platform {

// Repeats a call that a signal interrupts. The call may hang with its file system.
template <class Call>
auto Uninterrupted(Call call) {
  const WaitInKernel wait;
  auto result = call();
  while (result < 0 && errno == EINTR)
    result = call();
  return result;
}

inline constexpr mode_t kNewFileMode = 0644;
// The mode bits that a file takes over from the one that it replaces. Set-user-id is not among
// them: what is written must not run with the rights of another user.
inline constexpr mode_t kRights = 0777;

inline Descriptor OpenAt(int folder, const char* name, int flags, mode_t mode = kNewFileMode) {
  return Descriptor(Uninterrupted([&] { return openat(folder, name, flags | O_CLOEXEC, mode); }));
}

}  // namespace valmere::platform
