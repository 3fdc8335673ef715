// A worker: one thread with a priority, ended with its wrapper.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>

#include "driver/sync/live_counters.h"
#include "platform/kernel.h"

namespace valmere {

// Purpose: runs one function on a thread of its own.
// Owner: the component whose work it does; never destroyed on the thread that it wraps.
// Threads: Start and destruction on the owner's thread.
// Errors: Start returns false when the kernel gives no thread. The function must not throw.
class WorkerThread {
 public:
  // How long the destructor waits for the function to return before it ends the thread by force.
  static constexpr std::uint32_t kEndWaitMilliseconds = 500;

  // Priority 0 to 255, smaller is more urgent.
  WorkerThread(std::function<void()> entry, int priority);
  // The owner must have told the function to return; after kEndWaitMilliseconds it is ended where
  // it stands.
  ~WorkerThread();
  WorkerThread(const WorkerThread&) = delete;
  WorkerThread& operator=(const WorkerThread&) = delete;

  // False when there is no thread to be had, or when it was started before.
  bool Start();
  bool started() const { return started_; }
  int priority() const { return priority_; }

 private:
  static void Run(void* self);

  LiveWorkerThreads live_;
  const std::function<void()> entry_;
  const int priority_;
  bool started_ = false;
  std::atomic<std::uint32_t> thread_id_{0};  // of the running thread; 0 before it runs
  platform::Thread thread_;
};

}  // namespace valmere
