// The mark of the worker that is running, for the calls of this layer that wait.
#pragma once

#include "platform/thread_mark.h"

namespace valmere::platform {

// Null on a thread that this layer has not started. Every lock asks for it, so it lies where the
// thread's own register leads to; the general way of a loaded library would take a call, and memory
// at the first one in each thread.
[[gnu::tls_model("initial-exec")]] inline constinit thread_local ThreadMark* current_thread_mark =
    nullptr;

// The calling thread's.
class WaitInKernel : public MarkedWait {
 public:
  WaitInKernel() : MarkedWait(current_thread_mark) {}
};

}  // namespace valmere::platform
