// A queue and a thread.
#include "client/dispatcher.h"

#include <utility>

namespace valmere::client {

Dispatcher::Dispatcher() : thread_([this] { Run(); }), thread_id_(thread_.get_id()) {}

Dispatcher::~Dispatcher() {
  Stop();
  Join();
}

void Dispatcher::Post(Task task) {
  {
    const std::lock_guard hold(lock_);
    if (stopped_) return;
    tasks_.push_back(std::move(task));
  }
  changed_.notify_one();
}

void Dispatcher::Stop() {
  std::deque<Task> dropped;
  {
    const std::lock_guard hold(lock_);
    stopped_ = true;
    dropped.swap(tasks_);
  }
  changed_.notify_one();
}

void Dispatcher::Join() {
  if (thread_.joinable()) thread_.join();
}

void Dispatcher::Run() {
  for (;;) {
    Task task;
    {
      std::unique_lock hold(lock_);
      changed_.wait(hold, [this] { return stopped_ || !tasks_.empty(); });
      if (stopped_) return;
      task = std::move(tasks_.front());
      tasks_.pop_front();
    }
    task();
  }
}

}  // namespace valmere::client
