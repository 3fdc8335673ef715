// A queue and a thread.
#include "client/dispatcher.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace valmere::client {

Dispatcher::Dispatcher() : thread_([this] { Run(); }), thread_id_(thread_.get_id()) {}

Dispatcher::~Dispatcher() {
  Stop();
  Join();
}

void Dispatcher::Post(Task task) {
  {
    const MutexLock hold(lock_);
    if (stopped_) return;
    tasks_.push_back(std::move(task));
  }
  changed_.notify_one();
}

void Dispatcher::HoldBack(Task task) {
  const MutexLock hold(lock_);
  held_back_.push_back(std::move(task));
}

void Dispatcher::PostHeldBack() {
  {
    const MutexLock hold(lock_);
    if (!stopped_) std::ranges::move(held_back_, std::back_inserter(tasks_));
    held_back_.clear();
  }
  changed_.notify_one();
}

void Dispatcher::DropHeldBack() {
  const MutexLock hold(lock_);
  held_back_.clear();
}

void Dispatcher::Stop() {
  std::deque<Task> dropped;
  {
    const MutexLock hold(lock_);
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
      MutexLock hold(lock_);
      hold.Wait(changed_, [this]() REQUIRES(lock_) { return stopped_ || !tasks_.empty(); });
      if (stopped_) return;
      task = std::move(tasks_.front());
      tasks_.pop_front();
    }
    task();
  }
}

}  // namespace valmere::client
