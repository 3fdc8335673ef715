// A worker: one thread with a priority, ended with its wrapper.
#pragma once

#include <cstdint>
#include <functional>

#include "driver/sync/live_counters.h"
#include "platform/kernel.h"

namespace valmere {

// Purpose: runs one function on a thread of its own.
// Owner: the component whose work it does; never destroyed on the thread that it wraps.
// Threads: Start, End and destruction on the owner's thread.
// Errors: Start returns false when the kernel gives no thread. The function must not throw.
//
// A function that does not return in time is ended by force if it waits in the kernel with no lock
// held, and otherwise left behind: it goes on until it returns, counted among the live workers. So
// it owns all that it touches, by handles of its own; they are given back when it has ended.
class WorkerThread {
 public:
  // How long the end waits for the function to return.
  static constexpr std::uint32_t kEndWaitMilliseconds = 500;

  // Priority 0 to 255, smaller is more urgent.
  WorkerThread(std::function<void()> entry, int priority);
  // As End.
  ~WorkerThread();
  WorkerThread(const WorkerThread&) = delete;
  WorkerThread& operator=(const WorkerThread&) = delete;

  // False when the kernel gives no thread, or when it was started before.
  bool Start();
  // Until it is ended.
  bool started() const { return started_; }

  enum class Ending {
    kReturned,    // the function has returned, or was never started
    kForced,      // ended where it waited; what it owned is given back, its stack's handles are not
    kLeftBehind,  // it runs on, or hangs in the kernel; what it owns stays
  };
  // The owner must have signalled the function to return. After kEndWaitMilliseconds it is ended by
  // force or left behind. The first call returns how.
  Ending End() noexcept { return EndBy(TimeToEnd()); }
  // The same for several that share the time: all are signalled, then each is ended by the
  // deadline.
  static platform::Ticks TimeToEnd();
  Ending EndBy(platform::Ticks deadline) noexcept;

 private:
  struct Body;

  static void Run(void* body);
  Ending EndThread(platform::Ticks deadline) noexcept;

  const int priority_;
  bool started_ = false;
  bool ended_ = false;
  Body* body_;
  platform::Thread thread_;
};

}  // namespace valmere
