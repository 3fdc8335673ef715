// A thread that costs little, for where there is one for each client.
#pragma once

#include <pthread.h>

#include <functional>

namespace valmere::host {

// Purpose: runs a function on a thread with a stack of 64 KiB (a sanitizer's own size under one).
// Owner: the object that waits for it; the destructor joins.
// Threads: one at a time.
// Errors: the constructor throws std::system_error when no thread can be started. What the function
// throws ends the program.
class SmallThread {
 public:
  explicit SmallThread(std::function<void()> body);
  ~SmallThread() { pthread_join(thread_, nullptr); }
  SmallThread(const SmallThread&) = delete;
  SmallThread& operator=(const SmallThread&) = delete;

 private:
  static void* Run(void* self);

  const std::function<void()> body_;
  pthread_t thread_{};
};

}  // namespace valmere::host
