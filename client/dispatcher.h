// The thread on which a session's callbacks run. Internal to the library.
#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

namespace valmere::client {

// Purpose: runs tasks one after the other, in the order in which they come.
// Owner: a session.
// Threads: Post, Stop and OnOwnThread from any; Join once, not from a task.
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
  // Begins no further task: those that wait are dropped, and so are those that come.
  void Stop();
  // Waits for the task that runs; after Stop.
  void Join();
  bool OnOwnThread() const { return std::this_thread::get_id() == thread_id_; }

 private:
  void Run();

  std::mutex lock_;
  std::condition_variable changed_;
  std::deque<Task> tasks_;  // guarded by lock_
  bool stopped_ = false;    // guarded by lock_
  std::thread thread_;
  const std::thread::id thread_id_;
};

}  // namespace valmere::client
