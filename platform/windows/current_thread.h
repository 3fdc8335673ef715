// The mark of the worker that is running, for the calls of this layer that wait.
#pragma once

#include "platform/thread_mark.h"

namespace valmere::platform {

// Null on a thread that is none of ours. In a slot of the kernel's: the compiler's own thread-local
// variables are not for libraries that are loaded by a running process, on all of these systems.
ThreadMark* CurrentThreadMark() noexcept;
void SetCurrentThreadMark(ThreadMark* mark) noexcept;

// Purpose: holds the place at which a worker may be ended by force: one call of the kernel that may
//   wait. Nothing that allocates or takes a lock belongs into its scope.
// Owner, threads: the calling thread, for the length of the call.
// Errors: none. A thread that was ended meanwhile does not come out of it.
class WaitInKernel {
 public:
  WaitInKernel() : mark_(CurrentThreadMark()) {
    if (mark_ != nullptr && !mark_->BeginWait()) mark_ = nullptr;
  }
  ~WaitInKernel() {
    if (mark_ != nullptr && !mark_->EndWait()) StayForEver();
  }
  WaitInKernel(const WaitInKernel&) = delete;
  WaitInKernel& operator=(const WaitInKernel&) = delete;

 private:
  // Who ends it is about to.
  [[noreturn]] static void StayForEver();

  ThreadMark* mark_;
};

}  // namespace valmere::platform
