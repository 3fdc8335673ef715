// The thread on which a session's callbacks run. Internal to the library.
#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <thread>
#include <vector>

#include "client/mutex.h"

namespace valmere::client {

// Purpose: runs tasks one after the other, in the order in which they come.
// Owner: a session.
// Threads: any; but Join by one at a time, and not from a task.
// Errors: the constructor throws std::system_error when no thread can be started. A task must not
// throw.
class Dispatcher {
 public:
  using Task = std::function<void()>;

  Dispatcher();
  ~Dispatcher();
  Dispatcher(const Dispatcher&) = delete;
  Dispatcher& operator=(const Dispatcher&) = delete;

  void Post(Task task);
  // Keeps a task back until PostHeldBack posts it behind those that came meanwhile, or DropHeldBack
  // drops it.
  void HoldBack(Task task);
  void PostHeldBack();
  void DropHeldBack();
  // Begins no further task: those that were posted are dropped, and so are those that come.
  void Stop();
  // Waits for the task that runs; after Stop.
  void Join();
  bool OnOwnThread() const { return std::this_thread::get_id() == thread_id_; }

 private:
  void Run();

  Mutex lock_;
  std::condition_variable changed_;
  std::deque<Task> tasks_ GUARDED_BY(lock_);
  std::vector<Task> held_back_ GUARDED_BY(lock_);
  bool stopped_ GUARDED_BY(lock_) = false;
  std::thread thread_;
  const std::thread::id thread_id_;
};

}  // namespace valmere::client
