// The mark of the worker that is running, for the calls of this layer that wait.
#pragma once

#include "platform/thread_mark.h"

namespace valmere::platform {

// Null on a thread that is none of ours. Every lock asks for it, so it lies where the thread's own
// register leads to; the general way of a loaded library would take a call, and memory at the first
// one in each thread.
[[gnu::tls_model("initial-exec")]] inline constinit thread_local ThreadMark* current_thread_mark =
    nullptr;

// Purpose: holds the place at which a worker may be ended by force: one call of the kernel that may
//   wait. Nothing that allocates or takes a lock belongs into its scope.
// Owner, threads: the calling thread, for the length of the call.
// Errors: none. A thread that was ended meanwhile does not come out of it.
class WaitInKernel {
 public:
  WaitInKernel() : mark_(current_thread_mark) {
    if (mark_ != nullptr && !mark_->BeginWait()) mark_ = nullptr;
  }
  ~WaitInKernel() {
    if (mark_ != nullptr && !mark_->EndWait()) StayForEver();
  }
  WaitInKernel(const WaitInKernel&) = delete;
  WaitInKernel& operator=(const WaitInKernel&) = delete;

 private:
  // The signal that ends it is on its way.
  [[noreturn]] static void StayForEver();

  ThreadMark* mark_;
};

}  // namespace valmere::platform
