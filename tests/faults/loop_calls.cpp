// The event loop's library; see faults.cpp.
#include <uv.h>

#include "tests/faults/faults.h"

namespace valmere::test {

// NOLINTBEGIN(bugprone-reserved-identifier): the linker's names
extern "C" {

int __real_uv_poll_init(uv_loop_t*, uv_poll_t*, int);
int __wrap_uv_poll_init(uv_loop_t* loop, uv_poll_t* poll, int file) {
  if (Refused(Fault::kLoop)) return UV_ENOSPC;
  return __real_uv_poll_init(loop, poll, file);
}

}  // extern "C"
// NOLINTEND(bugprone-reserved-identifier)

}  // namespace valmere::test
