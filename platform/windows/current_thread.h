// The mark of the worker that is running, for the calls of this layer that wait.
#pragma once

#include "platform/thread_mark.h"

namespace valmere::platform {

// Null on a thread that this layer has not started. In a slot of the kernel's: the compiler's own
// thread-local variables are not for libraries that are loaded by a running process, on all of
// these systems.
ThreadMark* CurrentThreadMark() noexcept;
void SetCurrentThreadMark(ThreadMark* mark) noexcept;

// The calling thread's.
class WaitInKernel : public MarkedWait {
 public:
  WaitInKernel() : MarkedWait(CurrentThreadMark()) {}
};

}  // namespace valmere::platform
